#include "finding/words.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>

namespace corvane {
namespace {

TEST(Words, NumbersHaveUpToTwoDecimalsBelowAHundred) {
  EXPECT_EQ(number_text(0), "0");
  EXPECT_EQ(number_text(1.5), "1.5");
  EXPECT_EQ(number_text(10), "10");
  EXPECT_EQ(number_text(3.846), "3.85");
  EXPECT_EQ(number_text(99.994), "99.99");
  EXPECT_EQ(number_text(99.996), "100");
  EXPECT_EQ(number_text(100.4), "100");
  EXPECT_EQ(number_text(-0.001), "0");
  EXPECT_EQ(number_text(-99.5), "-99.5");
}

TEST(Words, NumbersHaveCommasBetweenThousands) {
  EXPECT_EQ(number_text(999), "999");
  EXPECT_EQ(number_text(1000), "1,000");
  EXPECT_EQ(number_text(-1234), "-1,234");
  EXPECT_EQ(number_text(123456), "123,456");
  EXPECT_EQ(number_text(1234567.6), "1,234,568");
  EXPECT_EQ(number_text(1e300), "1,000,000,000,000,000");
  EXPECT_EQ(number_text(-1e300), "-1,000,000,000,000,000");
}

TEST(Words, CountedIsSingularForOne) {
  EXPECT_EQ(counted(0, "client", "clients"), "0 clients");
  EXPECT_EQ(counted(1, "client", "clients"), "1 client");
  EXPECT_EQ(counted(2, "client", "clients"), "2 clients");
  EXPECT_EQ(counted(12'345, "client", "clients"), "12,345 clients");
}

TEST(Words, SizesAreOfUnitsOf1024) {
  EXPECT_EQ(size_text(-1), "-");
  EXPECT_EQ(size_text(0), "0 KB");
  EXPECT_EQ(size_text(9.4), "9 KB");
  EXPECT_EQ(size_text(1023), "1,023 KB");
  EXPECT_EQ(size_text(1024), "1.0 MB");
  EXPECT_EQ(size_text(9.9 * 1024), "9.9 MB");
  EXPECT_EQ(size_text(10 * 1024), "10 MB");
  EXPECT_EQ(size_text(1.2 * 1024 * 1024), "1.2 GB");
  EXPECT_EQ(size_text(std::exp2(30)), "1.0 TB");
  EXPECT_EQ(size_text(std::exp2(40)), "1.0 PB");
  EXPECT_EQ(size_text(std::exp2(50)), "1.0 EB");
  EXPECT_EQ(size_text(std::exp2(60)), "1,024 EB");
}

TEST(Words, Spans) {
  EXPECT_EQ(span_text(-5), "0 s");
  EXPECT_EQ(span_text(0), "0 s");
  EXPECT_EQ(span_text(1), "1 s");
  EXPECT_EQ(span_text(119), "119 s");
  EXPECT_EQ(span_text(120), "2 min");
  EXPECT_EQ(span_text(7'199), "119 min");
  EXPECT_EQ(span_text(7'200), "2 h");
  EXPECT_EQ(span_text(7'260), "2 h 1 min");
  EXPECT_EQ(span_text(12'000), "3 h 20 min");
  EXPECT_EQ(span_text(172'799), "47 h 59 min");
  EXPECT_EQ(span_text(172'800), "2 d");
  EXPECT_EQ(span_text(1'047'600), "12 d 3 h");
}

TEST(Words, Moments) {
  constexpr std::int64_t kLast = 253'402'300'799;
  EXPECT_EQ(utc_text(1'769'832'306), "2026-01-31 04:05 UTC");
  EXPECT_EQ(utc_text(1), "1970-01-01 00:00 UTC");
  EXPECT_EQ(utc_text(kLast), "9999-12-31 23:59 UTC");
  for (const std::int64_t none :
       {std::int64_t{0}, std::int64_t{-5}, kLast + 1, std::numeric_limits<std::int64_t>::max()}) {
    EXPECT_EQ(utc_text(none), "an unknown time") << none;
    EXPECT_EQ(formatted_time(none, true, "%Y"), "") << none;
  }
}

TEST(Words, MomentsInTheLocalZone) {
  setenv("TZ", "XXX-2", 1);
  tzset();
  EXPECT_EQ(formatted_time(1'769'832'306, false, "%H:%M"), "06:05");
  EXPECT_EQ(formatted_time(1'769'832'306, true, "%H:%M"), "04:05");
  setenv("TZ", "UTC", 1);
  tzset();
}

}  // namespace
}  // namespace corvane
