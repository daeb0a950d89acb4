#include "util/valid_utf8.h"

namespace corvane {

std::size_t utf8_length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC2 ? 2 : 0;
  if (length == 0 || first > 0xF4 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  const bool overlong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
  const bool beyond = (first == 0xED && byte(1) > 0x9F) || (first == 0xF4 && byte(1) > 0x8F);
  return overlong || beyond ? 0 : length;
}

char32_t code_point(std::string_view character) {
  if (character.size() == 1) return static_cast<unsigned char>(character[0]);
  char32_t code = static_cast<unsigned char>(character[0]) & (0xFFU >> (character.size() + 1));
  for (std::size_t i = 1; i < character.size(); ++i) {
    code = (code << 6U) | (static_cast<unsigned char>(character[i]) & 0x3FU);
  }
  return code;
}

std::string valid_utf8(std::string_view text) {
  std::string valid;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = utf8_length(text.substr(at));
    if (length == 0) {
      valid += "\xEF\xBF\xBD";
      ++at;
    } else {
      valid += text.substr(at, length);
      at += length;
    }
  }
  return valid;
}

}  // namespace corvane
