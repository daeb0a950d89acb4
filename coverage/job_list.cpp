#include "coverage/job_list.h"

#include <jansson.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <stdexcept>

#include "anomaly_database/backup_row.h"
#include "gather/backup_record.h"
#include "gather/data_gather.h"
#include "platform/c_handles.h"
#include "service/host_role.h"
#include "util/curl_client.h"
#include "util/json.h"
#include "util/to_int.h"

namespace corvane::coverage {

namespace {

constexpr std::size_t kMostBytes = std::size_t{64} << 20;
constexpr std::int64_t kMostJobs = 100'000'000;  // an end for a server that never has a last page
constexpr int kMostRequests = 3;                 // for a page
constexpr std::int64_t kLongestCredible = std::int64_t{30} * 86400;  // seconds
constexpr std::chrono::seconds kSlow{10};  // a server that is so slow is not asked again

// Times are ints at the interfaces of the gather.
int to_seconds(std::int64_t time) {
  return static_cast<int>(std::clamp<std::int64_t>(time, 0, std::numeric_limits<int>::max()));
}

std::string text_of(const json_t* attributes, const char* name) {
  return json_value_to_text(json_object_get(attributes, name));
}

std::string page_path(DataGather& gather, TimeRange range, std::int64_t offset) {
  return "corvane/admin/jobs?page%5Boffset%5D=" + std::to_string(offset) +
         "&page%5Blimit%5D=100&sort=-startTime&filter=endTime%20ge%20" +
         gather.time_to_str(to_seconds(range.begin)) + "%20and%20endTime%20le%20" +
         gather.time_to_str(to_seconds(range.end)) +
         "%20and%20(jobType%20eq%20'BACKUP'%20or%20jobType%20eq%20'SNAPDUPE'%20or%20"
         "jobType%20eq%20'DBBACKUP')";
}

JsonPtr request_page(DataGather& gather, TimeRange range, std::int64_t offset) {
  CurlClient client(gather.master_server, page_path(gather, range, offset), REST_GET, "");
  if (const int result = client.execute(); result != 0) {
    throw std::runtime_error("The web service did not list the jobs (" + std::to_string(result) +
                             ")");
  }
  JsonPtr page = parse_json_object(client.get_response(), kMostBytes);
  if (!page || !json_is_array(json_object_get(page.get(), "data"))) {
    throw std::runtime_error("The web service's answer is not a list of jobs");
  }
  return page;
}

// A list has many pages: one request that fails must not cost all of them.
JsonPtr page_at(DataGather& gather, TimeRange range, std::int64_t offset) {
  using Clock = std::chrono::steady_clock;
  for (int request = 1;; ++request) {
    const Clock::time_point begin = Clock::now();
    try {
      return request_page(gather, range, offset);
    } catch (const std::runtime_error&) {
      if (request == kMostRequests || Clock::now() - begin > kSlow) throw;
    }
  }
}

bool is_blank(const json_t* attributes, const char* name) {
  const std::string text = text_of(attributes, name);
  return json_object_get(attributes, name) != nullptr && (text.empty() || text == " ");
}

// False for a job that is not stored: one that did not succeed, or that has no time, no destination
// or no schedule.
bool read_job(DataGather& gather, const json_t* attributes, EndedJob& job) {
  if (text_of(attributes, "state") != "DONE" || text_of(attributes, "status") != "0") return false;
  if (is_blank(attributes, "destinationStorageUnitName")) return false;
  if (text_of(attributes, "scheduleName") == "-") return false;
  const std::string start = text_of(attributes, "startTime");
  const std::string end = text_of(attributes, "endTime");
  constexpr std::size_t kTimeLength = std::string_view("2026-01-31T04:05:06").size();
  if (start.size() < kTimeLength || end.size() < kTimeLength) return false;
  job.job = {gather.str_to_time(start), gather.str_to_time(end)};
  // No gather of a reasonable range would have it.
  if (job.job.begin <= 0 || job.job.is_empty() || job.job.end - job.job.begin > kLongestCredible) {
    return false;
  }
  BackupRow row;
  row.job_id = to_int(text_of(attributes, "jobId"));
  row.backup_id = text_of(attributes, "backupId");
  row.set_unique_key();
  job.unique_key = std::move(row.unique_key);
  job.has_data = text_of(attributes, "kilobytesTransferred") != "0" ||
                 text_of(attributes, "numberOfFiles") != "0";
  return true;
}

}  // namespace

std::string known_master() {
  std::string master;
  getMasterServerName(master);
  if (master.empty()) throw std::runtime_error("the master server is not known");
  return master;
}

void read_ended_jobs(const std::string& master, TimeRange range,
                     const std::function<void(const EndedJob&)>& visit) {
  DataGather gather(nullptr, "", master);
  EndedJob job;
  for (std::int64_t offset = 0; offset < kMostJobs;) {
    const JsonPtr page = page_at(gather, range, offset);
    std::size_t i = 0;
    const json_t* element = nullptr;
    json_array_foreach(json_object_get(page.get(), "data"), i, element) {
      if (read_job(gather, json_object_get(element, "attributes"), job)) visit(job);
    }
    const json_t* meta = json_object_get(page.get(), "meta");
    const std::int64_t next = integer_member(json_object_get(meta, "pagination"), "next");
    if (next <= offset) return;
    offset = next;
  }
  throw std::runtime_error("The web service's list of jobs has no end");
}

}  // namespace corvane::coverage
