#include "finding/words.h"

#include <gtest/gtest.h>

#include "finding/severity.h"

namespace corvane {
namespace {

TEST(Words, Numbers) {
  EXPECT_EQ(number_text(1234567.6), "1,234,568");
  EXPECT_EQ(number_text(1.5), "1.5");
  EXPECT_EQ(number_text(-0.001), "0");
  EXPECT_EQ(number_text(-1234), "-1,234");
  EXPECT_EQ(number_text(1e300), "1,000,000,000,000,000");
  EXPECT_EQ(counted(1, "client", "clients"), "1 client");
  EXPECT_EQ(counted(12'345, "client", "clients"), "12,345 clients");
}

TEST(Words, SizesAreOfUnitsOf1024) {
  EXPECT_EQ(size_text(-1), "-");
  EXPECT_EQ(size_text(0), "0 KB");
  EXPECT_EQ(size_text(1023), "1023 KB");
  EXPECT_EQ(size_text(1024), "1.0 MB");
  EXPECT_EQ(size_text(10 * 1024), "10 MB");
  EXPECT_EQ(size_text(1.2 * 1024 * 1024), "1.2 GB");
}

TEST(Words, Spans) {
  EXPECT_EQ(span_text(-5), "0 s");
  EXPECT_EQ(span_text(119), "119 s");
  EXPECT_EQ(span_text(120), "2 min");
  EXPECT_EQ(span_text(12'000), "3 h 20 min");
  EXPECT_EQ(span_text(7200), "2 h");
  EXPECT_EQ(span_text(1'047'600), "12 d 3 h");
}

TEST(Words, Moments) {
  EXPECT_EQ(utc_text(1'769'832'306), "2026-01-31 04:05 UTC");
  EXPECT_EQ(utc_text(0), "an unknown time");
  EXPECT_EQ(utc_text(std::int64_t{1} << 60), "an unknown time");
  EXPECT_EQ(formatted_time(-1, true, "%Y"), "");
}

TEST(SeverityTest, NumbersBeyondTheScaleAreAtItsEnd) {
  EXPECT_EQ(severity_of(-7), Severity::kWarning);
  EXPECT_EQ(severity_of(2), Severity::kMajor);
  EXPECT_EQ(severity_of(99), Severity::kCritical);
  EXPECT_STREQ(words_for(Severity::kCritical), "critical");
  EXPECT_STREQ(words_for(Severity::kMajor), "major");
  EXPECT_STREQ(words_for(Severity::kWarning), "warning");
}

}  // namespace
}  // namespace corvane
