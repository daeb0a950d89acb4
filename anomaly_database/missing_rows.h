// Adding backups that the service did not store. Everything throws QueryError.
#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include "sqlite/connection.h"

namespace corvane {

// Whether either table has a row with this UNIQUE_KEY.
bool has_backup(Connection& database, const std::string& unique_key);
// The same, but a row that only a gather of the history wrote does not count if the backup ended
// at `judged_since` or later (seconds since the epoch): the detection takes it for its baseline.
bool has_judged_backup(Connection& database, const std::string& unique_key, std::int64_t end,
                       std::int64_t judged_since);

// The longest that a backup took, in seconds; 0 if none is known. What took longer than a month is
// no time but a mistake, such as a job that began in 1970.
std::int64_t longest_backup(Connection& database);
// The time of the oldest backup; 0 without one.
std::int64_t oldest_backup(Connection& database);

// Where the rows are added.
enum class RowsFor {
  kDetection,  // DATA_TO_PROCESS, to be judged
  kHistory,    // HIST_DATA, while the detection is disabled
};

struct RowsWanted {
  RowsFor rows_for = RowsFor::kDetection;
  // Older backups are left out. All times are seconds since the epoch.
  std::int64_t not_before = 0;
  // See has_judged_backup().
  std::int64_t judged_since = std::numeric_limits<std::int64_t>::max();
};

// Adds the rows of DATA_TO_PROCESS of another database, which must have the same schema, whose
// UNIQUE_KEY neither table has, and those that only a repeated history has brought since
// `judged_since`: they are to be judged. Rows that are there stay as they are. Uses short
// transactions, the oldest rows first. Returns how many rows were added.
std::int64_t add_missing_rows(Connection& database, const std::string& other,
                              const RowsWanted& wanted);

}  // namespace corvane
