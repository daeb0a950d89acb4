#include "companions/alert/delivery/backoff.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace corvane::alert {
namespace {

TEST(Backoff, DoublesFromASecondToAQuarterOfAnHour) {
  const std::vector<std::int64_t> expected{1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 900, 900};
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(pause_after(static_cast<std::int64_t>(i) + 1, 0.5), expected[i]) << i + 1;
  }
  EXPECT_EQ(pause_after(1'000'000, 0.5), 900);
  EXPECT_EQ(pause_after(0, 0.5), 1);
}

TEST(Backoff, IsSpreadOverHalfToOneAndAHalf) {
  EXPECT_EQ(pause_after(5, 0), 8);
  EXPECT_EQ(pause_after(5, 0.25), 12);
  EXPECT_EQ(pause_after(5, 1), 24);
  EXPECT_EQ(pause_after(1, 0), 1) << "never less than a second";
  EXPECT_EQ(pause_after(10, 0), 256);
  EXPECT_EQ(pause_after(11, 0), 512);
  EXPECT_EQ(pause_after(12, 0), 512) << "no more doublings";
  EXPECT_EQ(pause_after(11, 1), 900);
}

TEST(Backoff, ChanceIsAnyNumberFrom0To1) {
  double low = 1;
  double high = 0;
  for (int i = 0; i < 1000; ++i) {
    const double one = chance();
    low = std::min(low, one);
    high = std::max(high, one);
  }
  EXPECT_GE(low, 0);
  EXPECT_LT(low, 0.1);
  EXPECT_GT(high, 0.9);
  EXPECT_LE(high, 1);
}

}  // namespace
}  // namespace corvane::alert
