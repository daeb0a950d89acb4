#include "finding/plain_text.h"

#include <algorithm>

#include "util/valid_utf8.h"

namespace corvane {

namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";
constexpr char kEllipsis[] = "\xE2\x80\xA6";

bool is_control(char32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x2028 || code == 0x2029;
}

// Directions, joiners, tags, byte order marks: they hide or reverse other characters.
bool is_invisible(char32_t code) {
  return code == 0xAD || code == 0x61C || code == 0x180E || (code >= 0x200B && code <= 0x200F) ||
         (code >= 0x202A && code <= 0x202E) || (code >= 0x2060 && code <= 0x206F) ||
         code == 0xFEFF || (code >= 0xFFF9 && code <= 0xFFFB) ||
         (code >= 0xE0000 && code <= 0xE0FFF);
}

std::string shown(std::string_view character) {
  const char32_t code = code_point(character);
  if (is_control(code)) return " ";
  if (is_invisible(code)) return "";
  if (code == '<') return "\xE2\x80\xB9";
  if (code == '>') return "\xE2\x80\xBA";
  return std::string(character);
}

}  // namespace

std::string plain_text(std::string_view text, std::size_t most) {
  std::string plain;
  std::size_t characters = 0;
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    const std::string next = length == 0 ? kReplacement : shown(text.substr(0, length));
    if (!next.empty() && characters++ == most) return plain + kEllipsis;
    plain += next;
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return plain;
}

}  // namespace corvane
