// Decides which table a REST record goes to, or the queue of running jobs.
#include "anomaly_database/backup_row.h"
#include "gather/data_gather.h"
#include "gather/row_mappers.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"
#include "sqlite/sqlite_exception.h"
#include "util/wrapping.h"

using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;
using Altamir::Corvane::UsageReporting::SQLiteDatabase::Statement;
using corvane::BackupRow;
using corvane::kLogDetail;
using corvane::kLogError;
using corvane::kManagementProgram;

namespace {

constexpr int kUnknown = -1;
constexpr unsigned long kLive = 1;

// Decides whether a finished job is a backup to keep, and completes its row.
bool accept_finished_job(const std::string& state, int status, BackupRow& row) {
  const bool has_time = row.backup_time != kUnknown || status != 0;
  const bool has_destination = !row.destination.empty() && row.destination != " ";
  const bool has_data = row.kb_transferred != 0 || row.num_files != 0;
  if (!has_time || !has_destination || !has_data || row.schedule_name == "-") return false;

  if (state != "DONE" || status != 0) {
    logmsgf(kLogDetail, kManagementProgram, "JobId %d may be suspended or failed", row.job_id);
    return false;
  }
  if (row.end_time == kUnknown || row.end_time == 0 || row.start_time == kUnknown) {
    logmsgf(kLogDetail, kManagementProgram, "startTime or endTime may not correct for %d",
            row.job_id);
    return false;
  }
  row.total_time = corvane::wrapping_subtract(row.end_time, row.start_time);
  return true;
}

}  // namespace

void DataGather::store_to_database(Record record, const unsigned long& mode) {
  BackupRow row = corvane::row_of_rest_record(*this, record);
  row.mode = static_cast<int>(mode);
  bool waits_for_detection = false;
  if (mode == kLive) {
    const std::string state = corvane::text_or(record, "state", "");
    if (IsActiveJob(state)) {
      store_to_queue_db(row.job_id, row.start_time);
      return;
    }
    const int status = record.contains("status") ? corvane::to_int(record.at("status")) : kUnknown;
    if (!accept_finished_job(state, status, row)) return;
    waits_for_detection = !detection_state;
    if (waits_for_detection) row.cluster_or_status = 0;
  }
  try {
    corvane::insert_row(
        *db, waits_for_detection ? corvane::kInsertDataToProcess : corvane::kInsertHistData, row);
  } catch (const sqlite_exception& error) {
    logmsgf(kLogError, kManagementProgram, "Error inserting data: %s", error.what());
  }
}

void DataGather::store_to_queue_db(const int& job_id, const int& start_time) {
  try {
    Statement insert(db->get_db_handle(),
                     "INSERT OR REPLACE INTO QUEUED_TO_CAPTURE_DATA  VALUES ( ?, ? ); ");
    insert.bind(1, job_id);
    insert.bind(2, start_time);
    db->execute_query_prepared(insert);
  } catch (const std::exception& error) {
    logmsgf(kLogError, kManagementProgram, "Error inserting data in %s", error.what());
  }
}

bool DataGather::IsActiveJob(const std::string& state) {
  return state != "DONE" && state != "SUSPENDED";
}
