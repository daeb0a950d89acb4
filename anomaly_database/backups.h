// The tables that hold backups: the history (HIST_DATA) and what was or is to be judged
// (DATA_TO_PROCESS). Their rowids grow with every insert and replacement, so that new rows are
// found without an index. Everything throws QueryError.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "anomaly_database/backup.h"
#include "anomaly_database/statuses.h"
#include "sqlite/connection.h"

namespace corvane {

struct RowToProcess {
  std::int64_t rowid = 0;
  Backup backup;
};

struct HistoryRow {
  std::int64_t rowid = 0;
  Backup backup;
  int cluster = kNoCluster;  // USER_IDENTIFIED_CLUSTER
  GatherMode mode = GatherMode::kLive;
};

// --- Scans ---

// Rows of the history with a rowid above `after`, by rowid. Returns the last rowid that was read.
// Ends early when `visit` returns false.
std::int64_t read_history(Connection& database, std::int64_t after,
                          const std::function<bool(const HistoryRow&)>& visit);
std::int64_t last_history_rowid(Connection& database);
// UNIQUE_KEY of the last row; empty without a row.
std::string last_history_key(Connection& database);

// The same of DATA_TO_PROCESS.
std::int64_t read_rows_to_process(
    Connection& database, std::int64_t after,
    const std::function<bool(const RowToProcess&, ProcessedStatus)>& visit);
std::int64_t last_rowid_to_process(Connection& database);
std::string last_key_to_process(Connection& database);

// Backups that wait for the detection. first_waiting(): the rowid of the one that came first; 0:
// none waits.
std::int64_t count_waiting(Connection& database);
std::int64_t first_waiting(Connection& database);

// Accepted backups with a rowid above `after` and a time above `since` (seconds since the epoch),
// in the order of rowids.
void read_accepted(Connection& database, std::int64_t after, std::int64_t since,
                   const std::function<void(const StreamKey&, std::int64_t time)>& visit);

// --- Single rows, by UNIQUE_KEY ---

// Of either table.
std::optional<Backup> find_backup(Connection& database, const std::string& unique_key);
std::optional<HistoryRow> find_in_history(Connection& database, const std::string& unique_key);
bool is_in_history(Connection& database, const std::string& unique_key);

// --- What the detection writes, inside its transactions ---

// False when the row is no longer waiting, or was gathered again since it was read.
bool mark_processed(Connection& database, std::int64_t rowid, ProcessedStatus status);
// Copies the row of DATA_TO_PROCESS.
void add_to_history(Connection& database, const std::string& unique_key, int cluster);
// The same; without such a row it marks the one that the history has.
void add_false_positive_to_history(Connection& database, const std::string& unique_key,
                                   int cluster);
// A false positive of which only the history has a row stays there without its mark. False: there
// is none.
bool unmark_false_positive(Connection& database, const std::string& unique_key);
// Removes a backup that is there as a false positive; an accepted one stays. False when there is
// none.
bool remove_false_positive(Connection& database, const std::string& unique_key);

}  // namespace corvane
