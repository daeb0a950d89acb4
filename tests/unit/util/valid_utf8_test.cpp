#include "util/valid_utf8.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(ValidUtf8, KeepsOnlyUtf8) {
  EXPECT_EQ(valid_utf8("Größe 日本 \xF0\x9F\x92\xBE"), "Größe 日本 \xF0\x9F\x92\xBE");
  EXPECT_EQ(valid_utf8("a\xFF"
                       "b\xC3"),
            "a\xEF\xBF\xBD"
            "b\xEF\xBF\xBD");
  EXPECT_EQ(valid_utf8("\xC0\xAF"), "\xEF\xBF\xBD\xEF\xBF\xBD");  // overlong
  EXPECT_EQ(valid_utf8("\xED\xA0\x80").size(), 9U);               // a surrogate
  EXPECT_EQ(valid_utf8(""), "");
}

TEST(ValidUtf8, KnowsTheBounds) {
  for (const char* valid :
       {"\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
        "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_EQ(utf8_length(valid), std::string_view(valid).size()) << valid;
  }
  for (const char* invalid :
       {"\x80", "\xBF", "\xC1\xBF", "\xC2\x7F", "\xC2\xC0", "\xE0\x9F\xBF", "\xED\xA0\x80",
        "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80"}) {
    EXPECT_EQ(utf8_length(invalid), 0U) << invalid;
  }
}

TEST(ValidUtf8, LengthOfTheFirstCharacter) {
  EXPECT_EQ(utf8_length("a"), 1U);
  EXPECT_EQ(utf8_length("öa"), 2U);
  EXPECT_EQ(utf8_length("\xC3"), 0U);
}

TEST(CodePoint, OfOneToFourBytes) {
  EXPECT_EQ(code_point("a"), U'a');
  EXPECT_EQ(code_point("\xC2\x80"), 0x80U);
  EXPECT_EQ(code_point("\xDF\xBF"), 0x7FFU);
  EXPECT_EQ(code_point("\xE0\xA0\x80"), 0x800U);
  EXPECT_EQ(code_point("\xEF\xBF\xBD"), 0xFFFDU);
  EXPECT_EQ(code_point("\xF0\x90\x80\x80"), 0x10000U);
  EXPECT_EQ(code_point("\xF4\x8F\xBF\xBF"), 0x10FFFFU);
  EXPECT_EQ(code_point("\xFF"), 0xFFU);
}

}  // namespace
}  // namespace corvane
