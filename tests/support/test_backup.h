// Backups as tests put them into the anomaly database.
#pragma once

#include <cstdint>
#include <string>

#include "anomaly_database/backup_row.h"

namespace corvane::test {

inline constexpr std::int64_t kNow = 1'700'000'000;

// What tests choose of a row of HIST_DATA or DATA_TO_PROCESS.
struct TestBackup {
  std::string client = "web01";
  std::int64_t time = kNow;
  int mark = -1;  // USER_IDENTIFIED_CLUSTER or PROCESSED_STATUS
  std::string policy = "nightly";
  std::string policy_type = "STANDARD";
  std::string schedule_type = "FULL";
  std::string schedule = "daily";
  std::string app = "FS";
  std::string destination = "disk";
  int files = 1000;
  double size_kb = 100000;
  int transferred_kb = 5000;
};

inline BackupRow row_of(const TestBackup& backup) {
  BackupRow row;
  row.backup_id = backup.client + "_" + std::to_string(backup.time);
  row.backup_time = static_cast<int>(backup.time);
  row.client = backup.client;
  row.policy = backup.policy;
  row.policy_type = backup.policy_type;
  row.schedule_type = backup.schedule_type;
  row.schedule_name = backup.schedule;
  row.app_type = backup.app;
  row.num_files = backup.files;
  row.image_size = backup.size_kb;
  row.job_id = static_cast<int>(backup.time % 100000);
  row.parent_job_id = 7;
  row.kb_transferred = backup.transferred_kb;
  row.start_time = 1;
  row.end_time = 2;
  row.total_time = 60;
  row.dedup_rate = 20.0;
  row.mode = 1;
  row.cluster_or_status = backup.mark;
  row.destination = backup.destination;
  row.stream_number = 1;
  row.set_unique_key();
  return row;
}

inline std::string key_of(const TestBackup& backup) { return row_of(backup).unique_key; }

inline void insert(Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess& database,
                   const std::string& table, const TestBackup& backup) {
  insert_row(database, table == "HIST_DATA" ? kInsertHistData : kInsertDataToProcess,
             row_of(backup));
}

}  // namespace corvane::test
