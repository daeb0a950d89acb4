// A page of images from the web service, read and stored.
#include <map>

#include "tests/fuzz/gather_world.h"

using corvane::text_or;
using corvane::to_int;
using corvane::fuzz::GatherWorld;
using corvane::fuzz::Record;
using corvane::fuzz::require;

namespace {

constexpr int kImagesPage = 0;
constexpr int kOffset = 7700;

using Images = std::map<int, Record>;

void check_images(const Images& images) {
  for (const auto& [job_id, image] : images) {
    require(job_id == to_int(text_or(image, "jobId", "")), "images are found by their job");
    require(image.contains("policyType") && image.contains("backupId"), "an image is complete");
  }
}

// The same images, written as a page of texts, are read alike.
void check_written_anew(GatherWorld& world, const Images& images, int offset) {
  std::vector<Record> records;
  for (const auto& [job_id, image] : images) records.push_back(image);
  Images again;
  std::vector<Record> jobs;
  int next = kOffset;
  world.gather->parse_api_response(corvane::fuzz::page_of(records, offset), again, jobs, next,
                                   kImagesPage);
  require(again == images && next == offset, "a page written anew is read alike");
}

void check_row(GatherWorld& world, const corvane::test::SqlRow& row, const Record& image) {
  const corvane::test::SqlRow expected{text_or(image, "clientName", ""),
                                       text_or(image, "policyName", ""),
                                       text_or(image, "scheduleName", ""),
                                       text_or(image, "applicationType", "NONE"),
                                       std::to_string(to_int(text_or(image, "numFiles", "-1"))),
                                       std::to_string(world.gather->str_to_time(
                                           text_or(image, "backupTime", "1969-12-31T23:59:59"))),
                                       "0",
                                       "-1"};
  require(row == expected, "the row holds what the image says", row.front());
}

void check_storing(GatherWorld& world, const Images& images) {
  std::map<std::string, const Record*> by_key;  // of one key the last one stays
  bool short_time = false;
  for (const auto& [job_id, image] : images) {
    if (!corvane::fuzz::has_nan(image, "dedupRatio")) {
      by_key.insert_or_assign(corvane::fuzz::key_of(image), &image);
    }
    short_time = short_time || corvane::fuzz::has_short_time(image);
  }
  std::vector<Record> jobs;
  try {
    world.gather->process_gathered_data(jobs, images, 0);
  } catch (const std::out_of_range&) {
    require(short_time, "only a short time is out of range");
    return;
  }
  require(!short_time, "a short time is out of range");
  require(world.count("DATA_TO_PROCESS") == 0, "images are history");
  for (auto row : world.rows("SELECT UNIQUE_KEY, CLIENT, POLICY, SCHEDULE_NAME, APP_TYPE, "
                             "NUM_FILES, BACKUP_TIME, MODE, USER_IDENTIFIED_CLUSTER "
                             "FROM HIST_DATA")) {
    const auto found = by_key.find(row.front());
    require(found != by_key.end(), "each row has its image", row.front());
    row.erase(row.begin());
    check_row(world, row, *found->second);
    by_key.erase(found);
  }
  require(by_key.empty(), "each image has its row");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static GatherWorld world(corvane::fuzz::kMaster);
  world.clear();
  const std::string page = corvane::fuzz::text_of(data, size);
  Images images;
  std::vector<Record> jobs;
  int offset = kOffset;
  try {
    world.gather->parse_api_response(page, images, jobs, offset, kImagesPage);
  } catch (const std::runtime_error& error) {
    corvane::fuzz::check_refused(page, JSON_OBJECT, error);
    require(images.empty() && jobs.empty() && offset == kOffset, "a refused page changes nothing");
    return 0;
  }
  require(jobs.empty() && corvane::fake::state().requests.empty(), "images need nothing more");
  require(corvane::fuzz::json_type_of(page) == JSON_OBJECT, "only an object is a page");
  check_images(images);
  check_written_anew(world, images, offset);
  check_storing(world, images);
  return 0;
}
