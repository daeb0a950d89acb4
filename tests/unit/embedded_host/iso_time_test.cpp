#include "embedded_host/iso_time.h"

#include <gtest/gtest.h>

using corvane::host::iso_time;
using corvane::host::parse_iso_time;

TEST(IsoTime, WritesWholeSeconds) {
  EXPECT_EQ(iso_time(0), "1970-01-01T00:00:00.000Z");
  EXPECT_EQ(iso_time(1682936430), "2023-05-01T10:20:30.000Z");
  EXPECT_EQ(iso_time(-1), "1969-12-31T23:59:59.000Z");
  EXPECT_EQ(iso_time(2147483647), "2038-01-19T03:14:07.000Z");
}

TEST(IsoTime, WritesEarlyYearsWithFourDigits) {
  EXPECT_EQ(iso_time(-62167219200), "0000-01-01T00:00:00.000Z");
  EXPECT_EQ(iso_time(-59011459200), "0100-01-01T00:00:00.000Z");
  EXPECT_EQ(iso_time(-30610224001), "0999-12-31T23:59:59.000Z");
}

TEST(IsoTime, ReadsWhatItWrites) {
  for (const std::int64_t seconds :
       {0LL, -1LL, -62167219200LL, 951782400LL, 1682936430LL, 4102444799LL}) {
    const auto read = parse_iso_time(iso_time(seconds));
    ASSERT_TRUE(read) << iso_time(seconds);
    EXPECT_EQ(read->seconds, seconds);
    EXPECT_EQ(read->milliseconds, 0);
  }
}

TEST(IsoTime, ReadsFractions) {
  EXPECT_EQ(parse_iso_time("1970-01-01T00:00:01Z")->seconds, 1);
  EXPECT_EQ(parse_iso_time("1970-01-01T00:00:01.5Z")->milliseconds, 500);
  EXPECT_EQ(parse_iso_time("1970-01-01T00:00:01.05Z")->milliseconds, 50);
  EXPECT_EQ(parse_iso_time("1970-01-01T00:00:01.007Z")->milliseconds, 7);
}

TEST(IsoTime, RefusesEverythingElse) {
  for (const char* text : {"",
                           "2026",
                           "2026-01-31",
                           "2026-01-31T04:05:06",
                           "2026-01-31T04:05:06.000",
                           "Z",
                           "2026-02-29T00:00:00Z",
                           "2026-13-01T00:00:00Z",
                           "2026-00-01T00:00:00Z",
                           "2026-01-00T00:00:00Z",
                           "2026-01-31T24:00:00Z",
                           "2026-01-31T23:60:00Z",
                           "2026-01-31T23:59:60Z",
                           "2026-01-31T04:05:06.Z",
                           "2026-01-31T04:05:06.1234Z",
                           "2026-01-31T04:05:06.000Z ",
                           " 2026-01-31T04:05:06Z",
                           "2026-01-31 04:05:06Z",
                           "+026-01-31T04:05:06Z",
                           "2026-1-31T04:05:06Z",
                           "-01-31T04:05:06Z",
                           "2026--31T04:05:06Z",
                           "2026-01-T04:05:06Z",
                           "2026-01-31T:05:06Z",
                           "2026-01-31T04::06Z",
                           "2026-01-31T04:05:Z",
                           "202601-31T04:05:06Z",
                           "2026-0131T04:05:06Z",
                           "2026-01-3104:05:06Z",
                           "2026-01-31T0405:06Z",
                           "2026-01-31T04:0506Z",
                           "2026-01-31T04:05:06.-10Z"}) {
    EXPECT_FALSE(parse_iso_time(text)) << text;
  }
}
