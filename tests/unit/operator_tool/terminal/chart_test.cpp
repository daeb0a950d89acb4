#include "operator_tool/terminal/chart.h"

#include <gtest/gtest.h>

#include "operator_tool/terminal/terminal.h"

namespace corvane::ctl {
namespace {

TEST(ColumnChart, MarksWhatIsMarked) {
  const auto label = [](double value) { return std::to_string(static_cast<int>(value)); };
  EXPECT_EQ(
      column_chart({40, false, true}, {{5, false}, {-1, false}, {0, false}, {10, true}}, 2, label),
      "10 \xE2\x94\xA4   \xE2\x96\x88\n"
      " 0 \xE2\x94\xA4\xE2\x96\x88  \xE2\x96\x88\n"
      "       ^\n");
}

std::string label_of(double value) { return std::to_string(static_cast<int>(value)); }

const std::string kAxis = "\xE2\x94\xA4";
// So many eighths of a line.
std::string block(int eighths) {
  return eighths == 0 ? " " : "\xE2\x96" + std::string(1, static_cast<char>(0x80 + eighths));
}

TEST(ColumnChart, DrawsEighthsOfALine) {
  std::vector<Bar> bars;
  std::string blocks;
  for (int eighths = 8; eighths > 0; --eighths) {
    bars.push_back({eighths * 10.0, false});
    blocks += block(eighths);
  }
  bars.push_back({0.1, false});  // at least to be seen
  bars.push_back({0, false});
  EXPECT_EQ(column_chart({40, false, true}, bars, 1, label_of),
            "80 " + kAxis + blocks + block(1) + "\n");
}

TEST(ColumnChart, LeavesGapsWhereThereIsNoBar) {
  EXPECT_EQ(column_chart({40, false, true},
                         {{8, false}, {0, false}, {8, false}, {8, false}, {0, false}}, 1, label_of),
            "8 " + kAxis + block(8) + " " + block(8) + block(8) + "\n");
}

TEST(ColumnChart, GoesOnInTheLineAbove) {
  const auto drawn = [](double value) {
    return column_chart({40, false, true}, {{24, false}, {value, false}}, 3, label_of);
  };
  const auto chart = [](const std::string& top, const std::string& middle,
                        const std::string& last) {
    return "24 " + kAxis + block(8) + top + "\n   " + kAxis + block(8) + middle + "\n 0 " + kAxis +
           block(8) + last + "\n";
  };
  EXPECT_EQ(drawn(7), chart("", "", block(7)));
  EXPECT_EQ(drawn(8), chart("", "", block(8)));
  EXPECT_EQ(drawn(9), chart("", block(1), block(8)));
  EXPECT_EQ(drawn(16), chart("", block(8), block(8)));
  EXPECT_EQ(drawn(17), chart(block(1), block(8), block(8)));
}

TEST(ColumnChart, ColoursWhatIsMarked) {
  EXPECT_EQ(column_chart({40, true, true}, {{1, true}, {1, false}}, 1, label_of),
            "1 " + kAxis + "\x1B[31m" + block(8) + "\x1B[0m" + block(8) + "\n   ^\n");
}

TEST(ColumnChart, FitsWhatThereIsRoomFor) {
  const auto drawn = [](std::size_t width, std::size_t bars) {
    const std::string chart =
        column_chart({width, false, true}, std::vector<Bar>(bars, {10, false}), 1, label_of);
    return display_width(chart.substr(0, chart.find('\n')));
  };
  EXPECT_EQ(drawn(0, 100), 80U);  // where nobody says how wide
  EXPECT_EQ(drawn(20, 16), 20U);
  EXPECT_EQ(drawn(20, 15), 19U);
  EXPECT_EQ(drawn(20, 17), 20U);
  EXPECT_EQ(drawn(6, 9), 6U);
  EXPECT_EQ(drawn(5, 9), 5U);  // one bar at least
  EXPECT_EQ(drawn(1, 9), 5U);
}

TEST(ColumnChart, KeepsTheLastThatFit) {
  std::vector<Bar> bars(100, {1, false});
  bars.back() = {2, true};
  const std::string chart =
      column_chart({20, false, true}, bars, 1, [](double) { return std::string("2"); });
  EXPECT_EQ(display_width(chart.substr(0, chart.find('\n'))), 20U);
  EXPECT_NE(chart.find('^'), std::string::npos);
}

TEST(ColumnChart, NothingToShow) {
  const auto label = [](double) { return std::string(); };
  EXPECT_EQ(column_chart({}, {}, 3, label), "");
  EXPECT_EQ(column_chart({}, {{-1, false}, {0, true}}, 3, label), "");
}

}  // namespace
}  // namespace corvane::ctl
