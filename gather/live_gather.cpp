// The entry points for one time range, and completing job records with their images.
#include <stdexcept>
#include <utility>

#include "anomaly_database/backup_row.h"
#include "gather/data_gather.h"
#include "gather/jobs_json.h"
#include "gather/row_mappers.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"
#include "util/curl_client.h"

using corvane::kLogDetail;
using corvane::kLogError;
using corvane::kManagementProgram;

namespace {

constexpr int kHistorical = 0;
constexpr int kLive = 1;

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
    const Record& image = images[corvane::to_int(corvane::text_or(job, "JobId", ""))];
    corvane::insert_row(*db, corvane::kInsertDataToProcess,
                        corvane::row_of_tool_job(*this, job, image));
  }
}
