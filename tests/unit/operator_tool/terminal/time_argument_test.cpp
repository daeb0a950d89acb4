#include "operator_tool/terminal/time_argument.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "tests/support/in_child.h"

namespace corvane::ctl {
namespace {

TEST(TimeArgument, IsADateWithOrWithoutATimeOfDay) {
  EXPECT_EQ(read_time("2023-11-14", true), 1699920000);
  EXPECT_EQ(read_time("2023-11-14 22:13", true), 1699999980);
  EXPECT_EQ(read_time("2023-11-14T22:13", true), 1699999980);
  EXPECT_EQ(read_time("2023-11-14 22:13:20", true), 1700000000);
  EXPECT_EQ(read_time("2023-11-14T22:13:20", true), 1700000000);
}

TEST(TimeArgument, MustExist) {
  for (const char* text : {"", "yesterday", "2023-11-14 ", "2023-11-14 22:13 UTC", "2023-02-29",
                           "2023-13-01", "2023-11-14 24:00", "2023-11-14 22:13:60"}) {
    EXPECT_EQ(read_time(text, true), std::nullopt) << text;
  }
}

TEST(TimeArgument, IsLocalUnlessItIsUtc) {
  EXPECT_EQ(test::in_child([] {
              setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
              tzset();
              EXPECT_EQ(read_time("2023-11-14 22:13", false), 1699996380);
              EXPECT_EQ(read_time("2023-07-14 22:13", false), 1689365580);
              EXPECT_EQ(read_time("2023-11-14 22:13", true), 1699999980);
              // Left out by summer time.
              EXPECT_EQ(read_time("2023-03-26 02:30", false), std::nullopt);
              EXPECT_EQ(read_time("2023-03-26 03:00", false), 1679792400);
              return 0;
            }),
            0);
}

}  // namespace
}  // namespace corvane::ctl
