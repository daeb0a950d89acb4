// One backup as its readers see it, and the columns it is read from.
#pragma once

#include <cstdint>
#include <string>

#include "anomaly_database/stream_key.h"
#include "sqlite/query.h"

namespace corvane {

// -1 (any negative number) is unknown.
struct Figures {
  double files = -1;
  double size_kb = -1;
  double transferred_kb = -1;
  double ratio = -1;  // size to what was transferred
  double seconds = -1;
};

// A row of HIST_DATA or DATA_TO_PROCESS.
struct Backup {
  std::string unique_key;
  std::string backup_id;
  std::int64_t job_id = -1;
  std::int32_t time = 0;  // seconds since the epoch
  StreamKey stream;
  Figures figures;
};

// The columns that read_backup() reads, in its order.
#define BACKUP_COLUMNS                                                  \
  "UNIQUE_KEY, BACKUP_ID, JOB_ID, BACKUP_TIME, NUM_FILES, IMAGE_SIZE, " \
  "KB_TRANSFERRED, DEDUP_RATE, TOTAL_TIME, " STREAM_KEY_COLUMNS

// `first` is the column where they begin. `into` may be used for many rows: its texts keep their
// memory.
void read_backup(const Query& row, int first, Backup& into);

}  // namespace corvane
