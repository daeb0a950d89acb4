// What the detection has found, and what people have said of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "companions/alert/anomaly.h"
#include "operator_tool/database.h"

namespace corvane::ctl {

enum class Opinion {
  kOpen,  // nobody has judged it
  kConfirmed,
  kFalsePositive,
};
// "open", "confirmed", "false_positive".
const char* name_of(Opinion opinion);
const char* words_for(Opinion opinion);

struct FoundAnomaly {
  alert::Anomaly anomaly;
  Opinion opinion = Opinion::kOpen;
  std::int64_t judged_at = 0;  // 0: not judged
  bool is_processed = false;   // every channel of the alerts has taken its part
  std::string backup_id;       // empty when the details do not tell
};

struct AnomalyFilter {
  std::string client;      // empty: all
  int severity = 0;        // the least
  std::int64_t since = 0;  // of the backup, else of the detection
  std::optional<bool> is_judged;
};

// The newest backup first. Details that cannot be read leave what the row knows.
std::vector<FoundAnomaly> read_anomalies(Database& database, const AnomalyFilter& filter);

// By ANOMALY_UNIQUE_ID, by the unique key in it, or by the id of the backup: then the newest.
std::optional<FoundAnomaly> find_anomaly(Database& database, const std::string& id);

}  // namespace corvane::ctl
