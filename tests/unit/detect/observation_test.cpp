#include "companions/detect/observation.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/unit/detect/detect_world.h"

namespace corvane::detect {
namespace {

TEST(Observation, KeepsTheFigures) {
  Backup backup = daily(3);
  backup.figures = {123456, 7654321, 0, 3.25, 90};
  const Figures kept = Observation(backup).figures();
  EXPECT_EQ(kept.files, 123456);
  EXPECT_EQ(kept.size_kb, 7654321);
  EXPECT_EQ(kept.transferred_kb, 0);
  EXPECT_NEAR(kept.ratio, 3.25, 0.01);
  EXPECT_NEAR(kept.seconds, 90, 0.1);
  backup.figures = {-1, std::nan(""), -7, -1, -2};
  const Figures unknown = Observation(backup).figures();
  EXPECT_EQ(unknown.files, -1);
  EXPECT_EQ(unknown.size_kb, -1);
  EXPECT_EQ(unknown.transferred_kb, -1);
  EXPECT_EQ(unknown.ratio, -1);
  EXPECT_LE(sizeof(Observation), 24U);
}

}  // namespace
}  // namespace corvane::detect
