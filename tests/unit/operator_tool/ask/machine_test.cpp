#include "operator_tool/ask/machine.h"

#include <gtest/gtest.h>
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

TEST(Machine, OwnProcessBeganNotLongAgo) {
  const std::int64_t since = started_at(getpid());
  EXPECT_GT(since, time(nullptr) - 3600);
  EXPECT_LE(since, time(nullptr) + 1);
}

TEST(Machine, DiskOfAFileThatIsNotThereYet) {
  const test::ScratchDir directory;
  const DiskSpace disk = disk_space(directory("none.db"));
  EXPECT_GT(disk.total, 0);
  EXPECT_LE(disk.percent_free(), 100);
  EXPECT_EQ(disk_space("/nonexistent/x").total, 0);
}

}  // namespace
}  // namespace corvane::ctl
