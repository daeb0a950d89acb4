// Which archives of the deployment utility are used, and what they leave to be gathered.
#include "tests/unit/gather/archives.h"
#include "util/directory.h"

namespace corvane::test {
namespace {

using Ranges = std::vector<DataGather::TimeRange>;

LogLine progress(const std::string& text) { return {2, kProgram, text}; }

class Archives : public ArchivesTest {
 protected:
  std::vector<std::string> collect(int start, int end) {
    std::vector<std::string> dirs;
    covered_start = covered_end = 0;
    const int found =
        gather.collect_deployutil_directories(start, end, dirs, covered_start, covered_end);
    EXPECT_EQ(static_cast<std::size_t>(found), dirs.size());
    return sorted(dirs);
  }

  // The one archive whose options file has this content.
  bool used(const std::string& options, int start, int end) {
    world.archive("a", 0, 0);
    write_file(world.file("a", "gather_options.json"), options);
    return !collect(start, end).empty();
  }

  int covered_start = 0;
  int covered_end = 0;
};

TEST_F(Archives, LieInTheFolderIncrementalBesideTheDatabaseFolder) {
  EXPECT_EQ(gather.get_cvdeployutil_dir(), world.location + "/../incremental/");
  EXPECT_EQ(gather.deployutil_dir, gather.get_cvdeployutil_dir());
}

// --- The two-argument form ---

TEST_F(Archives, HostThatIsNotTheMasterReadsNoFolderAndKeepsTheWholeRange) {
  fake.host_name = "media01.example.com";
  world.archive("a", 1000, 2000, {1});
  EXPECT_EQ(gather.do_cvdeployutil_gather(500, 5000), (Ranges{{500, 5000}}));
  EXPECT_TRUE(fake.log.empty());
  EXPECT_EQ(world.rows("HIST_DATA"), "0");
}

TEST_F(Archives, CoveredSpanIsCutOutOfTheRange) {
  world.archive("a", 1000, 2000, {1});
  world.archive("b", 3000, 4000, {2});
  EXPECT_EQ(gather.do_cvdeployutil_gather(500, 5000), (Ranges{{500, 1000}, {4000, 5000}}));
  EXPECT_EQ(world.stored_jobs(), (std::vector<std::string>{"1", "2"}));
  EXPECT_EQ(fake.log.front(),
            progress("This is a Master server. Capturing data from cvdeployutil"));
  EXPECT_EQ(fake.log.back(), progress("cvdeployutil data captured from time 1000 to 4000"));
}

TEST_F(Archives, BothRestsAreReturnedEvenWhenTheyAreEmpty) {
  world.archive("a", 500, 5000);
  EXPECT_EQ(gather.do_cvdeployutil_gather(500, 5000), (Ranges{{500, 500}, {5000, 5000}}));
}

TEST_F(Archives, ReversedArchiveLeavesAReversedRest) {
  world.archive("a", 4000, 1000);
  EXPECT_EQ(gather.do_cvdeployutil_gather(500, 5000), (Ranges{{500, 4000}, {1000, 5000}}));
}

TEST_F(Archives, WithoutAMatchTheWholeRangeComesBack) {
  world.archive("a", 400, 2000, {1});
  EXPECT_EQ(gather.do_cvdeployutil_gather(500, 5000), (Ranges{{500, 5000}}));
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{
                progress("This is a Master server. Capturing data from cvdeployutil"),
                {2, "DataGather::do_cvdeployutil_gather", "Collecting cvdeployutil directories..."},
                progress("Checking in folder " + world.path("a")),
                progress("cvdeployutil data captured from time 0 to 0")}));
  EXPECT_EQ(world.rows("HIST_DATA"), "0");
}

TEST_F(Archives, ArchiveThatBeginsBeforeTheRangeIsNotUsed) {
  world.archive("a", 400, 2000, {1});
  world.archive("b", 3000, 4000, {2});
  EXPECT_EQ(gather.do_cvdeployutil_gather(500, 5000), (Ranges{{500, 3000}, {4000, 5000}}));
  EXPECT_EQ(world.stored_jobs(), std::vector<std::string>{"2"});
}

