#include "operator_tool/ask/machine.h"

#include <gtest/gtest.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <ctime>

#include "tests/support/scratch_dir.h"

namespace corvane::ctl {
namespace {

TEST(Machine, AProcessBeganSomeTicksAfterTheMachine) {
  const test::ScratchDir proc;
  test::write_file(proc.path() / "stat", "cpu 1 2\nbtime 1000000\nprocesses 5\n");
  test::write_file(proc.path() / "77/stat",
                   "77 (a) name) S 1 77 77 0 -1 4194560 1 2 3 4 5 6 7 8 20 0 1 0 " +
                       std::to_string(sysconf(_SC_CLK_TCK) * 60) + " 9 9\n");
  EXPECT_EQ(started_at(77, proc()), 1000060);
  EXPECT_EQ(started_at(78, proc()), 0);
}

TEST(Machine, AProcessWhoseFilesSayTooLittleIsNone) {
  const test::ScratchDir proc;
  const auto began = [&](const std::string& of_process, const std::string& of_machine) {
    test::write_file(proc.path() / "stat", of_machine);
    test::write_file(proc.path() / "77/stat", of_process);
    return started_at(77, proc());
  };
  const std::string fields = "77 (a) S 1 77 77 0 -1 4194560 1 2 3 4 5 6 7 8 20 0 1 0 ";
  const std::string ticks = std::to_string(sysconf(_SC_CLK_TCK) * 3);
  EXPECT_EQ(began(fields + ticks + " 99999 9", "btime 50\n"), 53);
  EXPECT_EQ(began(fields + ticks, "btime 50"), 53);  // the last field that is needed
  EXPECT_EQ(began(fields + "x", "btime 50\n"), 0);
  EXPECT_EQ(began("77 a S 1", "btime 50\n"), 0);
  EXPECT_EQ(began("", "btime 50\n"), 0);
  EXPECT_EQ(began(fields + ticks, "cpu 1 2\n"), 0);
  EXPECT_EQ(began(fields + ticks, "cpu 1 2\nbtime x\n"), 0);
  EXPECT_EQ(began(fields + ticks, ""), 0);
}

TEST(Machine, SharesOfADisk) {
  EXPECT_EQ((DiskSpace{200, 50}.percent_free()), 25);
  EXPECT_EQ((DiskSpace{1, 0}.percent_free()), 0);
  EXPECT_EQ((DiskSpace{0, 0}.percent_free()), 100);  // unknown is no problem
}

TEST(Machine, FilesHaveBytes) {
  const test::ScratchDir directory;
  test::write_file(directory("file"), "12345");
  EXPECT_EQ(file_bytes(directory("file")), 5);
  EXPECT_EQ(file_bytes(directory("none")), 0);
}

TEST(Machine, OwnProcessBeganNotLongAgo) {
  const std::int64_t since = started_at(getpid());
  EXPECT_GT(since, time(nullptr) - 3600);
  EXPECT_LE(since, time(nullptr) + 1);
}

TEST(Machine, DiskOfAFileThatIsNotThereYet) {
  const test::ScratchDir directory;
  const DiskSpace disk = disk_space(directory("none.db"));
  struct statvfs known {};
  ASSERT_EQ(statvfs(directory().c_str(), &known), 0);
  EXPECT_EQ(disk.total, static_cast<std::int64_t>(known.f_blocks * known.f_frsize));
  EXPECT_NEAR(static_cast<double>(disk.available),
              static_cast<double>(known.f_bavail * known.f_frsize), 1 << 30);  // others write too
  EXPECT_EQ(disk_space("/nonexistent/x").total, 0);
  EXPECT_EQ(disk_space("/nonexistent/x").available, 0);
  EXPECT_GT(disk_space("none.db").total, 0);  // in the current directory
}

}  // namespace
}  // namespace corvane::ctl
