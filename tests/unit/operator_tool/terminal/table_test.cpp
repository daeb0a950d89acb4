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

TEST(TableText, HostileCellsAreMadeSafe) {
  Table table({{"A"}});
  table.add({{"x\x1B[2Jy\nz"}});
  EXPECT_EQ(table.text({}), "A\nx [2Jy z\n");
}

}  // namespace
}  // namespace corvane::ctl
