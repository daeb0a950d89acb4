#include "operator_tool/terminal/table.h"

#include <gtest/gtest.h>

namespace corvane::ctl {
namespace {

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

TEST(TableText, CutsTheWidestFirst) {
  Table table({{"A", false, 1}, {"B", false, 1}});
  table.add({{"12345678"}, {"123456"}});
  EXPECT_EQ(table.text({16, false, true}), "A         B\n12345678  123456\n");
  EXPECT_EQ(table.text({15, false, true}), "A        B\n123456\xE2\x80\xA6  123456\n");
  EXPECT_EQ(table.text({14, false, true}), "A       B\n12345\xE2\x80\xA6  123456\n");
  EXPECT_EQ(table.text({13, false, true}), "A      B\n1234\xE2\x80\xA6  123456\n");
  EXPECT_EQ(table.text({12, false, true}), "A      B\n1234\xE2\x80\xA6  1234\xE2\x80\xA6\n");
}

TEST(TableText, CutsNoColumnBelowItsLeastNorItsTitle) {
  Table table({{"Title", false, 1}, {"B", false, 4}, {"C", true}});
  table.add({{"12345678"}, {"12345678"}, {"12345678"}});
  EXPECT_EQ(table.text({1, false, true}),
            "Title  B            C\n"
            "1234\xE2\x80\xA6  123\xE2\x80\xA6  12345678\n");
}

TEST(TableText, LeavesOutTheMostDispensableFirst) {
  Table table(
      {{"A", false, 0, 1}, {"B", false, 0, 3}, {"C", false, 0, 2}, {"D"}, {"E", false, 0, 3}});
  table.add({{"1111"}, {"2222"}, {"3333"}, {"4444"}, {"5555"}});
  const auto row = [&](std::size_t width) {
    const std::string text = table.text({width, false, true});
    return text.substr(text.find('\n') + 1);
  };
  EXPECT_EQ(row(28), "1111  2222  3333  4444  5555\n");
  EXPECT_EQ(row(27), "1111  3333  4444  5555\n");
  EXPECT_EQ(row(22), "1111  3333  4444  5555\n");
  EXPECT_EQ(row(21), "1111  3333  4444\n");
  EXPECT_EQ(row(15), "1111  4444\n");
  EXPECT_EQ(row(9), "4444\n");
  EXPECT_EQ(row(1), "4444\n");
}

// A column that is dispensable is not left out while cutting another makes room enough.
TEST(TableText, CutsBeforeItLeavesOut) {
  Table table({{"A", false, 2}, {"B", false, 0, 1}});
  table.add({{"12345678"}, {"1234"}});
  EXPECT_EQ(table.text({8, false, true}), "A   B\n1\xE2\x80\xA6  1234\n");
  EXPECT_EQ(table.text({7, false, true}), "A\n123456\xE2\x80\xA6\n");
}

TEST(TableText, MissingCellsAreEmpty) {
  Table table({{"A"}, {"B", true}});
  table.add({{"1"}});
  table.add({{""}, {"2"}});
  EXPECT_EQ(table.text({}), "A  B\n1\n   2\n");
}

TEST(TableText, TitlesAreBold) {
  Table table({{"A"}});
  table.add({{"1", Style::kWarning}});
  EXPECT_EQ(table.text({0, true, true}), "\x1B[1mA\x1B[0m\n\x1B[33m1\x1B[0m\n");
}

TEST(TableText, HostileCellsAreMadeSafe) {
  Table table({{"A"}});
  table.add({{"x\x1B[2Jy\nz"}});
  EXPECT_EQ(table.text({}), "A\nx [2Jy z\n");
}

}  // namespace
}  // namespace corvane::ctl
