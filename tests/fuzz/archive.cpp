// An archive of the deployment utility. The input, separated by NULs: its master, its options, its
// image list.
#include "service/signals.h"
#include "tests/fuzz/gather_world.h"
#include "tests/support/scratch_dir.h"

using corvane::fuzz::GatherWorld;
using corvane::fuzz::require;
using corvane::test::write_file;

namespace {

constexpr int kStart = 1000;
constexpr int kEnd = 2'000'000'000;
constexpr char kAllRows[] = "SELECT * FROM HIST_DATA ORDER BY UNIQUE_KEY";

struct World {
  World() {
    std::filesystem::create_directories(folder);
    std::filesystem::create_directory(location);
  }

  corvane::test::ScratchDir scratch;
  std::string folder = scratch("incremental/archive");
  std::string location = scratch("db");
  GatherWorld gathered{corvane::fuzz::kMaster, location};
  GatherWorld read{corvane::fuzz::kMaster};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static World world;
  world.read.clear();
  world.gathered.clear();
  const auto parts = corvane::fuzz::parts_of(corvane::fuzz::text_of(data, size), 3);
  write_file(world.folder + "/master.txt", parts[0]);
  write_file(world.folder + "/gather_options.json", parts[1]);
  write_file(world.folder + "/qpimagelist.out", parts[2]);

  int covered_start = 0;
  int covered_end = 0;
  world.gathered.gather->do_cvdeployutil_gather(kStart, kEnd, covered_start, covered_end);

  const bool is_ours = parts[0] == corvane::fuzz::kMaster;
  const bool is_inside = is_ours && covered_start != 0;
  if (!is_inside) {
    require(covered_start == 0 && covered_end == 0, "another's archive covers nothing");
    require(world.gathered.count("HIST_DATA") == 0, "another's archive is not loaded");
    return 0;
  }
  // An end before the start covers nothing in between, but the archive is loaded.
  require(covered_start >= kStart && covered_end <= kEnd, "an archive inside the range is covered");
  world.read.gather->parse_qpimagelist_input(world.folder + "/qpimagelist.out", 0);
  require(world.gathered.rows(kAllRows) == world.read.rows(kAllRows),
          "an archive is loaded as its image list is");
  return 0;
}
