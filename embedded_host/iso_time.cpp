#include "embedded_host/iso_time.h"

#include <chrono>
#include <ctime>

namespace corvane::host {

namespace {

// Takes `digits` digits from the front of `text`. Negative if there are fewer.
int take_number(std::string_view& text, std::size_t digits) {
  if (text.size() < digits) return -1;
  int number = 0;
  for (const char c : text.substr(0, digits)) {
    if (c < '0' || c > '9') return -1;
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

// The fraction after the seconds, in milliseconds; 0 if there is none, negative if it is invalid.
int take_fraction(std::string_view& text) {
  if (!take_mark(text, '.')) return 0;
  const std::size_t digits = text.find_first_not_of("0123456789");
  if (digits == 0 || digits > 3) return -1;  // npos, no end at all, is above 3 too
  int milliseconds = take_number(text, digits);
  for (std::size_t place = digits; place < 3; ++place) milliseconds *= 10;
  return milliseconds;
}

}  // namespace

std::string iso_time(std::int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  gmtime_r(&time, &parts);
  char rest[40];
  const std::size_t length = std::strftime(rest, sizeof rest, "-%m-%dT%H:%M:%S.000Z", &parts);
  // strftime writes early years with fewer than four digits.
  std::string text = std::to_string(parts.tm_year + 1900);
  if (text.size() < 4) text.insert(0, 4 - text.size(), '0');
  return text.append(rest, length);
}

std::optional<Instant> parse_iso_time(std::string_view text) {
  const int year = take_number(text, 4);
  const bool has_month = take_mark(text, '-');
  const int month = take_number(text, 2);
  const bool has_day = take_mark(text, '-');
  const int day = take_number(text, 2);
  const bool has_hour = take_mark(text, 'T');
  const int hour = take_number(text, 2);
  const bool has_minute = take_mark(text, ':');
  const int minute = take_number(text, 2);
  const bool has_second = take_mark(text, ':');
  const int second = take_number(text, 2);
  const int milliseconds = take_fraction(text);
  const bool complete = has_month && has_day && has_hour && has_minute && has_second &&
                        take_mark(text, 'Z') && text.empty();
  if (!complete || year < 0 || hour < 0 || minute < 0 || second < 0 || milliseconds < 0 ||
      hour > 23 || minute > 59 || second > 59) {
    return std::nullopt;
  }
  const std::chrono::year_month_day date{std::chrono::year{year},
                                         std::chrono::month{static_cast<unsigned>(month)},
                                         std::chrono::day{static_cast<unsigned>(day)}};
  if (!date.ok()) return std::nullopt;
  const auto days = std::chrono::sys_days{date}.time_since_epoch().count();
  return Instant{((std::int64_t{days} * 24 + hour) * 60 + minute) * 60 + second, milliseconds};
}

}  // namespace corvane::host
