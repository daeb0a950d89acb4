// The archives of the deployment utility, one loaded after the other.
#include <new>

#include "anomaly_database/backup_row.h"
#include "tests/unit/faults/attempt.h"
#include "tests/unit/faults/outcome.h"

namespace corvane::test {
namespace {

constexpr int kStart = 500;
constexpr int kEnd = 5000;
constexpr char kTag[] = "DataGather::do_cvdeployutil_gather";

struct Archive {
  std::string name;
  int start;
  int end;
};
const std::vector<Archive> kArchives{{"a", 1000, 2000}, {"b", 3000, 4000}};

// The backup time of an archive's images.
int time_of(const Archive& archive) { return archive.start + 500; }

auto is_of(const Archive& archive) {
  return [time = "|" + std::to_string(time_of(archive)) + "|"](const std::string& row) {
    return row.find(time) != std::string::npos;
  };
}

// Its images are in a range that is still to be gathered.
bool is_left(const std::vector<DataGather::TimeRange>& ranges, const Archive& archive) {
  return std::any_of(ranges.begin(), ranges.end(), [&](const DataGather::TimeRange& range) {
    return range.first <= time_of(archive) && time_of(archive) <= range.second;
  });
}

void take_away(Outcome& outcome, const Archive& archive) {
  std::erase_if(outcome.rows, is_of(archive));
}

class ArchiveLoading : public FaultTest {
 protected:
  // Few allocations, or else more rows than SQLite has memory for and more text than a buffer.
  const int images = GetParam().kind == Fault::kAllocation ? 2 : 16;

  std::string line(const Archive& archive, int i) const {
    return R"({"backupid": ")" + archive.name + "_" + std::to_string(i) + R"(", "backup_time": )" +
           std::to_string(time_of(archive)) + R"(, "job_id": )" + std::to_string(i) +
           R"(, "policy_name": ")" + std::string(200, 'p') + "\"}" + std::string(400, ' ') + "\n";
  }

  static std::string image_file(const ServiceWorld& world, const Archive& archive) {
    return folder(world, archive) + "/qpimagelist.out";
  }

  static LogLine rolled_back(const ServiceWorld& world, const Archive& archive) {
    return {2, kTag, "Error occurred while reading image data from " + image_file(world, archive)};
  }

  static std::string folder(const ServiceWorld& world, const Archive& archive) {
    return world.location + "/../incremental/" + archive.name;
  }

  void make_archives(const ServiceWorld& world) const {
    for (const Archive& archive : kArchives) {
      std::string text;
      for (int i = 0; i < images; ++i) text += line(archive, i);
      const std::string path = folder(world, archive);
      write_file(path + "/master.txt", kMaster);
      write_file(path + "/gather_options.json", R"({"start": )" + std::to_string(archive.start) +
                                                    R"(, "end": )" + std::to_string(archive.end) +
                                                    "}\n");
      write_file(image_file(world, archive), text);
    }
  }

  std::vector<Stated> stated_lines(const ServiceWorld& world) const {
    std::vector<Stated> stated{{{16, kTag, "ROLLBACK TRANSACTION execution failed."}},
                               {progress("Issue parsing image. Continue with other images."), 1},
                               {progress("Failed to parse. Details: std::bad_alloc"), 1},
                               // The file could not be opened.
                               {progress("Total images captured = 0"), images}};
    for (const Archive& archive : kArchives) {
      stated.push_back({rolled_back(world, archive), images});
      stated.push_back({error("Could not read all of " + image_file(world, archive)), images});
    }
    append(stated,
           with_reasons("Error inserting data in IMAGE_DATA ", {corvane::kInsertHistData}, 1));
    return stated;
  }

  int attempt(const FaultPoint& point) const {
    SmallWorld world;
    make_archives(world);
    std::vector<DataGather::TimeRange> left;
    bool ended = false;
    const auto load = [&] {
      try {
        left = world.gather->do_cvdeployutil_gather(kStart, kEnd);
      } catch (const std::bad_alloc&) {
        ended = true;
      }
    };
    const int failed = failed_calls_of(load, point);
    const Outcome outcome = outcome_of(world);
    EXPECT_EQ(world.gather->do_cvdeployutil_gather(kStart, kEnd),
              (std::vector<DataGather::TimeRange>{{kStart, 1000}, {4000, kEnd}}));
    Outcome undisturbed = outcome_of(world);
    EXPECT_EQ(undisturbed.rows.size(), kArchives.size() * static_cast<std::size_t>(images))
        << "loading again does not make up for it";
    if (ended) {  // and with it the service, whose next start begins the history again
      EXPECT_EQ(point.kind, Fault::kAllocation);
      return failed;
    }
    undisturbed.log.clear();
    for (const Archive& archive : kArchives) {
      if (is_left(left, archive)) take_away(undisturbed, archive);
      if (has_logged(outcome, rolled_back(world, archive))) {
        EXPECT_TRUE(std::none_of(outcome.rows.begin(), outcome.rows.end(), is_of(archive)))
            << "an archive that was rolled back has left a row";
      }
    }
    expect_stated(outcome, undisturbed, stated_lines(world));
    return failed;
  }
};

TEST_P(ArchiveLoading, LosesWhatIsLoggedOrLeftToTheSlicesAndNoMore) {
  try_every_point([this](const FaultPoint& point) { return attempt(point); });
}

INSTANTIATE_TEST_SUITE_P(
    Every, ArchiveLoading,
    ::testing::ValuesIn(once_and_from_then_on({Fault::kAllocation, Fault::kStatement, Fault::kOpen,
                                               Fault::kRead, Fault::kWrite, Fault::kSync})),
    kind_name);

}  // namespace
}  // namespace corvane::test
