// One backup record to one row, or to the queue of running jobs.
#include <cstdlib>

#include "gather/backup_row.h"
#include "gather/data_gather.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"
#include "sqlite/sqlite_exception.h"
#include "util/wrapping.h"

using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;
using Altamir::Corvane::UsageReporting::SQLiteDatabase::Statement;
using corvane::BackupRecord;
using corvane::BackupRow;
using corvane::kLogDetail;
using corvane::kLogError;
using corvane::kManagementProgram;
using corvane::to_int;

namespace {

constexpr int kUnknown = -1;
constexpr unsigned long kLive = 1;

// Copies the text under `key`, or leaves `text` as it is.
void read_text(const BackupRecord& record, const char* key, std::string& text) {
  if (const auto found = record.find(key); found != record.end()) text = found->second;
}

void read_int(const BackupRecord& record, const char* key, int& number) {
  if (const auto found = record.find(key); found != record.end()) number = to_int(found->second);
}

void read_time(DataGather& gather, const BackupRecord& record, const char* key, int& time) {
  if (const auto found = record.find(key); found != record.end()) {
    time = gather.str_to_time(found->second);
  }
}

// What is absent keeps the row's defaults.
BackupRow row_of_record(DataGather& gather, const BackupRecord& record) {
  BackupRow row;
  read_text(record, "backupId", row.backup_id);
  read_time(gather, record, "backupTime", row.backup_time);
  read_text(record, "clientName", row.client);
  read_text(record, "policyName", row.policy);
  read_text(record, "policyType", row.policy_type);
  read_text(record, "scheduleType", row.schedule_type);
  read_text(record, "scheduleName", row.schedule_name);
  read_text(record, "applicationType", row.app_type);
  read_int(record, "numFiles", row.num_files);
  int kbytes = kUnknown;
  read_int(record, "kbytes", kbytes);
  row.image_size = kbytes;
  read_int(record, "jobId", row.job_id);
  read_int(record, "parentJobId", row.parent_job_id);
  read_int(record, "kilobytesTransferred", row.kb_transferred);
  read_time(gather, record, "startTime", row.start_time);
  read_time(gather, record, "endTime", row.end_time);
  if (const auto found = record.find("dedupRatio"); found != record.end()) {
    row.dedup_rate = std::strtod(found->second.c_str(), nullptr);
  }
  read_text(record, "destinationStorageUnitName", row.destination);
  read_int(record, "streamNumber", row.stream_number);
  if (const auto found = record.find("providerGeneratedId");
      found != record.end() && !found->second.empty()) {
    row.asset_id = found->second;
  }
  row.set_unique_key();
  return row;
}

// Says whether a job that has ended is a backup to keep, and completes its row.
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
  BackupRow row = row_of_record(*this, record);
  row.mode = static_cast<int>(mode);
  bool waits_for_detection = false;
  if (mode == kLive) {
    std::string state;
    read_text(record, "state", state);
    if (IsActiveJob(state)) {
      store_to_queue_db(row.job_id, row.start_time);
      return;
    }
    int status = kUnknown;
    read_int(record, "status", status);
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
