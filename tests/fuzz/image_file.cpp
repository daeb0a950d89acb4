// The output of the image-list tool as a whole, and in a live gather that of the jobs tool which is
// then asked.
//
// The input: the image list, a NUL, the jobs tool's output. The first byte tells a live gather
// (odd) from a historical one.
#include <sstream>

#include "tests/fuzz/gather_world.h"
#include "tests/fuzz/process_fake.h"
#include "tests/support/scratch_dir.h"

using corvane::fuzz::GatherWorld;
using corvane::fuzz::Record;
using corvane::fuzz::require;

namespace {

constexpr char kAllRows[] = "SELECT * FROM HIST_DATA ORDER BY UNIQUE_KEY";

struct World {
  corvane::test::ScratchDir scratch;
  GatherWorld whole{"", scratch()};
  GatherWorld single{""};
};

// The images of the lines that can be read.
std::vector<Record> images_of(GatherWorld& world, const std::string& list) {
  std::vector<Record> images;
  std::istringstream lines(list);
  for (std::string line; std::getline(lines, line);) {
    try {
      images.push_back(world.gather->parse_qpimagelist_line(line));
    } catch (const std::runtime_error&) {
    }
  }
  return images;
}

// A bad line costs itself alone: the rest is stored as if it were not there.
void check_history(World& world, std::vector<Record>& images) {
  for (Record& image : images) world.single.gather->process_image_data(image, 0);
  require(world.whole.rows(kAllRows) == world.single.rows(kAllRows),
          "a file is the sum of its good lines");
}

void check_live(World& world, const std::vector<Record>& images,
                const std::vector<std::string>& job_runs) {
  require(world.whole.count("HIST_DATA") == 0, "live records wait for detection");
  require(job_runs.size() == (images.size() + 49) / 50, "jobs are asked for by fifties");
  std::size_t asked = 0;
  for (const std::string& command : job_runs) {
    require(command.starts_with("./admincmd/qpdbjobs  -jobid  ") && command.ends_with("  -json  "),
            "the jobs tool is run as it wants", command);
    require(command.find_first_not_of("0123456789-,", 29) == command.size() - 9,
            "its arguments are numbers", command);
    asked += 1 + static_cast<std::size_t>(std::count(command.begin(), command.end(), ','));
  }
  require(asked == images.size(), "each image's job is asked for");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static World world;
  if (size == 0) return 0;
  const bool live = (data[0] & 1) != 0;
  const auto parts = corvane::fuzz::parts_of(corvane::fuzz::text_of(data + 1, size - 1), 2);
  world.single.clear();
  world.whole.clear();
  auto images = images_of(world.single, parts[0]);

  std::vector<std::string> job_runs;
  corvane::fuzz::set_tool([&](const std::string& command) {
    if (command.starts_with("./admincmd/qpimagelist  ")) return parts[0];
    job_runs.push_back(command);
    return parts[1];
  });
  world.whole.gather->do_image_gather(100, 200, live ? 1 : 0);
  corvane::fuzz::set_tool(nullptr);

  require(std::filesystem::is_empty(world.scratch.path()), "scratch files are gone");
  require(corvane::fuzz::logged(2, "Total images captured = " + std::to_string(images.size())),
          "the images are counted");
  if (live) {
    check_live(world, images, job_runs);
  } else {
    require(job_runs.empty(), "history needs no jobs");
    check_history(world, images);
  }
  return 0;
}
