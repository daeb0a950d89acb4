// Decides whether a backup is anomalous, by the earlier backups of its stream and source. Works in
// memory only; the same inputs give the same verdict.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "companions/detect/dbscan.h"
#include "companions/detect/features.h"
#include "companions/detect/observation.h"
#include "companions/detect/suspected_causes.h"
#include "config/settings.h"
#include "finding/severity.h"
#include "finding/slow_change.h"
#include "finding/stream_rules.h"

namespace corvane::detect {

struct Settings {
  double eps = 2.5;  // in units of a stream's spread, before the sensitivity
  std::size_t min_samples = 3;
  // Percent, -100 to 100; a higher sensitivity makes eps smaller.
  double sensitivity = default_number(setting::kSensitivity);
  StreamSettings stream;

  double effective_eps() const;
};

enum class Outcome {
  kLearning,      // too little history, and no other stream to compare with
  kInconclusive,  // more than a third of the history is noise
  kNormal,
  kAdopted,  // the last of several changed runs that agree: the change joins the baseline
  kAnomalous,
};

// Everything that a verdict depends on.
struct Question {
  Observation record;
  bool incremental = false;
  std::span<const Observation> history;    // accepted backups of the stream, by time
  std::span<const Observation> by_people;  // false positives of the stream
  // Anomalous ones; when the record is a full backup, of all full backups of the source.
  std::span<const Observation> held;
  std::span<const Observation> full_backups;  // of the same source, by another stream; by time
  // The latest full backup of the same source in the 12 hours before the record, anomalous or not.
  const Observation* same_night = nullptr;
  // It was judged normal, by a stream that can recognise encrypted content.
  bool same_night_is_normal = false;
};

struct Verdict {
  Outcome outcome = Outcome::kNormal;
  std::size_t observations = 0;  // of history
  double eps = 0;
  double noise_share = 0;                 // of the history
  bool by_other_stream = false;           // judged by another stream of the source
  std::optional<SlowChange> slow_change;  // several runs in a row that together are too much
  FigureViews figures;
  Change change;
  std::vector<Cause> causes;            // the likeliest first; only when anomalous
  Severity severity = Severity::kNone;  // only when anomalous
};

class Judge {
 public:
  Verdict judge(const Question& question, const Settings& settings);

 private:
  using Deviations = std::array<double, kFigures>;

  bool judge_by_full_backups(Verdict& verdict);
  void judge_by_history(Verdict& verdict);
  bool is_noise(std::span<const double> point, double& noise_share);
  bool is_material(const Raw& raw, const Deviations& away, double eps) const;
  std::optional<SlowChange> slow_change();
  double effort(const Observation& backup) const;
  bool people_accepted(const Deviations& away, double eps) const;
  bool is_lasting_change(std::span<const Observation> accepted, const Raw& raw,
                         const Deviations& away, double eps) const;
  bool stores_much(const Raw& raw) const;
  Deviations deviations_of(const Observation& backup) const;
  void view_figures(const Raw& raw, const Observation* before, const Deviations& away,
                    Verdict& verdict) const;
  Change change_of() const;

  const Question* question_ = nullptr;
  const Settings* settings_ = nullptr;
  Frame frame_;
  ScaledHistory scaled_;
  Dbscan dbscan_;
  std::vector<double> point_;
  std::vector<double> efforts_;
};

}  // namespace corvane::detect
