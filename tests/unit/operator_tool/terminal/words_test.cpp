#include "operator_tool/terminal/words.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "tests/support/in_child.h"

namespace corvane::ctl {
namespace {

TEST(Words, Spans) {
  EXPECT_EQ(span_text(-5), "0 s");
  EXPECT_EQ(span_text(119), "119 s");
  EXPECT_EQ(span_text(120), "2 min");
  EXPECT_EQ(span_text(3 * 3600 + 300), "3 h 5 min");
  EXPECT_EQ(span_text(2 * 86400), "2 d");
  EXPECT_EQ(span_text(12 * 86400 + 3 * 3600), "12 d 3 h");
}

TEST(Words, Sizes) {
  EXPECT_EQ(size_text(-1), "-");
  EXPECT_EQ(size_text(0), "0 KB");
  EXPECT_EQ(size_text(1023), "1,023 KB");
  EXPECT_EQ(size_text(1536), "1.5 MB");
  EXPECT_EQ(size_text(1024.0 * 1024 * 100), "100 GB");
}

TEST(Words, Times) {
  EXPECT_EQ(time_text(1700000000, true), "2023-11-14 22:13");
  EXPECT_EQ(moment_text(1700000000, true), "2023-11-14 22:13 UTC");
  EXPECT_EQ(time_text(0, true), "-");
  EXPECT_EQ(time_text(INT64_MAX, true), "-");
  EXPECT_EQ(moment_text(0, true), "-");
}

TEST(Words, LocalTimes) {
  EXPECT_EQ(test::in_child([] {
              setenv("TZ", "XYZ-3:30", 1);
              tzset();
              EXPECT_EQ(time_text(1700000000, false), "2023-11-15 01:43");
              EXPECT_EQ(moment_text(1700000000, false), "2023-11-15 01:43 XYZ");
              EXPECT_EQ(moment_text(1700000000, true), "2023-11-14 22:13 UTC");
              return 0;
            }),
            0);
}

}  // namespace
}  // namespace corvane::ctl
