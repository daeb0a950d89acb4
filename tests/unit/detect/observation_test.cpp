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

Figures kept(const Figures& figures) { return observed(1, figures).figures(); }

TEST(Observation, CountsThousandBillionsAtMost) {
  const Figures most = kept({1e15, 2e15, INFINITY, 1, 1});
  EXPECT_FLOAT_EQ(static_cast<float>(most.files), 1e15F);
  EXPECT_EQ(most.size_kb, most.files);
  EXPECT_EQ(most.transferred_kb, most.files);
  const Figures none = kept({0, -0.5, std::nan(""), 0, 0});
  EXPECT_EQ(none.files, 0);
  EXPECT_EQ(none.size_kb, -1);
  EXPECT_EQ(none.transferred_kb, -1);
  EXPECT_EQ(none.ratio, 0);
  EXPECT_EQ(none.seconds, 0);
}

// To 1/1024 of an octave, from 2^-20 to beyond any ratio and duration.
TEST(Observation, PacksRatioAndDuration) {
  for (const double number : {1e-5, 0.01, 1.0, 2.0, 3.0, 17.5, 86400.0, 1e12}) {
    const Figures figures = kept({1, 1, 1, number, number});
    EXPECT_EQ(figures.ratio, figures.seconds);
    EXPECT_LE(figures.ratio, (number + std::exp2(-20)) * (1 + 1e-9));
    EXPECT_GE(figures.ratio, number * 0.9993);
  }
  EXPECT_EQ(kept({1, 1, 1, 1, 4}).ratio, 1);
  EXPECT_EQ(kept({1, 1, 1, 1, 4}).seconds, 4);
  EXPECT_DOUBLE_EQ(kept({1, 1, 1, std::exp2(-20), 1}).ratio, std::exp2(-19));
  EXPECT_EQ(kept({1, 1, 1, 1e-12, 1}).ratio, 0);
  const double most = std::exp2(65534 / 1024.0 - 20);
  EXPECT_DOUBLE_EQ(kept({1, 1, 1, 1e300, INFINITY}).ratio, most);
  EXPECT_DOUBLE_EQ(kept({1, 1, 1, 1e300, INFINITY}).seconds, most);
  EXPECT_EQ(kept({1, 1, 1, std::nan(""), -1e-9}).ratio, -1);
  EXPECT_EQ(kept({1, 1, 1, std::nan(""), -1e-9}).seconds, -1);
  EXPECT_EQ(Observation().figures().ratio, -1);
  EXPECT_EQ(Observation().figures().files, -1);
  EXPECT_EQ(Observation().figures().size_kb, -1);
  EXPECT_EQ(Observation().figures().transferred_kb, -1);
}

TEST(Observation, IsKnownByTimeAndKey) {
  Backup backup = daily(1);
  const Observation first(backup);
  EXPECT_EQ(first.time(), backup.time);
  backup.figures = {};
  EXPECT_TRUE(first.is_same_row(Observation(backup)));
  EXPECT_FALSE(first < Observation(backup));
  backup.time += 1;
  EXPECT_FALSE(first.is_same_row(Observation(backup)));
  EXPECT_TRUE(first < Observation(backup));
  EXPECT_FALSE(Observation(backup) < first);
  backup.time -= 1;
  backup.unique_key += "x";
  const Observation other(backup);
  EXPECT_FALSE(first.is_same_row(other));
  EXPECT_EQ(first < other, first.key_hash() < other.key_hash());
  EXPECT_EQ(other < first, other.key_hash() < first.key_hash());
}

// FNV-1a, 32 bits.
TEST(Observation, HashesItsKey) {
  const auto hash = [](const char* key) {
    Backup backup = daily(1);
    backup.unique_key = key;
    return Observation(backup).key_hash();
  };
  EXPECT_EQ(hash(""), 0x811C9DC5U);
  EXPECT_EQ(hash("a"), 0xE40C292CU);
  EXPECT_EQ(hash("foobar"), 0xBF9CF968U);
  EXPECT_EQ(hash("\xff"), (0x811C9DC5U ^ 0xFFU) * 16777619U);
}

}  // namespace
}  // namespace corvane::detect
