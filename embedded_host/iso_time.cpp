#include "embedded_host/iso_time.h"

#include <algorithm>
#include <chrono>
#include <ctime>

namespace corvane::host {

namespace {

// Takes `digits` digits from the front of `text`. Nothing if there are fewer.
std::optional<int> take_number(std::string_view& text, std::size_t digits) {
  if (text.size() < digits) return std::nullopt;
  int number = 0;
  for (const char c : text.substr(0, digits)) {
    if (c < '0' || c > '9') return std::nullopt;
    number = number * 10 + (c - '0');
  }
  text.remove_prefix(digits);
  return number;
}

bool take_mark(std::string_view& text, char mark) {
  if (text.empty() || text.front() != mark) return false;
  text.remove_prefix(1);
  return true;
}

// The fraction after the seconds, in milliseconds; 0 if there is none, nothing if it is invalid.
std::optional<int> take_fraction(std::string_view& text) {
  if (!take_mark(text, '.')) return 0;
  const std::size_t digits = text.find_first_not_of("0123456789");
  if (digits == 0 || digits > 3) return std::nullopt;  // npos, no end at all, is above 3 too
  std::optional<int> milliseconds = take_number(text, digits);
  for (std::size_t place = digits; place < 3; ++place) *milliseconds *= 10;
  return milliseconds;
}

// With zeros in front, if it has fewer digits.
std::string padded(int number, std::size_t digits) {
  const std::string text = std::to_string(number);
  return std::string(digits - std::min(digits, text.size()), '0') + text;
}

}  // namespace

std::string iso_time(std::int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  gmtime_r(&time, &parts);
  return padded(parts.tm_year + 1900, 4) + "-" + padded(parts.tm_mon + 1, 2) + "-" +
         padded(parts.tm_mday, 2) + "T" + padded(parts.tm_hour, 2) + ":" + padded(parts.tm_min, 2) +
         ":" + padded(parts.tm_sec, 2) + ".000Z";
}

std::optional<Instant> parse_iso_time(std::string_view text) {
  const auto year = take_number(text, 4);
  const bool has_month = take_mark(text, '-');
  const auto month = take_number(text, 2);
  const bool has_day = take_mark(text, '-');
  const auto day = take_number(text, 2);
  const bool has_hour = take_mark(text, 'T');
  const auto hour = take_number(text, 2);
  const bool has_minute = take_mark(text, ':');
  const auto minute = take_number(text, 2);
  const bool has_second = take_mark(text, ':');
  const auto second = take_number(text, 2);
  const auto milliseconds = take_fraction(text);
  const bool has_marks = has_month && has_day && has_hour && has_minute && has_second &&
                         take_mark(text, 'Z') && text.empty();
  const bool has_numbers = year && month && day && hour && minute && second && milliseconds;
  if (!has_marks || !has_numbers || *hour > 23 || *minute > 59 || *second > 59) {
    return std::nullopt;
  }
  const std::chrono::year_month_day date{std::chrono::year{*year},
                                         std::chrono::month{static_cast<unsigned>(*month)},
                                         std::chrono::day{static_cast<unsigned>(*day)}};
  if (!date.ok()) return std::nullopt;
  const auto days = std::chrono::sys_days{date}.time_since_epoch().count();
  return Instant{((std::int64_t{days} * 24 + *hour) * 60 + *minute) * 60 + *second, *milliseconds};
}

}  // namespace corvane::host
