#include "operator_tool/words.h"

#include <array>
#include <cstdio>
#include <ctime>

#include "operator_tool/seconds.h"

namespace corvane::ctl {

namespace {

constexpr std::int64_t kLastSecond = 253402300799;  // of the year 9999

std::string formatted(std::int64_t seconds, bool utc, const char* format) {
  if (seconds <= 0 || seconds > kLastSecond) return "-";
  const std::time_t time = seconds;
  std::tm parts{};
  if (utc) {
    gmtime_r(&time, &parts);
  } else {
    localtime_r(&time, &parts);
  }
  std::array<char, 64> text{};
  std::strftime(text.data(), text.size(), format, &parts);
  return text.data();
}

std::string two_parts(std::int64_t whole, const char* unit, std::int64_t rest,
                      const char* rest_unit) {
  std::string text = std::to_string(whole) + " " + unit;
  if (rest > 0) text += " " + std::to_string(rest) + " " + rest_unit;
  return text;
}

}  // namespace

std::string time_text(std::int64_t seconds, bool utc) {
  return formatted(seconds, utc, "%Y-%m-%d %H:%M");
}

std::string moment_text(std::int64_t seconds, bool utc) {
  return formatted(seconds, utc, utc ? "%Y-%m-%d %H:%M UTC" : "%Y-%m-%d %H:%M %Z");
}

std::string span_text(std::int64_t seconds) {
  if (seconds < 0) return "0 s";
  if (seconds < 2 * kMinute) return std::to_string(seconds) + " s";
  if (seconds < 2 * kHour) return std::to_string(seconds / kMinute) + " min";
  if (seconds < 2 * kDay) {
    return two_parts(seconds / kHour, "h", seconds % kHour / kMinute, "min");
  }
  return two_parts(seconds / kDay, "d", seconds % kDay / kHour, "h");
}

std::string size_text(double kilobytes) {
  if (!(kilobytes >= 0)) return "-";
  constexpr std::array kUnits{"KB", "MB", "GB", "TB", "PB", "EB"};
  std::size_t unit = 0;
  while (kilobytes >= 1024 && unit + 1 < kUnits.size()) {
    kilobytes /= 1024;
    ++unit;
  }
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), kilobytes < 10 && unit > 0 ? "%.1f %s" : "%.0f %s",
                kilobytes, kUnits.at(unit));
  return text.data();
}

}  // namespace corvane::ctl
