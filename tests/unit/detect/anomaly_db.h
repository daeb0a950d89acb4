// An anomaly database in a scratch directory, with the service's own schema.
#pragma once

#include <string>

#include "anomaly_database/backup.h"
#include "anomaly_database/backup_row.h"
#include "anomaly_database/schema.h"
#include "anomaly_database/statuses.h"
#include "sqlite/db_access.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/sql.h"

namespace corvane::detect {

class AnomalyDb {
 public:
  AnomalyDb() {
    test::open_databases_without_syncing();
    run("PRAGMA journal_mode=WAL");
    run("PRAGMA synchronous=OFF");
    for (const std::string& table : anomaly_schema()) run(table);
  }

  std::string path() const { return directory_("CV_Anomaly.db"); }
  std::string own_path() const { return directory_("CV_Anomaly_Detection.db"); }
  sqlite3* db() const { return database_.get_db_handle(); }
  void run(const std::string& sql) { test::query(db(), sql); }
  std::string one(const std::string& sql) { return test::query_one(db(), sql); }

  // Each column has another value. `mark`: USER_IDENTIFIED_CLUSTER or PROCESSED_STATUS.
  void insert(const std::string& table, const Backup& backup, int mark,
              GatherMode mode = GatherMode::kLive) {
    BackupRow row;
    row.backup_id = backup.backup_id;
    row.backup_time = backup.time;
    row.client = backup.stream.client;
    row.policy = backup.stream.policy;
    row.policy_type = backup.stream.policy_type;
    row.schedule_type = backup.stream.schedule_type;
    row.schedule_name = backup.stream.schedule_name;
    row.app_type = backup.stream.app_type;
    row.num_files = static_cast<int>(backup.figures.files);
    row.image_size = backup.figures.size_kb;
    row.job_id = static_cast<int>(backup.job_id);
    row.parent_job_id = 7;
    row.kb_transferred = static_cast<int>(backup.figures.transferred_kb);
    row.start_time = 11;
    row.end_time = 12;
    row.total_time = static_cast<int>(backup.figures.seconds);
    row.dedup_rate = backup.figures.ratio;
    row.mode = static_cast<int>(mode);
    row.cluster_or_status = mark;
    row.destination = backup.stream.destination;
    row.stream_number = 5;
    row.asset_id = "asset";
    row.unique_key = backup.unique_key;
    insert_row(database_, table == "HIST_DATA" ? kInsertHistData : kInsertDataToProcess, row);
  }

  // As a historical gather puts it into the history, over whatever is there: it knows the image
  // only.
  void gather_history(Backup backup) {
    backup.stream.app_type = "NONE";
    backup.stream.destination = "NA";
    backup.figures.transferred_kb = backup.figures.ratio = backup.figures.seconds = -1;
    insert("HIST_DATA", backup, kNoCluster, GatherMode::kHistorical);
  }

 private:
  using DBAccess = Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess;

  test::ScratchDir directory_;
  DBAccess database_{path(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX};
};

}  // namespace corvane::detect
