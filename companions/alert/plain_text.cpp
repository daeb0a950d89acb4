#include "companions/alert/plain_text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "companions/common/valid_utf8.h"

namespace corvane::alert {

namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";
constexpr char kEllipsis[] = "\xE2\x80\xA6";
constexpr std::int64_t kLastSecond = 253402300799;  // of the year 9999

bool is_control(char32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x2028 || code == 0x2029;
}

// Directions, joiners, tags, byte order marks: what hides or turns round other characters.
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

std::string json_safe(std::string_view json) {
  std::string safe;
  safe.reserve(json.size());
  while (!json.empty()) {
    std::size_t length = json[0] == '\\' ? 2 : 1;  // so that "\\u0000" is seen as what it is
    if (json.starts_with("\\u0000")) {
      safe += "\\ufffd";
      length = 6;
    } else {
      safe += json.substr(0, length);
    }
    json.remove_prefix(std::min(length, json.size()));
  }
  return safe;
}

std::string utc_text(std::int64_t seconds) {
  if (seconds <= 0 || seconds > kLastSecond) return "an unknown time";
  const std::time_t time = seconds;
  std::tm utc{};
  gmtime_r(&time, &utc);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M UTC", &utc);
  return text.data();
}

std::string number_text(double number) {
  std::array<char, 32> buffer{};
  number = std::clamp(number, -1e15, 1e15);
  if (std::abs(number) < 100) {
    std::snprintf(buffer.data(), buffer.size(), "%.2f", number);
    std::string text = buffer.data();
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text == "-0" ? "0" : text;
  }
  std::snprintf(buffer.data(), buffer.size(), "%.0f", std::fabs(number));
  std::string text = buffer.data();
  for (std::size_t at = text.size(); at > 3; at -= 3) text.insert(at - 3, 1, ',');
  return number < 0 ? "-" + text : text;
}

}  // namespace corvane::alert
