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
