// The anomalies that somebody asks for.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "finding/anomaly.h"
#include "platform/c_handles.h"
#include "sqlite/connection.h"

namespace corvane::ctl {

// "open", "confirmed", "false_positive": in JSON documents and as a label of metrics.
const char* name_of(Review review);
const char* words_for(Review review);

struct AnomalyFilter {
  std::string client;      // empty: all
  int severity = 0;        // the least
  std::int64_t since = 0;  // of the backup, else of the detection
  std::optional<bool> is_reviewed;

  bool passes(const Anomaly& anomaly) const;
};

// Decides whose rows keep ANOMALY_DETAILS.
using KeepsDetails = std::function<bool(const Anomaly&)>;

// All of them, the newest backup first. Details that cannot be read leave what the row knows. These
// throw QueryError.
std::vector<Anomaly> read_anomalies(Connection& database, const KeepsDetails& keeps_details = {});

struct FoundAnomaly {
  Anomaly anomaly;
  JsonPtr details;  // as they stand in its row; null when they cannot be read
};
// By ANOMALY_UNIQUE_ID, by the unique key in it, or by the id of the backup: then the newest.
// Parses only the details of candidates.
std::optional<FoundAnomaly> find_anomaly(Connection& database, const std::string& id);

}  // namespace corvane::ctl
