// The output of the jobs tool, read and stored with the images that it completes. The input: the
// jobs, a NUL, one image a line.
#include <set>
#include <sstream>

#include "sqlite/sqlite_exception.h"
#include "tests/fuzz/gather_world.h"
#include "util/wrapping.h"

using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;
using corvane::text_or;
using corvane::to_int;
using corvane::fuzz::GatherWorld;
using corvane::fuzz::Record;
using corvane::fuzz::require;

namespace {

using Images = std::map<int, Record>;

Images images_of(GatherWorld& world, const std::string& list) {
  Images images;
  std::istringstream lines(list);
  for (std::string line; std::getline(lines, line);) {
    try {
      const Record image = world.gather->parse_qpimagelist_line(line);
      images.emplace(to_int(text_or(image, "job_id", "")), image);
    } catch (const std::runtime_error&) {
    }
  }
  return images;
}

void check_written_anew(GatherWorld& world, const std::vector<Record>& jobs) {
  const corvane::JsonPtr root(json_array());
  for (const Record& job : jobs) {
    json_array_append_new(root.get(), corvane::fuzz::json_of(job).release());
  }
  std::vector<Record> again;
  world.gather->parse_jobs_details(corvane::fuzz::text_of_json(root), again);
  require(again == jobs, "jobs written anew are read alike");
}

// The jobs up to the first whose figures no column takes, by the keys of their rows.
std::map<std::string, const Record*> expected_rows(const std::vector<Record>& jobs, Images& images,
                                                   bool& refused) {
  std::map<std::string, const Record*> by_key;
  for (const Record& job : jobs) {
    const int id = to_int(text_or(job, "JobId", ""));
    const Record& image = images[id];
    refused = corvane::fuzz::has_nan(job, "DedupRatio") || corvane::fuzz::has_nan(image, "kbytes");
    if (refused) break;
    by_key["data_" + std::to_string(id) + "_" + text_or(image, "backupid", "")] = &job;
  }
  return by_key;
}

void check_row(const corvane::test::SqlRow& row, const Record& job) {
  const auto number = [&](const char* key) { return to_int(text_or(job, key, "")); };
  const int seconds = corvane::wrapping_subtract(number("EndTime"), number("StartTime"));
  const corvane::test::SqlRow expected{row[0],
                                       std::to_string(number("JobId")),
                                       std::to_string(number("ParentJobId")),
                                       std::to_string(number("StartTime")),
                                       std::to_string(seconds),
                                       std::to_string(number("StreamNumber")),
                                       text_or(job, "DestinationStorageUnitName", ""),
                                       "1",
                                       "0"};
  require(row == expected, "the row holds what the job says");
}

void check_storing(GatherWorld& world, std::vector<Record>& jobs, Images images) {
  bool refused = false;
  auto expected = expected_rows(jobs, images, refused);
  bool failed = false;
  try {
    world.gather->process_jobs_info_live_gather(jobs, images);
  } catch (const sqlite_exception&) {
    failed = true;
  }
  require(failed == refused, "only a figure that is no number cannot be stored");
  require(world.count("HIST_DATA") == 0, "live records wait for detection");
  for (const auto& row :
       world.rows("SELECT UNIQUE_KEY, JOB_ID, PARENT_JOB_ID, START_TIME, TOTAL_TIME, "
                  "STREAM_NUMBER, DESTINATION_STORAGE_NAME, MODE, PROCESSED_STATUS "
                  "FROM DATA_TO_PROCESS")) {
    const auto found = expected.find(row.front());
    require(found != expected.end(), "each row has its job", row.front());
    check_row(row, *found->second);
    expected.erase(found);
  }
  require(expected.empty(), "each job has its row");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static GatherWorld world("");
  world.clear();
  const auto parts = corvane::fuzz::parts_of(corvane::fuzz::text_of(data, size), 2);
  const Record before{{"JobId", "1"}};
  std::vector<Record> jobs{before};
  try {
    world.gather->parse_jobs_details(parts[0], jobs);
  } catch (const std::runtime_error& error) {
    corvane::fuzz::check_refused(parts[0], JSON_ARRAY, error);
    require(jobs == std::vector<Record>{before}, "refused jobs change nothing");
    return 0;
  }
  require(corvane::fuzz::json_type_of(parts[0]) == JSON_ARRAY, "only an array is accepted");
  require(!jobs.empty() && jobs.front() == before, "jobs are appended");
  jobs.erase(jobs.begin());
  check_written_anew(world, jobs);
  check_storing(world, jobs, images_of(world, parts[1]));
  return 0;
}
