#include "companions/alert/delivery/backoff.h"

#include <gtest/gtest.h>

namespace corvane::alert {
namespace {

TEST(Backoff, GrowsFromASecondToAQuarterOfAnHourWithJitter) {
  EXPECT_EQ(pause_after(1, 0.5), 1);
  EXPECT_EQ(pause_after(2, 0.5), 2);
  EXPECT_EQ(pause_after(5, 0.5), 16);
  EXPECT_EQ(pause_after(5, 0), 8);
  EXPECT_EQ(pause_after(5, 0.999), 24);
  EXPECT_EQ(pause_after(11, 0.5), 900);
  EXPECT_EQ(pause_after(1000000, 0.999), 900);
  EXPECT_EQ(pause_after(1, 0), 1);
  const double one = chance();
  bool varies = false;
  for (int i = 0; i < 100; ++i) varies = varies || chance() != one;
  EXPECT_TRUE(varies);
}

}  // namespace
}  // namespace corvane::alert
