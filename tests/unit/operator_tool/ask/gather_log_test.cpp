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

TEST(GatherLogText, KnowsNothingOfAnEmptyOne) {
  const GatherLog log = parse_gather_log("", 0);
  EXPECT_EQ(log.from, 0);
  EXPECT_EQ(log.gathers, 0);
  EXPECT_EQ(log.failed, 0);
  EXPECT_EQ(log.last_failed, 0);
  EXPECT_EQ(log.last_end, 0);
  EXPECT_EQ(log.last_seconds, -1);
}

TEST(GatherLogText, ReadsTimesToTheSecond) {
  const auto time_of = [](const std::string& time) {
    return parse_gather_log(time + " 4711 2 x", 0).from;
  };
  EXPECT_EQ(time_of("1970-01-02T00:00:00.000Z"), 86400);
  EXPECT_EQ(time_of("1970-01-01T01:02:03.999Z"), 3723);
  EXPECT_EQ(time_of("2023-11-14T22:13:20.5Z"), 1700000000);
  EXPECT_EQ(time_of("2024-02-29T00:00:00.000Z"), 1709164800);
  for (const char* none :
       {"2023-02-29T00:00:00.000Z", "2023-00-01T00:00:00.000Z", "2023-01-32T00:00:00.000Z",
        "2023/01-01T00:00:00.000Z", "2023-01/01T00:00:00.000Z", "2023-01-01 00:00:00.000Z",
        "2023-01-01T00.00:00.000Z", "2023-01-01T00:00.00.000Z", "2023-01-01T00:00",
        "2023-01-01T00:00:00.000", "x", ""}) {
    EXPECT_EQ(time_of(none), 0) << none;
  }
}

TEST(GatherLogText, ARecordHasAProcessALevelAndAText) {
  const auto is_record = [](const std::string& rest) {
    return parse_gather_log("2023-11-14T22:13:20.123Z " + rest, 0).from != 0;
  };
  EXPECT_TRUE(is_record("4711 2 x"));
  EXPECT_TRUE(is_record("4711d 2 x"));
  for (const char* none :
       {"x 2 x", "4711x 2 x", "4711d2 x", "4711", "4711d x x", "4711 2", "4711 2x"}) {
    EXPECT_FALSE(is_record(none)) << none;
  }
}

TEST(GatherLogText, OnlyErrorsInsideAGatherCount) {
  const auto failed = [](const std::string& text) { return parse_gather_log(text, 0).failed; };
  EXPECT_EQ(failed(gather("10:00:00", "10:00:07", record("10:00:01", 15, "x"))), 0);
  EXPECT_EQ(failed(gather("10:00:00", "10:00:07", record("10:00:01", 16, "x"))), 1);
  EXPECT_EQ(failed(gather("10:00:00", "10:00:07", record("10:00:01", 32, "x"))), 1);
  EXPECT_EQ(failed(record("09:00:00", 16, "x") + gather("10:00:00", "10:00:07")), 0);
  EXPECT_EQ(failed(gather("10:00:00", "10:00:07") + record("10:01:00", 16, "x") +
                   record("10:02:00", 2, "cvanomalymgmt: Total time taken for live gather 7.")),
            0);
  // An end without a begin.
  EXPECT_EQ(failed(record("10:00:00", 2, "cvanomalymgmt: Total time taken for live gather 7.")), 0);
  EXPECT_EQ(failed(record("09:00:00", 16, "x") +
                   record("10:00:00", 2, "cvanomalymgmt: Total time taken for live gather 7.")),
            0);
  // A gather that did not end, and one after it.
  EXPECT_EQ(failed(record("09:00:00", 2, "cvanomalymgmt: Capturing data between 1 & 2 ") +
                   record("09:00:01", 16, "x") + gather("10:00:00", "10:00:07")),
            0);
  // The error of one is not that of the next.
  EXPECT_EQ(failed(gather("10:00:00", "10:00:07", record("10:00:01", 16, "x")) +
                   record("11:00:00", 2, "cvanomalymgmt: Total time taken for live gather 7.")),
            1);
}

TEST(GatherLogText, AnEndWithoutSecondsHasNoDuration) {
  const GatherLog log = parse_gather_log(
      gather("10:00:00", "10:00:07") +
          record("10:15:00", 2, "cvanomalymgmt: Total time taken for live gather ?"),
      0);
  EXPECT_EQ(log.gathers, 2);
  EXPECT_EQ(log.last_end, kTen + 15 * 60);
  EXPECT_EQ(log.last_seconds, -1);
}

TEST(GatherLogText, CountsFromTheMomentItself) {
  const std::string text =
      gather("10:00:00", "10:00:07", record("10:00:01", 16, "x")) + "no line end";
  EXPECT_EQ(parse_gather_log(text, kTen + 7).gathers, 1);
  EXPECT_EQ(parse_gather_log(text, kTen + 7).failed, 1);
  const GatherLog later = parse_gather_log(text, kTen + 8);
  EXPECT_EQ(later.gathers, 0);
  EXPECT_EQ(later.failed, 0);
  EXPECT_EQ(later.last_failed, 0);
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
  const std::string begin = record("10:00:00", 2, "cvanomalymgmt: Capturing data between 1 & 2 ");
  const std::string end =
      "\n" + record("10:00:07", 2, "cvanomalymgmt: Total time taken for live gather 7.");
  const auto from = [&](std::size_t size) {
    test::write_file(directory("log"),
                     begin + std::string(size - begin.size() - end.size(), 'x') + end);
    const GatherLog log = read_gather_log(directory("log"), 0);
    EXPECT_EQ(log.gathers, 1);
    return log.from;
  };
  EXPECT_EQ(from(4 << 20), kTen);
  EXPECT_EQ(from((4 << 20) + 1), kTen + 7);  // the first line is not whole
}

TEST(GatherLogFile, IsReadSinceAMoment) {
  const test::ScratchDir directory;
  test::write_file(directory("log"), gather("10:00:00", "10:00:07"));
  EXPECT_EQ(read_gather_log(directory("log"), kTen + 7).gathers, 1);
  EXPECT_EQ(read_gather_log(directory("log"), kTen + 8).gathers, 0);
}

TEST(GatherLogFile, NoneSaysNothing) {
  const test::ScratchDir directory;
  test::write_file(directory("empty"), "");
  for (const std::string& path :
       {std::string("/nonexistent/log"), directory("empty"), directory()}) {
    EXPECT_EQ(read_gather_log(path, 0).from, 0) << path;
  }
}

}  // namespace
}  // namespace corvane::ctl
