#include "finding/figure.h"

#include <gtest/gtest.h>

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

TEST(Figure, AmountsInWordsAreSingularForOne) {
  EXPECT_EQ(amount_in_words(kFiles, 1), "1 file");
  EXPECT_EQ(amount_in_words(kFiles, 0), "0 files");
  EXPECT_EQ(amount_in_words(kSize, 800'000), "781 MB in size");
  EXPECT_EQ(amount_in_words(kTransferred, 2048), "2.0 MB transferred");
  EXPECT_EQ(amount_in_words(kRatio, 1.5), "deduplication ratio 1.5");
  EXPECT_EQ(amount_in_words(kDuration, 60), "took 60 s");
}

TEST(Figure, ARangeWithoutAnUpperBoundSaysSo) {
  EXPECT_EQ(range_text(kFiles, {.low = 0, .high = 2048}), "0 to 2,048");
  EXPECT_EQ(range_text(kRatio, {.low = 3.84, .high = kInfinity}), "at least 3.84");
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

TEST(Figure, IdsGiveTheirFigureBack) {
  for (std::size_t i = 0; i < kFigures; ++i)
    EXPECT_EQ(figure_of(names_of(Figure{i}).id), Figure{i});
  EXPECT_EQ(figure_of("Files"), std::nullopt);
}

}  // namespace
}  // namespace corvane
