// Reading numbers from text.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace corvane::host {

// The number that `text` is. Nothing if there is anything else in it, even a blank or a "+", or if
// the number is too large.
template <typename Number>
std::optional<Number> parse_number(std::string_view text) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, number);
  if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
  return number;
}

}  // namespace corvane::host
