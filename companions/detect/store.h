// What the detection reads from and writes to the anomaly database. The schema is the service's:
// nothing is created, altered or dropped here.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "companions/common/query.h"
#include "companions/detect/backup.h"
#include "sqlite/db_access.h"

namespace corvane::detect {

using Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess;

enum class Status { kWaiting = 0, kNormal = 1, kAnomalous = 2 };

struct WaitingRow {
  std::int64_t rowid = 0;
  Backup backup;
};

// One connection, one thread. Every failure throws sqlite_exception with SQLite's text; a database
// that is not there is not created. Another writer is waited for up to half a second, by who only
// reads up to 5.
class Store {
 public:
  explicit Store(const std::string& path, bool read_only = false);
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  // Another value than before: another process has committed something since.
  std::int64_t data_version();

  // Rows of the history behind `after`, by rowid; gives the last rowid. Ends early when `visit`
  // returns false.
  std::int64_t read_history(std::int64_t after,
                            const std::function<bool(const Backup&, int cluster)>& visit);
  std::int64_t last_history_rowid();
  // The same of DATA_TO_PROCESS.
  std::int64_t read_rows(std::int64_t after,
                         const std::function<bool(const WaitingRow&, Status)>& visit);
  std::int64_t last_row_rowid();
  std::optional<Backup> find_backup(const std::string& unique_key);

  // For a Transaction.
  sqlite3* handle() const { return database_.get_db_handle(); }

  // The row still waits: it has not been gathered again since it was read.
  bool mark(std::int64_t rowid, Status status);
  bool is_reported(const std::string& anomaly_id);
  bool is_in_history(const std::string& unique_key);
  void add_to_history(const std::string& unique_key, int cluster);
  // Of a row that people put there.
  void remove_from_history(const std::string& unique_key);
  void report(const std::string& anomaly_id, const std::string& details, const StreamKey& stream,
              int detection_time);
  std::optional<std::string> details(const std::string& anomaly_id);
  void set_details(const std::string& anomaly_id, const std::string& details);

  void read_feedback(
      const std::function<void(const std::string& anomaly_id, bool false_positive)>& visit);

  void read_eps(const std::function<void(const std::string& stream, double eps)>& visit);
  void store_eps(const StreamKey& stream, double eps, int capture_time);

 private:
  Query& query(const char* sql);

  DBAccess database_;
  Queries queries_;
};

}  // namespace corvane::detect
