#include "operator_tool/ask/gather_log.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace corvane::ctl
