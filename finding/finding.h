// What the detection reports about one backup, as programs handle it. Between programs it is JSON,
// see finding_json.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "anomaly_database/stream_key.h"
#include "finding/cause.h"
#include "finding/figure.h"
#include "finding/severity.h"
#include "finding/slow_change.h"

namespace corvane {

// A backup that a finding refers to. Times are seconds since the epoch.
struct BackupReference {
  std::string backup_id;  // empty: none known
  std::int64_t time = 0;
};

// Texts are as they came; plain_text() makes them safe to show.
struct Finding {
  std::string summary;                  // one sentence
  Severity severity = Severity::kNone;  // kNone: the backup is not anomalous
  std::string incident;                 // its name; empty: not known
  StreamKey stream;
  bool has_stream = false;  // false: at most the client is known
  std::string backup_id;
  std::int64_t job_id = 0;
  std::int64_t time = 0;      // of the backup; 0: unknown
  std::vector<Cause> causes;  // the likeliest first
  // The reason for the verdict where no figure of this backup is one.
  std::optional<SlowChange> slow_change;
  FigureViews figures;
  bool by_other_stream = false;  // judged by the baseline of another stream of the source
  std::size_t observations = 0;  // in the baseline
  double eps = 0;                // the radius in use
  BackupReference last_good;
  // Only if the backup was judged late: the stream's first accepted backup after it; 0: none.
  std::int64_t usual_since = 0;
  // Only for an incident's first backup: the backup with which the change was adopted.
  std::optional<BackupReference> adopted;

  std::optional<CauseKind> likeliest_cause() const {
    return causes.empty() ? std::nullopt : std::optional(causes.front().kind);
  }
};

// "daily backup of web01: 12 files, usually 990 to 1,010. A large part of the files is gone."
std::string summary_of(const Finding& finding);

}  // namespace corvane