TEST_F(Archives, ArchiveWhoseMasterFileEndsInANewlineIsNotUsed) {
  world.archive("a", 1000, 2000, {1});
  write_file(world.file("a", "master.txt"), std::string(kMaster) + "\n");
  EXPECT_EQ(gather.do_cvdeployutil_gather(500, 5000), (Ranges{{500, 5000}}));
  EXPECT_TRUE(world.stored_jobs().empty());
}

TEST_F(Archives, SpanThatBeginsAtZeroCountsAsNone) {
  world.archive("a", 0, 2000, {1});
  EXPECT_EQ(gather.do_cvdeployutil_gather(0, 5000), (Ranges{{0, 5000}}));
  EXPECT_EQ(world.stored_jobs(), std::vector<std::string>{"1"});
  EXPECT_EQ(fake.log.back(), progress("cvdeployutil data captured from time 0 to 2000"));
}

// --- The archive root ---

TEST_F(Archives, MissingRootHasNoneAndLeavesTheListAlone) {
  std::filesystem::remove(world.scratch("incremental"));
  std::vector<std::string> dirs{"untouched"};
  EXPECT_EQ(gather.collect_deployutil_directories(1, 2, dirs, covered_start, covered_end), 0);
  EXPECT_EQ(dirs, std::vector<std::string>{"untouched"});
  EXPECT_TRUE(fake.log.empty());
  EXPECT_EQ(gather.do_cvdeployutil_gather(500, 5000), (Ranges{{500, 5000}}));
}

TEST_F(Archives, RootThatIsAFileHasNone) {
  std::filesystem::remove(world.scratch("incremental"));
  write_file(world.scratch("incremental"), "");
  EXPECT_TRUE(collect(500, 5000).empty());
}

TEST_F(Archives, RootMayBeALink) {
  world.archive("a", 1000, 2000);
  std::filesystem::rename(world.scratch("incremental"), world.scratch("elsewhere"));
  std::filesystem::create_directory_symlink(world.scratch("elsewhere"),
                                            world.scratch("incremental"));
  EXPECT_EQ(collect(500, 5000), std::vector<std::string>{world.path("a")});
}

TEST_F(Archives, LinkedFoldersAndFilesInTheRootAreNoArchives) {
  world.archive("a", 1000, 2000);
  std::filesystem::create_directory_symlink(world.scratch("incremental") + "/a",
                                            world.scratch("incremental") + "/link");
  write_file(world.scratch("incremental") + "/file", "");
  EXPECT_EQ(collect(500, 5000), std::vector<std::string>{world.path("a")});
}

TEST_F(Archives, CollectingReplacesTheList) {
  world.archive("a", 1000, 2000);
  std::vector<std::string> dirs{"earlier"};
  EXPECT_EQ(gather.collect_deployutil_directories(500, 5000, dirs, covered_start, covered_end), 1);
  EXPECT_EQ(dirs, std::vector<std::string>{world.path("a")});
}

// --- Whose archive it is ---

TEST_F(Archives, OnlyThoseOfTheOwnMasterAreUsedByteForByte) {
  const std::vector<std::string> masters{kMaster,
                                         std::string(kMaster) + "\n",
                                         "MASTER01.example.com",
                                         "master01",
                                         " master01.example.com",
                                         "",
                                         "other.example.com"};
  std::vector<std::string> names;
  for (std::size_t i = 0; i < masters.size(); ++i) {
    names.push_back(std::to_string(i));
    write_file(world.file(names.back(), "master.txt"), masters[i]);
  }
  EXPECT_EQ(gather.filter_cvutil_dirs_by_master(names), std::vector<std::string>{world.path("0")});
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(Archives, FolderWithoutMasterFileIsLoggedAndSkipped) {
  world.archive("a", 1000, 2000);
  std::filesystem::create_directory(world.scratch("incremental") + "/stray");
  EXPECT_EQ(gather.filter_cvutil_dirs_by_master({"stray", "a"}),
            std::vector<std::string>{world.path("a")});
  EXPECT_EQ(fake.log, (std::vector<LogLine>{progress("Not a cvdeployutil data directory")}));
}

// --- Which time it covers ---

TEST_F(Archives, WindowMustLieInsideTheRangeBoundsIncluded) {
  const std::string options = R"({"start": 1000, "end": 2000})";
  EXPECT_TRUE(used(options, 1000, 2000));
  EXPECT_TRUE(used(options, 999, 2001));
  EXPECT_FALSE(used(options, 1001, 2000));
  EXPECT_FALSE(used(options, 1000, 1999));
}

TEST_F(Archives, LastGoodLineOfTheOptionsWins) {
  EXPECT_TRUE(used("{\"start\": 1, \"end\": 9999}\n{\"start\": 1000, \"end\": \"2000x\"}\n{bad\n",
                   1000, 2000));
  EXPECT_EQ(covered_start, 1000);
  EXPECT_EQ(covered_end, 2000);
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{progress("Checking in folder " + world.path("a")),
                                  {16, kProgram, "Error while parsing line {bad."},
                                  progress("Issue parsing image. Continue with other images.")}));
}

