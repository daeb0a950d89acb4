#include "operator_tool/gather_log.h"

#include <gtest/gtest.h>

#include "operator_tool/machine.h"
#include "tests/support/scratch_dir.h"

namespace corvane::ctl {
namespace {

constexpr std::int64_t kTen = 1767261600;  // 2026-01-01 10:00:00 UTC

std::string record(const std::string& time, int level, const std::string& text) {
  return "2026-01-01T" + time + ".123Z 4711d " + std::to_string(level) + " " + text + "\n";
}
std::string gather(const std::string& begin, const std::string& end,
                   const std::string& inside = "") {
  return record(begin, 2, "cvanomalymgmt: Capturing data between 1 & 2 ") + inside +
         record(end, 2, "cvanomalymgmt: Total time taken for live gather 7.");
}

TEST(GatherLogText, CountsGathersAndThoseWithErrors) {
  const GatherLog log = parse_gather_log(
      gather("10:00:00", "10:00:07") +
          gather("10:15:00", "10:15:07", record("10:15:03", 16, "CurlClient::x: \n\tno answer")) +
          record("10:20:00", 16, "cvanomalymgmt: process is stopped") +
          gather("10:30:00", "10:30:07", record("10:30:02", 8, "cvanomalymgmt: odd")),
      kTen);
  EXPECT_EQ(log.from, kTen);
  EXPECT_EQ(log.gathers, 3);
  EXPECT_EQ(log.failed, 1);
  EXPECT_EQ(log.last_failed, kTen + 15 * 60 + 7);
  EXPECT_EQ(log.last_end, kTen + 30 * 60 + 7);
  EXPECT_EQ(log.last_seconds, 7);
}

TEST(GatherLogText, WhatWasBeforeDoesNotCountButIsTheLast) {
  const GatherLog log = parse_gather_log(gather("10:00:00", "10:00:07"), kTen + 3600);
  EXPECT_EQ(log.gathers, 0);
  EXPECT_EQ(log.last_end, kTen + 7);
}

TEST(GatherLogText, ForgedAndBrokenLinesSayNothing) {
  const GatherLog log = parse_gather_log(
      "or live gather 3.\n"
      "\t2026-01-01T10:00:00.123Z 4711d 2 cvanomalymgmt: Total time taken for live gather 3.\n"
      "2026-13-01T10:00:00.123Z 1 2 cvanomalymgmt: Total time taken for live gather 3.\n"
      "2026-01-01T10:00:00.123Z x 2 cvanomalymgmt: Total time taken for live gather 3.\n"
      "2026-01-01T10:00:00.123Z 1 2 other: Total time taken for live gather 3.\n\n",
      0);
  EXPECT_EQ(log.gathers, 0);
  EXPECT_EQ(log.last_seconds, -1);
}

TEST(GatherLogFile, OnlyTheEndOfALargeOneIsRead) {
  const test::ScratchDir directory;
  std::string text = gather("01:00:00", "01:00:07");
  text.append(5 << 20, 'x');
  text += "\n" + gather("10:00:00", "10:00:07");
  test::write_file(directory("log"), text);
  const GatherLog log = read_gather_log(directory("log"), 0);
  EXPECT_EQ(log.gathers, 1);
  EXPECT_EQ(log.from, kTen);
}

TEST(GatherLogFile, NoneSaysNothing) { EXPECT_EQ(read_gather_log("/nonexistent/log", 0).from, 0); }

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
