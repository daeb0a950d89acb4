#include "companions/detect/features.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <tuple>

#include "tests/unit/detect/detect_world.h"

namespace corvane::detect {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
// What the packed ratio and duration may be off by.
constexpr double kPacked = 2e-3;

void expect_raw(const Raw& raw, const Raw& expected) {
  for (std::size_t i = 0; i < kFigures; ++i) {
    if (std::isnan(expected[i])) {
      EXPECT_TRUE(std::isnan(raw[i])) << i << ": " << raw[i];
    } else {
      EXPECT_NEAR(raw[i], expected[i], i >= kRatio ? kPacked : 1e-12) << i;
    }
  }
}

TEST(RawFeatures, OfAFullBackupAreOctavesAboveTheOneBefore) {
  const Observation before = observed(0, {8, 192, 1, 9, 9});
  const auto raw_of = [&](const Figures& figures) {
    return raw_features(observed(1, figures), &before, {});
  };
  // (24 + 8) / (8 + 8), (960 + 64) / (192 + 64), 256 / (960 + 64), 1 / 4, 7 + 1
  expect_raw(raw_of({24, 960, 256, 4, 7}), {1, 2, 0.25, 0.25, 3});
  expect_raw(raw_of({0, 0, 16, -1, 0}), {-1, -2, 0.25, kNan, 0});
  expect_raw(raw_of({-1, 960, 0, -1, -1}), {kNan, 2, 0, kNan, kNan});
  expect_raw(raw_of({24, -1, 256, -1, -1}), {1, kNan, kNan, kNan, kNan});
  expect_raw(raw_of({24, 960, -1, -1, -1}), {1, 2, kNan, kNan, kNan});
  expect_raw(raw_features(observed(1, {24, 960, 256, 4, 7}), nullptr, {}),
             {kNan, kNan, 0.25, 0.25, 3});
  const Observation unknown = observed(0, {-1, -1, 1, 1, 1});
  expect_raw(raw_features(observed(1, {24, 960, 256, 4, 7}), &unknown, {}),
             {kNan, kNan, 0.25, 0.25, 3});
  const Observation empty = observed(0, {0, 0, 1, 1, 1});
  expect_raw(raw_features(observed(1, {24, 960, 256, 4, 7}), &empty, {}), {2, 4, 0.25, 0.25, 3});
}

TEST(RawFeatures, OfAnIncrementalAreSharesOfTheLastFullBackup) {
  const std::vector<Observation> full{observed(0, {100, 0, 5, 5, 5}),
                                      observed(2, {992, 936, 5, 5, 5})};
  const Frame frame{true, full};
  // 27 / (100 + 8), 16 / (0 + 64); what came before is no matter.
  expect_raw(raw_features(observed(1, {27, 16, 7, 2, 3}), &full[1], frame),
             {0.25, 0.25, 3, kNan, 2});
  expect_raw(raw_features(observed(2, {500, 250, 7, 2, 3}), nullptr, frame),
             {0.5, 0.25, 3, 0.5, 2});
  expect_raw(raw_features(observed(2, {0, -1, 7, 2, 3}), nullptr, frame), {0, kNan, 3, 0.5, 2});
  expect_raw(raw_features(observed(2, {-1, 0, 0, 2, 3}), nullptr, frame), {kNan, 0, 0, kNan, 2});
  const std::vector<Observation> unknown{observed(0, {-1, 936, 5, 5, 5})};
  expect_raw(raw_features(observed(1, {27, 250, 7, 2, 3}), nullptr, {true, unknown}),
             {kNan, 0.25, 3, 0.5, 2});
}

TEST(RawFeatures, OfAnIncrementalAloneAreOctaves) {
  expect_raw(raw_features(observed(1, {7, 127, 3, 2, 1}), nullptr, {true, {}}), {3, 7, 2, 0.5, 1});
  expect_raw(raw_features(observed(1, {0, -1, -1, 2, 1}), nullptr, {true, {}}),
             {0, kNan, kNan, 0.5, 1});
}

TEST(RawFeatures, TheRatioOfATinyOrUnchangedBackupIsUnknown) {
  const auto ratio_of = [](double size, double transferred, double ratio) {
    return raw_features(observed(1, {1, size, transferred, ratio, 1}), nullptr, {})[kRatio];
  };
  EXPECT_NEAR(ratio_of(64, 1, 4), 0.25, kPacked);
  EXPECT_TRUE(std::isnan(ratio_of(63, 1, 4)));
  EXPECT_TRUE(std::isnan(ratio_of(0, 1, 4)));
  EXPECT_NEAR(ratio_of(-1, 1, 4), 0.25, kPacked);
  EXPECT_TRUE(std::isnan(ratio_of(64, 0, 4)));
  EXPECT_NEAR(ratio_of(64, -1, 4), 0.25, kPacked);
  EXPECT_TRUE(std::isnan(ratio_of(64, 1, 0)));
  EXPECT_TRUE(std::isnan(ratio_of(64, 1, -1)));
  EXPECT_NEAR(ratio_of(64, 1, 1.0 / 8), 8, 0.01);
  EXPECT_EQ(ratio_of(64, 1, 1.0 / 32), 16);
}

TEST(FullBackupAt, IsTheNewestThatIsNotLater) {
  EXPECT_EQ(full_backup_at({}, 0), nullptr);
  const std::vector<Observation> full{observed(1, {}), observed(2, {}), observed(3, {})};
  EXPECT_EQ(full_backup_at(std::span(full).first(0), daily(1).time), nullptr);
  const auto place = [&](std::int32_t time) { return full_backup_at(full, time) - full.data(); };
  EXPECT_EQ(place(0), 0);
  EXPECT_EQ(place(daily(1).time), 0);
  EXPECT_EQ(place(daily(2).time - 1), 0);
  EXPECT_EQ(place(daily(2).time), 1);
  EXPECT_EQ(place(daily(3).time - 1), 1);
  EXPECT_EQ(place(daily(3).time), 2);
  EXPECT_EQ(place(daily(9).time), 2);
}

// Incrementals without a full backup, whose files make these octaves.
std::vector<Observation> of_octaves(const std::vector<int>& octaves) {
  std::vector<Observation> history;
  for (const int octave : octaves) {
    history.push_back(observed(static_cast<int>(history.size()), {std::exp2(octave) - 1}));
  }
  return history;
}

Scale scale_of_files(const std::vector<int>& octaves, std::size_t enough = 1) {
  ScaledHistory scaled;
  scale_history(of_octaves(octaves), {true, {}}, enough, scaled);
  return scaled.scales[kFiles];
}

TEST(ScaleHistory, MeasuresInRobustSpreadsAroundTheMedian) {
  struct Case {
    std::vector<int> octaves;
    double centre;
    double median_deviation;
  };
  for (const auto& [octaves, centre, deviation] : {
           Case{{6, 1, 2}, 2, 1},
           Case{{8, 1, 4, 2}, 3, 1.5},
           Case{{3, 9, 3, 3, 13}, 3, 0},
           Case{{0, 3, 5}, 3, 2},           // zeros count...
           Case{{0, 0, 3, 0, 5, 0}, 4, 1},  // ...where they are not the usual value
           Case{{0, 0, 0, 1}, 1, 0},
           Case{{0, 0, 0}, 0, 0},
       }) {
    const Scale scale = scale_of_files(octaves);
    EXPECT_TRUE(scale.used);
    EXPECT_DOUBLE_EQ(scale.centre, centre);
    EXPECT_DOUBLE_EQ(scale.spread, deviation == 0 ? 0.2 : 1.4826 * deviation);
  }
}

TEST(ScaleHistory, AFullBackupThatStaysAsItIsIsTheUsual) {
  std::vector<Observation> history;
  for (const double files : {8, 8, 8, 8, 120}) {
    history.push_back(observed(static_cast<int>(history.size()), {files}));
  }
  ScaledHistory scaled;
  scale_history(history, {}, 1, scaled);
  expect_raw(scaled.raw[0], {kNan, kNan, kNan, kNan, kNan});
  EXPECT_EQ(scaled.raw[4][kFiles], 3);
  EXPECT_EQ(scaled.scales[kFiles].centre, 0);
  EXPECT_EQ(scaled.scales[kFiles].spread, 0.2);
}

TEST(ScaleHistory, UsesAFeatureThatEnoughBackupsKnow) {
  std::vector<Observation> history = of_octaves({1, 2, 3});
  history.push_back(observed(3, {}));
  ScaledHistory scaled;
  scale_history(history, {true, {}}, 3, scaled);
  EXPECT_TRUE(scaled.scales[kFiles].used);
  EXPECT_EQ(scaled.dimensions, 1U);
  EXPECT_EQ(scaled.points, (std::vector<double>{0, 0, 1 / 1.4826, 0}));
  scale_history(history, {true, {}}, 4, scaled);
  EXPECT_FALSE(scaled.scales[kFiles].used);
  EXPECT_EQ(scaled.scales[kFiles].centre, 0);
  EXPECT_EQ(scaled.scales[kFiles].spread, 1);
  EXPECT_EQ(scaled.dimensions, 0U);
  EXPECT_TRUE(scaled.points.empty());
  EXPECT_EQ(scaled.raw.size(), 4U);
  scale_history({}, {true, {}}, 0, scaled);
  EXPECT_FALSE(scaled.scales[kFiles].used);
  EXPECT_TRUE(scaled.raw.empty());
}

TEST(ScaleHistory, HasALeastSpreadForEachFeature) {
  const std::vector<Observation> full{observed(0, {992, 936, 5, 5, 5})};
  std::vector<Observation> history;
  history.reserve(3);
  for (int day = 1; day < 4; ++day) history.push_back(observed(day, {100, 100, 100, 4, 100}));
  const auto spreads = [&](const Frame& frame) {
    ScaledHistory scaled;
    scale_history(history, frame, 1, scaled);
    EXPECT_EQ(scaled.dimensions, 5U);
    EXPECT_EQ(scaled.points, (std::vector<double>(15, 0)));
    std::array<double, kFigures> found{};
    for (std::size_t i = 0; i < kFigures; ++i) found[i] = scaled.scales[i].spread;
    return found;
  };
  using Spreads = std::array<double, kFigures>;
  EXPECT_EQ(spreads({false, {}}), (Spreads{0.2, 0.2, 0.1, 0.1, 2}));
  EXPECT_EQ(spreads({false, full}), (Spreads{0.2, 0.2, 0.1, 0.1, 2}));
  EXPECT_EQ(spreads({true, {}}), (Spreads{0.2, 0.2, 1, 0.1, 2}));
  EXPECT_EQ(spreads({true, full}), (Spreads{0.1, 0.1, 1, 0.1, 2}));
}

std::array<Scale, kFigures> all_used() {
  std::array<Scale, kFigures> scales;
  scales.fill({true, 10, 2});
  return scales;
}

TEST(Deviations, CountOnTheHarmfulSideOnlyButForTheExtentOfAFullBackup) {
  const Raw above{14, 16, 18, 20, 22};
  const Raw below{6, 4, 2, 0, -2};
  using Result = std::array<double, kFigures>;
  for (const bool incremental : {false, true}) {
    EXPECT_EQ(deviations(above, {incremental, {}}, all_used()), (Result{2, 3, 4, 5, 6}));
  }
  EXPECT_EQ(deviations(below, {false, {}}, all_used()), (Result{-2, -3, 0, 0, 0}));
  EXPECT_EQ(deviations(below, {true, {}}, all_used()), (Result{0, 0, 0, 0, 0}));
}

TEST(Deviations, EndAtAThousandSpreads) {
  using Result = std::array<double, kFigures>;
  EXPECT_EQ(deviations({1e9, -1e9, 2010, 2011, 2009}, {}, all_used()),
            (Result{1000, -1000, 1000, 1000, 999.5}));
}

TEST(Deviations, OfWhatIsNotUsedOrKnownAreNone) {
  std::array<Scale, kFigures> scales = all_used();
  scales[kSize].used = false;
  const auto away = deviations({kNan, 16, 18, kNan, 22}, {}, scales);
  EXPECT_EQ(away, (std::array<double, kFigures>{0, 0, 4, 0, 6}));
  std::vector<double> point{7};
  append_point({1, 2, 3, 4, 5}, scales, point);
  EXPECT_EQ(point, (std::vector<double>{7, 1, 3, 4, 5}));
}

TEST(Natural, IsTheFigureInItsOwnUnit) {
  const Observation backup = observed(3, {24, 136, 1, 1, 1});
  const Observation before = observed(0, {8, 192, 1, 1, 1});
  const std::vector<Observation> full{observed(1, {100, 0, 1, 1, 1}), observed(5, {1, 2, 3, 4, 5})};
  const Frame alone{true, {}};
  const Frame shares{true, full};
  struct Case {
    Figure figure;
    double raw;
    const Observation* before;
    Frame frame;
    double expected;
  };
  for (const auto& [figure, raw, last, frame, expected] : {
           Case{kFiles, 1, &before, {}, 24},
           Case{kFiles, 1, nullptr, {}, 56},
           Case{kFiles, -1, &before, {}, 0},
           Case{kFiles, -3, &before, {}, 0},
           Case{kSize, 2, &before, {}, 960},
           Case{kSize, 1, nullptr, {}, 336},
           Case{kSize, -9, &before, {}, 0},
           Case{kTransferred, 0.5, &before, {}, 100},
           Case{kTransferred, -0.5, &before, {}, 0},
           Case{kRatio, 0.25, nullptr, {}, 4},
           Case{kRatio, 0, nullptr, {}, kInfinity},
           Case{kRatio, -1, nullptr, {}, kInfinity},
           Case{kDuration, 3, &before, {}, 7},
           Case{kDuration, -3, &before, {}, 0},
           Case{kDuration, 3, nullptr, shares, 7},
           Case{kFiles, 3, nullptr, alone, 7},
           Case{kSize, 4, nullptr, alone, 15},
           Case{kFiles, -3, nullptr, alone, 0},
           Case{kTransferred, 5, nullptr, alone, 31},
           Case{kTransferred, 5, nullptr, shares, 31},
           Case{kTransferred, -5, nullptr, shares, 0},
           Case{kFiles, 0.25, &before, shares, 27},
           Case{kSize, 0.25, &before, shares, 16},
           Case{kFiles, -0.25, &before, shares, 0},
       }) {
    EXPECT_DOUBLE_EQ(natural(figure, raw, backup, last, frame), expected)
        << figure << " " << raw << " " << frame.incremental;
  }
}

}  // namespace
}  // namespace corvane::detect
