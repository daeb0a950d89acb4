#include "operator_tool/terminal/terminal.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace corvane::ctl
