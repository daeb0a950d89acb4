// What the detection says of one backup: the one type in which it travels inside programs. Between
// them it is JSON, see finding_json.h.
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

// A backup that something refers to. Times are seconds since the epoch.
struct BackupReference {
  std::string backup_id;  // empty: none known
  std::int64_t time = 0;
};

// Texts are as they came; plain_text() makes them fit to be shown.
struct Finding {
  std::string summary;                  // one sentence
  Severity severity = Severity::kNone;  // kNone: the backup is not anomalous
  std::string incident;                 // its name; empty: not known
  StreamKey stream;
  bool has_stream = false;  // false: all that may be known of it is the client
  std::string backup_id;
  std::int64_t job_id = 0;
  std::int64_t time = 0;      // of the backup; 0: unknown
  std::vector<Cause> causes;  // the likeliest first
  // What the verdict rests on instead of a figure of this one backup.
  std::optional<SlowChange> slow_change;
  FigureViews figures;
  bool by_other_stream = false;  // judged by what another stream of the source knows
  std::size_t observations = 0;  // of the stream's history
  double eps = 0;                // the radius in use
  BackupReference last_good;
  // Only of a backup that was judged late: the stream's first accepted backup after it; 0: none.
  std::int64_t usual_since = 0;
  // Only of an incident's first backup: the backup with which the change became the new normal.
  std::optional<BackupReference> adopted;

  std::optional<CauseKind> likeliest_cause() const {
    return causes.empty() ? std::nullopt : std::optional(causes.front().kind);
  }
};

// "daily backup of web01: 12 files, usually 990 to 1,010. A large part of the files is gone."
std::string summary_of(const Finding& finding);

}  // namespace corvane
