#include "finding/plain_text.h"

#include <gtest/gtest.h>

#include <array>

namespace corvane {
namespace {

std::string utf8(char32_t code) {
  const auto byte = [](char32_t bits) { return static_cast<char>(bits); };
  const auto tail = [&](int shift) { return byte(0x80 | (code >> shift & 0x3F)); };
  const auto shift = [&](int bits) { return code >> bits; };
  if (code < 0x80) return {byte(code)};
  if (code < 0x800) return {byte(0xC0 | shift(6)), tail(0)};
  if (code < 0x10000) return {byte(0xE0 | shift(12)), tail(6), tail(0)};
  return {byte(0xF0 | shift(18)), tail(12), tail(6), tail(0)};
}

TEST(PlainText, IsOneLineWithoutMarkup) {
  EXPECT_EQ(plain_text("a\r\nb\tc\x1b[1m"), "a  b c [1m");
  EXPECT_EQ(plain_text(std::string("a\0b", 3)), "a b");
  EXPECT_EQ(plain_text("<b>\xC2\x85"),
            "\xE2\x80\xB9"
            "b\xE2\x80\xBA ");
  EXPECT_EQ(plain_text("a" + utf8(0x202E) + "b" + utf8(0xFEFF) + "c" + utf8(0xE0041)), "abc");
  EXPECT_EQ(plain_text("Größe \xFF"), "Größe \xEF\xBF\xBD");
  EXPECT_EQ(plain_text("\xFF\xFE!"), "\xEF\xBF\xBD\xEF\xBF\xBD!") << "byte by byte";
}

TEST(PlainText, ControlCharactersAreBlanks) {
  for (const char32_t code :
       std::to_array<char32_t>({0x01, 0x1F, 0x20, 0x7F, 0x80, 0x9F, 0x2028, 0x2029})) {
    EXPECT_EQ(plain_text("a" + utf8(code) + "b"), "a b") << std::hex << std::uint32_t{code};
  }
}

TEST(PlainText, LeavesOutWhatOnlySteersHowOthersAreShown) {
  for (const char32_t code :
       std::to_array<char32_t>({0xAD, 0x61C, 0x180E, 0x200B, 0x200F, 0x202A, 0x202E, 0x2060, 0x206F,
                                0xFEFF, 0xFFF9, 0xFFFB, 0xE0000, 0xE0FFF})) {
    EXPECT_EQ(plain_text("a" + utf8(code) + "b"), "ab") << std::hex << std::uint32_t{code};
  }
}

TEST(PlainText, LeavesTheNeighboursOfThoseAlone) {
  for (const char32_t code : std::to_array<char32_t>(
           {0x21,   0x3B,   0x3D,   0x3F,   0x7E,   0xA0,    0xAC,    0xAE,   0x61B,
            0x61D,  0x180D, 0x180F, 0x200A, 0x2010, 0x2027,  0x202F,  0x205F, 0x2070,
            0xFEFE, 0xFF00, 0xFFF8, 0xFFFC, 0x2C,   0x10000, 0xDFFFF, 0xE1000})) {
    EXPECT_EQ(plain_text("a" + utf8(code) + "b"), "a" + utf8(code) + "b")
        << std::hex << std::uint32_t{code};
  }
}

TEST(PlainText, CutsWhatIsTooLong) {
  EXPECT_EQ(plain_text("äöü", 2), "äö\xE2\x80\xA6");
  EXPECT_EQ(plain_text("äö", 2), "äö");
  EXPECT_EQ(plain_text("a\u200Bb\u200B", 2), "ab") << "what is left out does not count";
  const std::string most(200, 'x');
  EXPECT_EQ(plain_text(most), most);
  EXPECT_EQ(plain_text(most + "y"), most + "\xE2\x80\xA6");
}

}  // namespace
}  // namespace corvane
