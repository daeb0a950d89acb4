// The entry points for one time range, and the completing of job records by their images.
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "gather/backup_row.h"
#include "gather/data_gather.h"
#include "gather/jobs_json.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"
#include "util/curl_client.h"
#include "util/wrapping.h"

using corvane::BackupRecord;
using corvane::BackupRow;
using corvane::kLogDetail;
using corvane::kLogError;
using corvane::kManagementProgram;
using corvane::to_int;

namespace {

constexpr int kHistorical = 0;
constexpr int kLive = 1;

const std::string& text_of(const BackupRecord& record, const char* key) {
  static const std::string kEmpty;
  return corvane::text_or(record, key, kEmpty);
}

int int_of(const BackupRecord& record, const char* key) { return to_int(text_of(record, key)); }

void gather_range(DataGather& gather, int start, int end, int mode) {
  logmsgf(kLogDetail, kManagementProgram, "Capturing data between %d & %d ", start, end);
  try {
    if (!gather.master_server.empty()) {
      gather.do_data_gather_api(start, end, mode);
    } else {
      gather.do_image_gather(start, end, mode);
    }
  } catch (...) {
    logmsgf(kLogError, kManagementProgram, "Could not capture data between %d & %d ", start, end);
  }
}

}  // namespace

void DataGather::do_live_gather(int start, int end) { gather_range(*this, start, end, kLive); }

void DataGather::do_historical_gather(int start, int end) {
  gather_range(*this, start, end, kHistorical);
}

void DataGather::process_gathered_data(std::vector<Record>& jobs, std::map<int, Record> images,
                                       const int& mode) {
  const auto storage_mode = static_cast<unsigned long>(mode);
  if (mode != kLive) {
    for (auto& [job_id, image] : images) {
      if (!image.empty()) store_to_database(std::move(image), storage_mode);
    }
    return;
  }
  for (const Record& job : jobs) {
    if (!job.empty()) store_to_database(job, storage_mode);
  }
}

void DataGather::get_image_data_from_backupid(const std::string& backup_id, Record& record) {
  const std::string path = "corvane/catalog/images/" + backup_id;
  logmsgf(kLogDetail, kManagementProgram, "Executing API with path:  %s ", path.c_str());
  CurlClient client(master_server, path, REST_GET, "");
  if (client.execute() == 0) {
    try {
      parse_image_data_from_backupid(client.get_response(), record);
      return;
    } catch (const std::exception& error) {
      logmsgf(kLogError, kManagementProgram,
              "Exception occurred while getting data from backupId: %s ", error.what());
    }
  }
  logmsgf(kLogDetail, kManagementProgram, "Image data could not capture for backupId: %s",
          backup_id.c_str());
}

void DataGather::parse_image_data_from_backupid(const std::string& response, Record& record) {
  const corvane::JsonPtr root = corvane::load_jobs_json(response, JSON_OBJECT);
  const json_t* data = json_object_get(root.get(), "data");
  if (!json_is_object(data)) throw std::runtime_error("image data object not found.");
  json_t* attributes = json_object_get(data, "attributes");
  if (attributes == nullptr) throw std::runtime_error("Attributes details not found");
  corvane::for_each_member(attributes, [&](std::string_view name, const json_t* value) {
    record.emplace(name, corvane::json_value_to_text(value));
  });
}

void DataGather::process_jobs_info_live_gather(std::vector<Record>& jobs,
                                               std::map<int, Record>& images) {
  for (const Record& job : jobs) {
    BackupRow row;
    row.job_id = int_of(job, "JobId");
    const Record& image = images[row.job_id];
    row.backup_id = text_of(image, "backupid");
    row.backup_time = int_of(image, "backup_time");
    row.client = text_of(image, "client_name");
    row.policy = text_of(image, "policy_name");
    row.policy_type = policy_type_name(text_of(image, "client_type"));
    row.schedule_type = schedule_type_name(text_of(image, "sched_type"));
    row.schedule_name = text_of(image, "sched_label");
    row.app_type = text_of(image, "app_type");
    row.num_files = int_of(image, "num_files");
    row.image_size = std::strtod(text_of(image, "kbytes").c_str(), nullptr);
    row.parent_job_id = int_of(job, "ParentJobId");
    row.kb_transferred = int_of(job, "KilobytesTransferred");
    row.start_time = int_of(job, "StartTime");
    row.end_time = int_of(job, "EndTime");
    row.total_time = corvane::wrapping_subtract(row.end_time, row.start_time);
    if (job.contains("DedupRatio")) {
      row.dedup_rate = std::strtod(text_of(job, "DedupRatio").c_str(), nullptr);
    }
    row.mode = kLive;
    row.cluster_or_status = 0;
    row.destination = text_of(job, "DestinationStorageUnitName");
    row.stream_number = int_of(job, "StreamNumber");
    if (const auto& asset = text_of(image, "provider_generated_id"); !asset.empty()) {
      row.asset_id = asset;
    }
    row.set_unique_key();
    corvane::insert_row(*db, corvane::kInsertDataToProcess, row);
  }
}
