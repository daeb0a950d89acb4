// Every stream of backups in the database, from one pass over it.
#pragma once

#include <cstdint>
#include <vector>

#include "anomaly_database/stream_key.h"
#include "sqlite/connection.h"

namespace corvane {

// Times are of backups, in seconds since the epoch.
struct ScannedStream {
  StreamKey key;
  std::vector<std::int32_t> accepted;  // of the accepted ones in the history, ascending
  std::int64_t false_positives = 0;    // in the history because people called them so
  std::int64_t waiting = 0;            // for the detection
  std::int64_t anomalous = 0;          // reported by the detection
  std::int64_t newest = 0;             // of all
};

struct StreamScan {
  std::vector<ScannedStream> streams;  // in the order they were found
  std::int64_t history_rows = 0;       // of HIST_DATA
  std::int64_t process_rows = 0;       // of DATA_TO_PROCESS
  std::int64_t waiting_rows = 0;
  std::int64_t oldest_waiting = 0;  // backup time; 0: none is waiting
};

// Throws QueryError.
StreamScan scan_streams(Connection& database);

}  // namespace corvane
