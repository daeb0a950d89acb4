// What the alerts read from the service's anomaly database, and the one thing that they write
// there.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "companions/alert/anomaly.h"
#include "companions/common/query.h"
#include "sqlite/db_access.h"

namespace corvane::alert {

// One connection, for one thread; waits half a second for a lock. Everything throws
// sqlite_exception.
class AnomalyStore {
 public:
  explicit AnomalyStore(const std::string& path);
  ~AnomalyStore();
  AnomalyStore(const AnomalyStore&) = delete;
  AnomalyStore& operator=(const AnomalyStore&) = delete;

  // While it lives, everything is read as of one moment.
  class Snapshot {
   public:
    explicit Snapshot(AnomalyStore& store);
    ~Snapshot();
    Snapshot(const Snapshot&) = delete;
    Snapshot& operator=(const Snapshot&) = delete;

   private:
    AnomalyStore& store_;
  };

  // Changes when another connection has written.
  std::int64_t data_version();

  // Rowids of the anomalies with PROCESSED 0, the oldest detection first.
  std::vector<std::int64_t> unprocessed();
  std::optional<AnomalyRow> row(std::int64_t rowid);
  // ANOMALY_DETAILS; empty when there is no such anomaly.
  std::string details(const std::string& anomaly_id);
  bool is_false_positive(const std::string& anomaly_id);

  // In one short transaction.
  void mark_processed(const std::vector<std::string>& anomaly_ids);

  // A backup that the detection has accepted.
  struct UsualBackup {
    StreamKey stream;
    std::int64_t time = 0;
    bool by_people = false;  // only because people said so
  };
  std::int64_t last_history_rowid();
  // Those after the rowid, of backups after that time.
  void read_history(std::int64_t after, std::int64_t since,
                    const std::function<void(const UsualBackup&)>& visit);

 private:
  Query& query(const char* sql);

  Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess database_;
  Queries queries_;
};

}  // namespace corvane::alert
