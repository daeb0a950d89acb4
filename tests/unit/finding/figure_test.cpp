#include "finding/figure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace corvane {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(Figure, AmountsHaveTheUnitsOfPeople) {
  EXPECT_EQ(amount_text(kFiles, 1234567.4), "1,234,567");
  EXPECT_EQ(amount_text(kSize, 800'000), "781 MB");
  EXPECT_EQ(amount_text(kTransferred, 10), "10 KB");
  EXPECT_EQ(amount_text(kRatio, 3.84), "3.84");
  EXPECT_EQ(amount_text(kRatio, kInfinity), "unlimited");
  EXPECT_EQ(amount_text(kDuration, 12'345), "3 h 25 min");
  EXPECT_EQ(amount_text(kDuration, 1e300), "11574074 d 1 h");
}

TEST(Figure, ValuesInWordsAreSingularForOne) {
  EXPECT_EQ(value_in_words(kFiles, {.value = 1}), "1 file");
  EXPECT_EQ(value_in_words(kFiles, {.value = 0}), "0 files");
  EXPECT_EQ(value_in_words(kFiles, {.value = 2}), "2 files");
  EXPECT_EQ(value_in_words(kSize, {.value = 800'000}), "781 MB in size");
  EXPECT_EQ(value_in_words(kTransferred, {.value = 2048}), "2 MB transferred");
  EXPECT_EQ(value_in_words(kRatio, {.value = 1.5}), "deduplication ratio 1.5");
  EXPECT_EQ(value_in_words(kDuration, {.value = 60}), "took 60 s");
}

// Of a figure with a usual: "value, usual, range".
std::string said(Figure figure, double value, double low, double usual, double high) {
  const FigureWords words = words_for(
      figure, {.has_usual = true, .value = value, .low = low, .usual = usual, .high = high});
  return words.value + ", " + words.usual + ", " + words.range;
}

TEST(Figure, ValueUsualAndRangeAreInOneUnit) {
  EXPECT_EQ(said(kSize, 5.7 * 1024, 0, 10, 1.4 * 1024), "5.7 MB, 0.01 MB, 0 to 1.4 MB");
  EXPECT_EQ(said(kTransferred, 40, 19 * 1024, 2e4, 21 * 1024), "0.04 MB, 20 MB, 19 to 21 MB");
  EXPECT_EQ(said(kSize, 3, 1023, 1, 2), "3 KB, 1 KB, 1,023 to 2 KB") << "by the range's begin";
  EXPECT_EQ(said(kSize, 3, 1024, 1, 2),
            "less than 0.01 MB, less than 0.01 MB, 1 to less than 0.01 MB");
  EXPECT_EQ(said(kSize, 3, 1, 1024, 2), "less than 0.01 MB, 1 MB, less than 0.01 MB");
  EXPECT_EQ(said(kSize, 3, 0, 512, 1024), "less than 0.01 MB, 0.5 MB, 0 to 1 MB");
  EXPECT_EQ(said(kSize, 1024. * 1024, 10.4 * 1024, 9.94 * 1024, 9.96 * 1024),
            "1 GB, 0.01 GB, 0.01 GB");
  EXPECT_EQ(said(kSize, 9.96 * 1024, 9.94 * 1024, 10.4 * 1024, 10.6 * 1024),
            "10 MB, 10 MB, 9.9 to 11 MB");
  EXPECT_EQ(said(kSize, 1024, 0.994 * 1024, 0.996 * 1024, 0.0055 * 1024),
            "1 MB, 1 MB, 0.99 to 0.01 MB");
  EXPECT_EQ(said(kSize, std::exp2(61), std::exp2(50), 0, std::exp2(40)),
            "2,048 EB, 0 EB, 1 to less than 0.01 EB");
}

TEST(Figure, SpansAreInOneUnitToo) {
  EXPECT_EQ(said(kDuration, 119, 0, 60, 70.4), "119 s, 60 s, 0 to 70 s");
  EXPECT_EQ(said(kDuration, 120, 50, 60, 72), "2 min, 1 min, 0.83 to 1.2 min");
  EXPECT_EQ(said(kDuration, 7199, 600, 0, 1200), "120 min, 0 min, 10 to 20 min");
  EXPECT_EQ(said(kDuration, 7200, 0, 29, 12'030), "2 h, less than 1 min, 0 to 3 h 21 min");
  EXPECT_EQ(said(kDuration, 7200, 30, 60, 89), "2 h, 1 min, 1 min");
  EXPECT_EQ(said(kDuration, 172'799, 3540, 3600, 3660), "48 h, 1 h, 59 min to 1 h 1 min");
  EXPECT_EQ(said(kDuration, 172'800, 0, 0, 97'200), "2 d, 0 h, 0 to 1 d 3 h");
  EXPECT_EQ(said(kDuration, 1e300, -5, 30, 3600), "11574074 d 2 h, less than 1 h, 0 h to 1 h");
}

TEST(Figure, NumbersHaveNoUnit) {
  EXPECT_EQ(said(kFiles, 16'278, 0, 11.38, 2048), "16,278, 11, 0 to 2,048");
  EXPECT_EQ(said(kFiles, 1, 7.4, 7, 6.6), "1, 7, 7") << "both ends read alike";
  EXPECT_EQ(said(kRatio, 1.25, 3.84, 4, 4.5), "1.25, 4, 3.84 to 4.5");
}

TEST(Figure, ARatioWithoutABoundSaysSo) {
  EXPECT_EQ(said(kRatio, 1.25, 3.84, kInfinity, kInfinity), "1.25, unlimited, at least 3.84");
  EXPECT_EQ(said(kRatio, kInfinity, kInfinity, kInfinity, kInfinity),
            "unlimited, unlimited, unlimited");
  EXPECT_EQ(said(kRatio, 1e6, 999'999, 1e6, 2e6), "unlimited, unlimited, at least 999,999")
      << "as former versions stored it";
  EXPECT_FALSE(is_unlimited(kFiles, 1e6));
  EXPECT_TRUE(is_unlimited(kFiles, kInfinity));
}

TEST(Figure, WithoutAUsualThereIsOnlyAValue) {
  const FigureWords words = words_for(kSize, {.value = 2, .low = 1e9, .usual = 1e9, .high = 1e9});
  EXPECT_EQ(words.value, "2 KB");
  EXPECT_EQ(words.usual, "");
  EXPECT_EQ(words.range, "");
}

TEST(Figure, AreOrderedByTheirDeviationAndTheDurationComesLast) {
  FigureViews figures;
  EXPECT_TRUE(figures_by_deviation(figures).empty());
  figures[kDuration] = {.has_usual = true, .deviation = 100};
  figures[kFiles] = {.has_usual = true, .deviation = 2};
  figures[kSize] = {.has_usual = true, .deviation = -9};
  figures[kTransferred] = {.has_usual = false, .deviation = 50};
  figures[kRatio] = {.has_usual = true, .deviation = 0};
  EXPECT_EQ(figures_by_deviation(figures), (std::vector<Figure>{kSize, kFiles, kRatio, kDuration}));
}

TEST(Figure, HasAnIdAUnitAndALabel) {
  const auto names = [](Figure figure) {
    const FigureNames& all = names_of(figure);
    EXPECT_EQ(figure_of(all.id), figure);
    return std::string(all.id) + ", " + all.unit + ", " + all.label;
  };
  EXPECT_EQ(names(kFiles), "files, files, Files");
  EXPECT_EQ(names(kSize), "image_size, KB, Size");
  EXPECT_EQ(names(kTransferred), "kb_transferred, KB, Transferred");
  EXPECT_EQ(names(kRatio), "dedup_ratio, ratio, Deduplication ratio");
  EXPECT_EQ(names(kDuration), "duration, seconds, Duration");
  EXPECT_EQ(figure_of("Files"), std::nullopt);
}

}  // namespace
}  // namespace corvane