TEST_F(Archives, OptionsThatSayNoEntityAreLoggedAndLeaveNoWindow) {
  EXPECT_FALSE(used("no entity was found\n", 1, 5000));
  EXPECT_EQ(fake.log, (std::vector<LogLine>{progress("Checking in folder " + world.path("a")),
                                            progress("No data received")}));
}

TEST_F(Archives, MissingMemberOfTheOptionsReadsAsZero) {
  EXPECT_FALSE(used(R"({"end": 2000})", 1, 5000));
  EXPECT_TRUE(used(R"({"end": 2000})", 0, 5000));
  EXPECT_TRUE(used(R"({"start": 1000})", -1, 0));
}

TEST_F(Archives, WithoutOptionsAnArchiveIsUsedOnlyForARangeFromZeroOrEarlier) {
  world.archive("a", 0, 0);
  std::filesystem::remove(world.file("a", "gather_options.json"));
  EXPECT_TRUE(collect(1, 5000).empty());
  EXPECT_EQ(collect(0, 5000).size(), 1U);
  EXPECT_EQ(collect(-5, 0).size(), 1U);
  EXPECT_TRUE(collect(-5, -1).empty());
}

TEST_F(Archives, CoveredSpanGrowsFromTheFirstUsedFolderOnInWhicheverOrder) {
  world.archive("a", 3000, 4000);
  world.archive("b", 1000, 2000);
  world.archive("c", 100, 9000);
  const std::vector<std::string> in_order{world.path("a"), world.path("b"), world.path("c")};
  const std::vector<std::string> used_ones{world.path("a"), world.path("b")};
  EXPECT_EQ(gather.filter_cvutil_dirs_by_timerange(in_order, 500, 5000, covered_start, covered_end),
            used_ones);
  EXPECT_EQ(covered_start, 1000);
  EXPECT_EQ(covered_end, 4000);
  EXPECT_EQ(fake.log, (std::vector<LogLine>{progress("Checking in folder " + world.path("a")),
                                            progress("Checking in folder " + world.path("b")),
                                            progress("Checking in folder " + world.path("c"))}));
}

TEST_F(Archives, CoveredSpanThatIsGivenIsWidened) {
  world.archive("a", 1000, 2000);
  covered_start = 1500;
  covered_end = 2500;
  gather.filter_cvutil_dirs_by_timerange({world.path("a")}, 500, 5000, covered_start, covered_end);
  EXPECT_EQ(covered_start, 1000);
  EXPECT_EQ(covered_end, 2500);
  world.archive("b", 2000, 3000);
  gather.filter_cvutil_dirs_by_timerange({world.path("b")}, 500, 5000, covered_start, covered_end);
  EXPECT_EQ(covered_start, 1000);
  EXPECT_EQ(covered_end, 3000);
}

TEST_F(Archives, FoldersKeepTheDirectorysOrder) {
  for (const char* name : {"q", "b", "z", "a", "m"}) world.archive(name, 1000, 2000);
  std::vector<std::string> expected;
  for (const std::string& name : Directory::GetDirectories(gather.deployutil_dir)) {
    expected.push_back(world.path(name));
  }
  std::vector<std::string> dirs;
  gather.collect_deployutil_directories(500, 5000, dirs, covered_start, covered_end);
  EXPECT_EQ(dirs, expected);
}

}  // namespace
}  // namespace corvane::test
