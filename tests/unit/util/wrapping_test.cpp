#include "util/wrapping.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

constexpr int kMax = std::numeric_limits<int>::max();
constexpr int kMin = std::numeric_limits<int>::min();

TEST(WrappingTest, OrdinaryNumbers) {
  EXPECT_EQ(corvane::wrapping_add(2, 3), 5);
  EXPECT_EQ(corvane::wrapping_subtract(2, 3), -1);
  EXPECT_EQ(corvane::wrapping_multiply(-4, 3), -12);
}

TEST(WrappingTest, RoundTheEnds) {
  EXPECT_EQ(corvane::wrapping_add(kMax, 1), kMin);
  EXPECT_EQ(corvane::wrapping_subtract(kMin, 1), kMax);
  EXPECT_EQ(corvane::wrapping_multiply(2'592'000, 1000), -1'702'967'296);
  EXPECT_EQ(corvane::wrapping_multiply(kMin, -1), kMin);
}

}  // namespace
