#include "anomaly_database/backup_row.h"

namespace corvane {

using Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess;
using Altamir::Corvane::UsageReporting::SQLiteDatabase::Statement;

const std::string kInsertHistData =
    "INSERT OR REPLACE INTO HIST_DATA  VALUES ( ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
    "?, ?, ?, ?, ?, ? ); ";
const std::string kInsertDataToProcess =
    "INSERT OR REPLACE INTO DATA_TO_PROCESS  VALUES ( ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
    "?, ?, ?, ?, ?, ?, ?, ? ); ";

void BackupRow::set_unique_key() {
  unique_key = "data_" + std::to_string(job_id) + "_" + backup_id;
}

namespace {

void bind_row(Statement& statement, const BackupRow& row) {
  int column = 0;
  // Texts are bound without a copy; the row holds them until the statement has run.
  const auto bind_next = [&](const auto& value) { statement.bind(++column, value); };
  bind_next(row.backup_id);
  bind_next(row.backup_time);
  bind_next(row.client);
  bind_next(row.policy);
  bind_next(row.policy_type);
  bind_next(row.schedule_type);
  bind_next(row.schedule_name);
  bind_next(row.app_type);
  bind_next(row.num_files);
  std::visit(bind_next, row.image_size);
  bind_next(row.job_id);
  bind_next(row.parent_job_id);
  bind_next(row.kb_transferred);
  bind_next(row.start_time);
  bind_next(row.end_time);
  bind_next(row.total_time);
  std::visit(bind_next, row.dedup_rate);
  bind_next(row.mode);
  bind_next(row.cluster_or_status);
  bind_next(row.destination);
  bind_next(row.stream_number);
  bind_next(row.asset_id);
  bind_next(row.unique_key);
}

}  // namespace

void insert_row(DBAccess& db, const std::string& insert, const BackupRow& row) {
  db.execute_query_kept(insert, [&](Statement& statement) { bind_row(statement, row); });
}

}  // namespace corvane
