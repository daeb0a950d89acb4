#include "util/tolerant_json.h"

#include <charconv>
#include <optional>

#include "util/valid_utf8.h"

namespace corvane {

namespace {

constexpr std::size_t kEscape = 6;  // "\u1234"
constexpr std::string_view kReplacement = "\\uFFFD";

// Of the escape that `text` begins with.
std::optional<unsigned> code_unit(std::string_view text) {
  if (text.size() < kEscape || !text.starts_with("\\u")) return std::nullopt;
  unsigned unit = 0;
  const char* digits = text.data() + 2;
  const auto [end, error] = std::from_chars(digits, digits + 4, unit, 16);
  if (error != std::errc{} || end != digits + 4) return std::nullopt;
  return unit;
}

bool is_high(unsigned unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool is_low(unsigned unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// The length of the escape that `text` begins with; `is_sound` says whether it may stay.
std::size_t read_escape(std::string_view text, bool& is_sound) {
  is_sound = true;
  const std::optional<unsigned> unit = code_unit(text);
  if (!unit) return std::min<std::size_t>(2, text.size());
  if (is_high(*unit)) {
    const std::optional<unsigned> next = code_unit(text.substr(kEscape));
    if (next && is_low(*next)) return 2 * kEscape;
  }
  is_sound = *unit != 0 && !is_high(*unit) && !is_low(*unit);
  return kEscape;
}

}  // namespace

std::string tolerant_json(std::string_view json) {
  std::string text = valid_utf8(json);
  std::string sound;
  std::size_t copied = 0;
  for (std::size_t at = text.find('\\'); at < text.size(); at = text.find('\\', at)) {
    bool is_sound = true;
    const std::size_t length = read_escape(std::string_view(text).substr(at), is_sound);
    if (!is_sound) {
      sound.append(text, copied, at - copied).append(kReplacement);
      copied = at + length;
    }
    at += length;
  }
  if (copied == 0) return text;
  return sound.append(text, copied);
}

}  // namespace corvane
