// One stream's backups and their figures over time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "anomaly_database/backup.h"
#include "sqlite/connection.h"

namespace corvane {

struct HistoryPoint {
  std::int64_t time = 0;  // of the backup
  Figures figures;
  bool is_anomalous = false;
  std::string unique_key;
};

// The accepted and the anomalous backups of the stream up to `until`, by time; the newest `most` of
// them. Throws QueryError.
std::vector<HistoryPoint> read_stream_history(Connection& database, const StreamKey& stream,
                                              std::int64_t until, std::size_t most);

}  // namespace corvane
