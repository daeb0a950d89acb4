#include "operator_tool/terminal.h"

#include <gtest/gtest.h>

#include "operator_tool/chart.h"
#include "operator_tool/table.h"
#include "operator_tool/words.h"

namespace corvane::ctl {
namespace {

TEST(DisplayWidth, CountsColumnsNotBytes) {
  EXPECT_EQ(display_width("abc"), 3U);
  EXPECT_EQ(display_width("Gr\xC3\xBC\xC3\x9F"), 4U);
  EXPECT_EQ(display_width("\xE6\x9D\xB1\xE4\xBA\xAC"), 4U);  // two wide characters
  EXPECT_EQ(display_width("e\xCC\x81"), 1U);                 // with a combining accent
}

TEST(Fitted, CutsBetweenCharacters) {
  EXPECT_EQ(fitted("abcdef", 6), "abcdef");
  EXPECT_EQ(fitted("abcdef", 4), "abc\xE2\x80\xA6");
  EXPECT_EQ(fitted("\xE6\x9D\xB1\xE4\xBA\xAC\xE9\x83\xBD", 4), "\xE6\x9D\xB1\xE2\x80\xA6");
  EXPECT_EQ(fitted("abcdef", 0), "abcdef");
}

TEST(Safe, NothingThatSteersATerminalIsLeft) {
  const std::string hostile = "a\x1B]0;title\x07\x1B[31mb\r\n\tc\x9B\xC2\x9B\xE2\x80\xAE\x7F";
  const std::string text = safe(hostile);
  for (const char letter : text) {
    const auto byte = static_cast<unsigned char>(letter);
    EXPECT_TRUE(byte >= 0x20 && byte != 0x7F) << static_cast<int>(byte);
  }
  EXPECT_EQ(text.find("\xC2\x9B"), std::string::npos);
  EXPECT_EQ(text.find("\xE2\x80\xAE"), std::string::npos);
}

TEST(Shown, AsciiKeepsTheColumns) {
  const Terminal ascii{80, false, false};
  EXPECT_EQ(shown(ascii, "a\xE2\x96\x88\xE2\x94\xA4\xE2\x80\xA6\xE6\x9D\xB1"), "a#|~??");
}

TEST(Wrapped, BreaksAtBlanks) {
  EXPECT_EQ(wrapped({20, false, true}, "one two three four", 8), "one two\n        three four\n");
  EXPECT_EQ(wrapped({0, false, true}, "one two three four", 8), "one two three four\n");
}

Table table_of(int dispensable) {
  Table table({{"Name", false, 6}, {"Other", false, 0, dispensable}, {"Number", true}});
  table.add({{"a name that is long"}, {"something"}, {"12"}});
  table.add({{"b"}, {"x"}, {"3", Style::kBad}});
  return table;
}

TEST(TableText, IsAsWideAsItTakesWithoutATerminal) {
  EXPECT_EQ(table_of(0).text({}),
            "Name                 Other      Number\n"
            "a name that is long  something      12\n"
            "b                    x               3\n");
}

TEST(TableText, FitsByCuttingWhatMayBeCut) {
  EXPECT_EQ(table_of(0).text({30, false, true}),
            "Name         Other      Number\n"
            "a name tha\xE2\x80\xA6  something      12\n"
            "b            x               3\n");
}

TEST(TableText, FitsByLeavingOutWhatIsDispensable) {
  EXPECT_EQ(table_of(1).text({15, false, true}),
            "Name     Number\n"
            "a name\xE2\x80\xA6      12\n"
            "b             3\n");
}

TEST(TableText, NoLineIsWiderThanTheTerminal) {
  for (std::size_t width = 16; width < 50; ++width) {
    const std::string text = table_of(1).text({width, false, true});
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = text.find('\n', at);
      EXPECT_LE(display_width(text.substr(at, end - at)), width);
      at = end + 1;
    }
  }
}

TEST(TableText, ColourOnlyWhenThereIsColour) {
  EXPECT_EQ(table_of(0).text({}).find('\x1B'), std::string::npos);
  EXPECT_NE(table_of(0).text({0, true, true}).find("\x1B[31m"), std::string::npos);
}

TEST(TableText, HostileCellsAreMadeSafe) {
  Table table({{"A"}});
  table.add({{"x\x1B[2Jy\nz"}});
  EXPECT_EQ(table.text({}), "A\nx [2Jy z\n");
}

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

TEST(Words, Spans) {
  EXPECT_EQ(span_text(-5), "0 s");
  EXPECT_EQ(span_text(119), "119 s");
  EXPECT_EQ(span_text(120), "2 min");
  EXPECT_EQ(span_text(3 * 3600 + 300), "3 h 5 min");
  EXPECT_EQ(span_text(2 * 86400), "2 d");
  EXPECT_EQ(span_text(12 * 86400 + 3 * 3600), "12 d 3 h");
}

TEST(Words, Sizes) {
  EXPECT_EQ(size_text(-1), "-");
  EXPECT_EQ(size_text(0), "0 KB");
  EXPECT_EQ(size_text(1023), "1023 KB");
  EXPECT_EQ(size_text(1536), "1.5 MB");
  EXPECT_EQ(size_text(1024.0 * 1024 * 100), "100 GB");
}

TEST(Words, Times) {
  EXPECT_EQ(time_text(1700000000, true), "2023-11-14 22:13");
  EXPECT_EQ(moment_text(1700000000, true), "2023-11-14 22:13 UTC");
  EXPECT_EQ(time_text(0, true), "-");
  EXPECT_EQ(time_text(INT64_MAX, true), "-");
}

}  // namespace
}  // namespace corvane::ctl
