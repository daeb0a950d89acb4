#include <gtest/gtest.h>

#include <limits>

#include "operator_tool/commands.h"

namespace corvane::ctl {
namespace {

constexpr Terminal kPlainTerminal{0, false, true};
constexpr Terminal kColourTerminal{0, true, true};

TEST(SeverityWordsOf, HaveAStyleEach) {
  const auto is = [](Severity severity, const std::string& words, Style style) {
    const SeverityWords found = severity_words(severity);
    return found.words == words && found.style == style;
  };
  EXPECT_TRUE(is(Severity::kCritical, "critical", Style::kBad));
  EXPECT_TRUE(is(Severity::kMajor, "major", Style::kWarning));
  EXPECT_TRUE(is(Severity::kWarning, "warning", Style::kPlain));
  EXPECT_TRUE(is(Severity::kNone, "warning", Style::kPlain));
}

TEST(Line, HasItsTextInAColumn) {
  EXPECT_EQ(line(kPlainTerminal, "Name", "some text"), "Name          some text\n");
  EXPECT_EQ(line(kPlainTerminal, "ThirteenWide.", "text"), "ThirteenWide. text\n");
  EXPECT_EQ(line(kPlainTerminal, "FourteenWide..", "text"), "FourteenWide.. text\n");
  EXPECT_EQ(line({24, false, true}, "Name", "some text"), "Name          some text\n");
  EXPECT_EQ(line({22, false, true}, "Name", "some text"),
            "Name          some\n              text\n");
  EXPECT_EQ(line(kPlainTerminal, "Name", "a\x1B[2J\nb"), "Name          a [2J b\n");
}

TEST(Line, IsStyled) {
  EXPECT_EQ(line(kColourTerminal, "Name", "text", Style::kBad),
            "\x1B[1mName\x1B[0m          \x1B[31mtext\x1B[0m\n");
  EXPECT_EQ(line(kColourTerminal, "Name", "text"), "\x1B[1mName\x1B[0m          text\n");
}

TEST(FindingLines, NameTheStreamAndTheLastGoodBackup) {
  Finding finding;
  finding.stream = {"web01", "nightly", "STANDARD", "FULL", "daily", "FS", "disk"};
  EXPECT_EQ(stream_line(kPlainTerminal, finding),
            "Stream        web01, policy nightly, schedule daily (FULL)\n");
  EXPECT_EQ(last_good_line(kPlainTerminal, finding, true), "");
  finding.last_good = {"web01_5", 1700000000};
  EXPECT_EQ(last_good_line(kPlainTerminal, finding, true),
            "Last good     web01_5 from 2023-11-14 22:13 UTC\n");
}

FigureView view_of(double value, double low, double usual, double high, double deviation) {
  return {true, true, value, low, usual, high, deviation};
}

TEST(FiguresTable, ComparesWhatIsKnown) {
  FigureViews figures{};
  EXPECT_EQ(figures_table(kPlainTerminal, figures), "");
  figures.at(kFiles) = view_of(16278, 0, 11, 2048, 20.04);
  figures.at(kSize) = {true, false, 2560, 1, 2, 3, 4};
  figures.at(kRatio) = view_of(1.5, 3.84, 10, std::numeric_limits<double>::infinity(), -2.46);
  EXPECT_EQ(figures_table(kPlainTerminal, figures),
            "Figure               Observed  Usual    Usual range  Deviation\n"
            "Files                  16,278     11     0 to 2,048         20\n"
            "Size                   2.5 MB      -              -          -\n"
            "Deduplication ratio       1.5     10  at least 3.84       -2.5\n");
}

TEST(FiguresTable, MarksWhatIsFarOff) {
  const auto is_marked = [](double deviation) {
    FigureViews figures{};
    figures.at(kFiles) = view_of(12345, 0, 11, 2048, deviation);
    const std::string text = figures_table(kColourTerminal, figures);
    const std::string row = text.substr(text.find('\n'));
    const std::size_t first = row.find("\x1B[31m");
    if (first == std::string::npos) return false;
    EXPECT_LT(first, row.find("12,345")) << row;
    EXPECT_GT(row.rfind("\x1B[31m"), row.find("2,048")) << row;
    return true;
  };
  EXPECT_FALSE(is_marked(2.49));
  EXPECT_TRUE(is_marked(2.5));
  EXPECT_TRUE(is_marked(-2.5));
  EXPECT_FALSE(is_marked(-2.49));
}

TEST(FiguresTable, CutsTheRangeFirst) {
  FigureViews figures{};
  figures.at(kFiles) = view_of(5, 0, 11, 2048, 3);
  EXPECT_EQ(figures_table({34, false, true}, figures),
            "Figure  Observed  Usual  Deviation\n"
            "Files          5     11          3\n");
}

}  // namespace
}  // namespace corvane::ctl
