// One row of the tables that backups are stored in.
#pragma once

#include <string>
#include <variant>

#include "sqlite/db_access.h"

namespace corvane {

// The two inserts for a BackupRow. A row of the same key is replaced.
extern const std::string kInsertHistData;
extern const std::string kInsertDataToProcess;

// The columns of HIST_DATA and DATA_TO_PROCESS in their order; only the nineteenth differs.
// -1 stands for a number that is not known.
struct BackupRow {
  std::string backup_id;
  int backup_time = -1;  // seconds since the epoch, like the other times
  std::string client;
  std::string policy;
  std::string policy_type;
  std::string schedule_type;
  std::string schedule_name;
  std::string app_type = "NONE";
  int num_files = -1;
  std::variant<int, double> image_size = -1;  // kilobytes
  int job_id = -1;
  int parent_job_id = -1;
  int kb_transferred = -1;
  int start_time = -1;
  int end_time = -1;
  int total_time = -1;  // seconds
  std::variant<int, double> dedup_rate = -1.0;
  int mode = 0;                // 0 historical, 1 live
  int cluster_or_status = -1;  // USER_IDENTIFIED_CLUSTER or PROCESSED_STATUS
  std::string destination = "NA";
  int stream_number = 0;
  std::string asset_id = "NA";
  std::string unique_key;

  // Sets unique_key from job and backup id: "data_4711_client1_1700000000".
  void set_unique_key();
};

// Runs one of the inserts above for a row. Throws sqlite_exception.
void insert_row(Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess& db,
                const std::string& insert, const BackupRow& row);

}  // namespace corvane
