#include "gather/row_mappers.h"

#include <cstdlib>

#include "util/wrapping.h"

namespace corvane {

namespace {

constexpr int kUnknown = -1;
constexpr int kLive = 1;
constexpr int kWaits = 0;  // for the detection

// --- REST: what is absent leaves its target as it is ---

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

// --- The tools: what is absent is empty ---

const std::string& text_of(const BackupRecord& record, const char* key) {
  static const std::string kEmpty;
  return text_or(record, key, kEmpty);
}

int int_of(const BackupRecord& record, const char* key) { return to_int(text_of(record, key)); }

double real_of(const BackupRecord& record, const char* key) {
  return std::strtod(text_of(record, key).c_str(), nullptr);
}

// What both kinds of rows from the tools take from the image.
BackupRow row_with_image(DataGather& gather, const BackupRecord& image) {
  BackupRow row;
  row.backup_id = text_of(image, "backupid");
  row.backup_time = int_of(image, "backup_time");
  row.client = text_of(image, "client_name");
  row.policy = text_of(image, "policy_name");
  row.policy_type = gather.policy_type_name(text_of(image, "client_type"));
  row.schedule_type = gather.schedule_type_name(text_of(image, "sched_type"));
  row.schedule_name = text_of(image, "sched_label");
  row.num_files = int_of(image, "num_files");
  row.image_size = real_of(image, "kbytes");
  if (const auto& asset = text_of(image, "provider_generated_id"); !asset.empty()) {
    row.asset_id = asset;
  }
  return row;
}

}  // namespace

BackupRow row_of_rest_record(DataGather& gather, const BackupRecord& record) {
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

BackupRow row_of_listed_image(DataGather& gather, const BackupRecord& image) {
  BackupRow row = row_with_image(gather, image);
  row.job_id = int_of(image, "job_id");
  row.dedup_rate = kUnknown;  // an integer, like the other figures that are not in the list
  row.stream_number = int_of(image, "stream_number");
  row.set_unique_key();
  return row;
}

BackupRow row_of_tool_job(DataGather& gather, const BackupRecord& job, const BackupRecord& image) {
  BackupRow row = row_with_image(gather, image);
  row.app_type = text_of(image, "app_type");
  row.job_id = int_of(job, "JobId");
  row.parent_job_id = int_of(job, "ParentJobId");
  row.kb_transferred = int_of(job, "KilobytesTransferred");
  row.start_time = int_of(job, "StartTime");
  row.end_time = int_of(job, "EndTime");
  row.total_time = wrapping_subtract(row.end_time, row.start_time);
  if (job.contains("DedupRatio")) row.dedup_rate = real_of(job, "DedupRatio");
  row.mode = kLive;
  row.cluster_or_status = kWaits;
  row.destination = text_of(job, "DestinationStorageUnitName");
  row.stream_number = int_of(job, "StreamNumber");
  row.set_unique_key();
  return row;
}

}  // namespace corvane
