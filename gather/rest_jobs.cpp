// Backup records from the product's REST interface, and job details from its jobs tool.
#include <stdexcept>

#include "gather/data_gather.h"
#include "gather/jobs_json.h"
#include "platform/debug_log.h"
#include "platform/json_memory.h"
#include "platform/program_names.h"
#include "util/curl_client.h"
#include "util/file.h"
#include "util/process.h"
#include "util/scratch_file.h"

using corvane::for_each_member;
using corvane::json_value_to_text;
using corvane::kLogDetail;
using corvane::kManagementProgram;

namespace {

constexpr int kPageSize = 100;
constexpr int kImagesPage = 0;
constexpr int kJobsPage = 1;

// The spaces of the filter are sent as "%20", everything else as it is.
std::string page_path(API_TYPE type, int offset, const std::string& start, const std::string& end) {
  std::string path;
  if (type == API_CATALOG_IMAGES) path = "corvane/catalog/images";
  if (type == API_ADMIN_JOBS) path = "corvane/admin/jobs";
  path += "?page%5Boffset%5D=" + std::to_string(offset);
  path += "&page%5Blimit%5D=" + std::to_string(kPageSize);
  path += "&sort=-startTime&filter=";
  if (type == API_ADMIN_JOBS) {
    return path + "startTime%20ge%20" + start + "%20and%20endTime%20le%20" + end +
           "%20and%20(jobType%20eq%20'BACKUP'%20or%20jobType%20eq%20'SNAPDUPE'%20or%20"
           "jobType%20eq%20'DBBACKUP')";
  }
  return path + "backupTime%20ge%20" + start + "%20and%20backupTime%20le%20" + end;
}

// A job takes its policy and schedule type from its image, so a jobs page omits both.
corvane::BackupRecord record_of_attributes(json_t* attributes, int mode) {
  corvane::BackupRecord record;
  for_each_member(attributes, [&](std::string_view name, const json_t* value) {
    if (mode == kJobsPage && (name == "policyType" || name == "scheduleType")) return;
    record.emplace(name, json_value_to_text(value));
  });
  return record;
}

int job_id_of(const corvane::BackupRecord& record) {
  return corvane::to_int(corvane::text_or(record, "jobId", ""));
}

// An image without a job id is stored under 0, although its row will have -1: of several, one is
// kept.
void add_image(json_t* element, corvane::BackupRecord&& record,
               std::map<int, corvane::BackupRecord>& images) {
  const json_t* id = json_object_get(element, "id");
  if (id == nullptr) return;
  record.emplace("backupId", json_value_to_text(id));
  const int job_id = job_id_of(record);
  images.emplace(job_id, std::move(record));
}

// Leaves `offset` unchanged if the page has no paging information; the same page is then requested
// again.
void read_next_offset(const json_t* root, int& offset) {
  const json_t* pagination = json_object_get(json_object_get(root, "meta"), "pagination");
  if (!json_is_object(pagination)) return;
  offset = static_cast<int>(json_integer_value(json_object_get(pagination, "next")));
}

}  // namespace

void DataGather::do_data_gather_api(const int& start, const int& end, const int& live) {
  std::map<int, Record> images;
  std::vector<Record> jobs;
  std::string response;
  int offset = 0;
  do {
    get_api_response(response, start, end, offset, API_CATALOG_IMAGES);
    parse_api_response(response, images, jobs, offset, kImagesPage);
  } while (offset != 0);
  logmsgf(kLogDetail, kManagementProgram,
          "%d images found between (start time - end time): %d - %d",
          static_cast<int>(images.size()), start, end);

  if (live == 1) {
    response.clear();
    do {
      get_api_response(response, start, end, offset, API_ADMIN_JOBS);
      parse_api_response(response, images, jobs, offset, kJobsPage);
    } while (offset != 0);
    if (jobs.empty()) {
      logmsgf(kLogDetail, kManagementProgram,
              "No new job found between (start time - end time): %d - %d", start, end);
      return;
    }
  }
  process_gathered_data(jobs, std::move(images), live);
}

void DataGather::get_api_response(std::string& response, const int& start, const int& end,
                                  const int& offset, API_TYPE type) {
  const std::string path = page_path(type, offset, time_to_str(start), time_to_str(end));
  logmsgf(kLogDetail, kManagementProgram, "Executing API with path:  %s ", path.c_str());
  CurlClient client(master_server, path, REST_GET, "");
  const int result = client.execute();
  if (result == 0) response = client.get_response();
  logmsgf(kLogDetail, kManagementProgram, "API return value: %d ", result);
}

void DataGather::parse_api_response(const std::string& response, std::map<int, Record>& images,
                                    std::vector<Record>& jobs, int& offset, int mode) {
  const corvane::JsonMemory memory;
  const corvane::JsonPtr root = corvane::load_jobs_json(response, JSON_OBJECT);
  const json_t* data = json_object_get(root.get(), "data");
  for (std::size_t i = 0; i < json_array_size(data); ++i) {
    json_t* element = json_array_get(data, i);
    json_t* attributes = json_object_get(element, "attributes");
    const json_t* policy_type = json_object_get(attributes, "policyType");
    if (policy_type == nullptr) continue;
    Record record = record_of_attributes(attributes, mode);
    if (record.empty()) continue;
    if (mode == kImagesPage) {
      add_image(element, std::move(record), images);
      continue;
    }
    if (const auto image = images.find(job_id_of(record)); image != images.end()) {
      record.merge(image->second);
      images.erase(image);
    } else if (json_is_string(policy_type) &&
               validate_slp_policytype(json_string_value(policy_type))) {
      get_image_data_from_backupid(record["backupId"], record);
    }
    jobs.push_back(std::move(record));
  }
  read_next_offset(root.get(), offset);
  logmsgf(kLogDetail, kManagementProgram, "Capturing data for next offset: %d", offset);
}

void DataGather::get_job_details_json_from_job_id(std::vector<int>& job_ids,
                                                  std::vector<Record>& out) {
  const corvane::ScratchFile output(db_location + "/jobd.txt");
  File::WriteAllText(output.path(), "");
  std::string ids;
  for (const int id : job_ids) ids += std::to_string(id) + ",";
  if (ids.empty()) throw std::out_of_range("no job id to ask the jobs tool for");
  ids.pop_back();
  const std::string arguments = " -jobid  " + ids + "  -json  ";
  logmsgf(kLogDetail, kManagementProgram, "Executing [ qpdbjobs  %s ]", arguments.c_str());
  Process process("./admincmd/qpdbjobs", arguments);
  process.redirect_to_file(output.path());
  process.start();
  parse_jobs_details(File::ReadAllText(output.path()), out);
}

void DataGather::parse_jobs_details(const std::string& text, std::vector<Record>& out) {
  const corvane::JsonPtr root = corvane::load_jobs_json(text, JSON_ARRAY);
  for (std::size_t i = 0; i < json_array_size(root.get()); ++i) {
    Record& record = out.emplace_back();
    for_each_member(json_array_get(root.get(), i), [&](std::string_view name, const json_t* value) {
      record.emplace(name, json_value_to_text(value));
    });
  }
}
