#include "config/service_values.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(SwitchValue, IsTheNumberThatTheTextBeginsWith) {
  EXPECT_EQ(switch_value("0", 1), 0);
  EXPECT_EQ(switch_value("1", 0), 1);
  EXPECT_EQ(switch_value("01", 0), 1);
  EXPECT_EQ(switch_value(" 1", 0), 1);
  EXPECT_EQ(switch_value("+1 x", 0), 1);
  EXPECT_EQ(switch_value("-1", 0), -1);
  EXPECT_EQ(switch_value("on", 1), 0);
  EXPECT_EQ(switch_value("4294967297", 0), 1);
}

TEST(SwitchValue, EmptyIsWhatTheCallerSays) {
  EXPECT_EQ(switch_value("", 0), 0);
  EXPECT_EQ(switch_value("", 1), 1);
  EXPECT_EQ(switch_value(" ", 1), 0);
}

TEST(GatherIntervalMinutes, IsAtLeast15) {
  EXPECT_EQ(gather_interval_minutes("16"), 16);
  EXPECT_EQ(gather_interval_minutes("15"), 15);
  EXPECT_EQ(gather_interval_minutes("14"), 15);
  EXPECT_EQ(gather_interval_minutes("-20"), 15);
  EXPECT_EQ(gather_interval_minutes(""), 15);
  EXPECT_EQ(gather_interval_minutes("an hour"), 15);
  EXPECT_EQ(gather_interval_minutes("60 minutes"), 60);
  EXPECT_EQ(gather_interval_minutes("4294967297"), 15);
}

}  // namespace
}  // namespace corvane
