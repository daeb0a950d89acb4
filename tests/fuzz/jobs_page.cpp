// A page of jobs from the web service, completed by a page of images and by single images, and
// stored.
//
// The input's first byte: 1 detection is off, 2 single images are not found, 4 images are left out.
// Behind it, separated by NULs, the page of images, the page of jobs, the answer for a single
// image.
#include "tests/fuzz/gather_world.h"
#include "util/wrapping.h"

using corvane::text_or;
using corvane::to_int;
using corvane::fuzz::GatherWorld;
using corvane::fuzz::Record;
using corvane::fuzz::require;

namespace {

constexpr int kImagesPage = 0;
constexpr int kJobsPage = 1;
constexpr int kOffset = 7700;

using Images = std::map<int, Record>;

struct Page {
  Images images;
  std::vector<Record> jobs;
  int offset = kOffset;
};

// False when the page was refused, which changes nothing.
bool read_page(GatherWorld& world, const std::string& text, int mode, Page& page) {
  const Page before = page;
  try {
    world.gather->parse_api_response(text, page.images, page.jobs, page.offset, mode);
    require(corvane::fuzz::json_type_of(text) == JSON_OBJECT, "only an object is a page");
    return true;
  } catch (const std::runtime_error& error) {
    corvane::fuzz::check_refused(text, JSON_OBJECT, error);
    require(
        page.images == before.images && page.jobs == before.jobs && page.offset == before.offset,
        "a refused page changes nothing");
    return false;
  }
}

void check_completing(const Page& page, const Images& images) {
  const auto& requests = corvane::fake::state().requests;
  std::size_t taken = 0;
  for (const auto& entry : images) {
    const int job_id = entry.first;
    const Record& image = entry.second;
    if (page.images.contains(job_id)) continue;
    ++taken;
    const auto is_completed = [&](const Record& job) {
      return to_int(text_or(job, "jobId", "")) == job_id &&
             std::all_of(image.begin(), image.end(),
                         [&](const auto& member) { return job.contains(member.first); });
    };
    require(std::any_of(page.jobs.begin(), page.jobs.end(), is_completed),
            "an image that was taken completes its job");
  }
  require(taken + requests.size() <= page.jobs.size(), "a job has one image at most");
  const auto typed = std::count_if(page.jobs.begin(), page.jobs.end(), [](const Record& job) {
    return job.contains("policyType") || job.contains("scheduleType");
  });
  require(static_cast<std::size_t>(typed) <= taken + requests.size(),
          "a job takes its types from its image");
  for (const auto& request : requests) {
    require(request.method == "GET" && request.path.starts_with("corvane/catalog/images/"),
            "only images are asked for", request.path);
  }
}

void check_row(const corvane::test::SqlRow& row) {
  const int start = to_int(row[0]);
  const int end = to_int(row[1]);
  require(start != -1 && end != -1 && end != 0, "a job that was stored has ended");
  require(to_int(row[2]) == corvane::wrapping_subtract(end, start), "it took as long as it took");
  require(row[3] == "1", "it is a live record");
  require(!row[4].empty() && row[4] != " ", "it has a destination");
  require(row[5] != "0.0" || row[6] != "0", "it has data");
  require(row[7] != "-", "it was scheduled");
}

std::size_t running(const std::vector<Record>& jobs, const GatherWorld& world) {
  return static_cast<std::size_t>(std::count_if(jobs.begin(), jobs.end(), [&](const Record& job) {
    return world.gather->IsActiveJob(text_or(job, "state", ""));
  }));
}

void check_storing(GatherWorld& world, std::vector<Record>& jobs, bool detection_off) {
  world.gather->set_detection_state(detection_off ? 1 : 0);
  try {
    world.gather->process_gathered_data(jobs, {}, 1);
  } catch (const std::out_of_range&) {
    require(std::any_of(jobs.begin(), jobs.end(), corvane::fuzz::has_short_time),
            "only a short time is out of range");
    return;
  }
  const std::string table = detection_off ? "HIST_DATA" : "DATA_TO_PROCESS";
  require(world.count(detection_off ? "DATA_TO_PROCESS" : "HIST_DATA") == 0,
          "records go where they are wanted");
  const auto rows = world.rows(
      "SELECT START_TIME, END_TIME, TOTAL_TIME, MODE, DESTINATION_STORAGE_NAME, KB_TRANSFERRED, "
      "NUM_FILES, SCHEDULE_NAME FROM " +
      table);
  for (const auto& row : rows) check_row(row);
  const std::size_t active = running(jobs, world);
  require(rows.size() + active <= jobs.size(), "a running job is no row");
  require((world.count("QUEUED_TO_CAPTURE_DATA") > 0) == (active > 0), "running jobs are queued");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static GatherWorld world(corvane::fuzz::kMaster);
  if (size == 0) return 0;
  world.clear();
  const unsigned how = data[0];
  const auto parts = corvane::fuzz::parts_of(corvane::fuzz::text_of(data + 1, size - 1), 3);
  corvane::fake::state().handler = [&](const corvane::fake::HttpRequest&) {
    return corvane::fake::HttpAnswer{
        .result = 0, .status = (how & 2) != 0 ? 404 : 200, .body = parts[2]};
  };
  Page page;
  if ((how & 4) == 0 && !read_page(world, parts[0], kImagesPage, page)) return 0;
  const Images images = page.images;
  if (!read_page(world, parts[1], kJobsPage, page)) return 0;
  check_completing(page, images);
  check_storing(world, page.jobs, (how & 1) != 0);
  return 0;
}
