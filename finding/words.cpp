#include "finding/words.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace corvane {

namespace {

constexpr std::int64_t kLastSecond = 253402300799;  // of the year 9999

std::string two_parts(std::int64_t whole, const char* unit, std::int64_t rest,
                      const char* rest_unit) {
  std::string text = std::to_string(whole) + " " + unit;
  if (rest > 0) text += " " + std::to_string(rest) + " " + rest_unit;
  return text;
}

}  // namespace

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

std::string counted(std::int64_t number, const std::string& one, const std::string& many) {
  return number_text(static_cast<double>(number)) + " " + (number == 1 ? one : many);
}

std::string size_text(double kilobytes) {
  if (!(kilobytes >= 0)) return "-";
  std::size_t unit = 0;
  while (kilobytes >= 1024 && unit + 1 < kSizeUnits.size()) {
    kilobytes /= 1024;
    ++unit;
  }
  std::array<char, 32> tenths{};
  std::snprintf(tenths.data(), tenths.size(), "%.1f", kilobytes);
  const bool is_fine = kilobytes < 10 && unit > 0;
  return (is_fine ? tenths.data() : number_text(std::nearbyint(kilobytes))) + " " +
         kSizeUnits.at(unit);
}

std::string span_text(std::int64_t seconds) {
  seconds = std::max<std::int64_t>(seconds, 0);
  if (seconds < 2 * kMinute) return std::to_string(seconds) + " s";
  if (seconds < 2 * kHour) return std::to_string(seconds / kMinute) + " min";
  if (seconds < 2 * kDay) {
    return two_parts(seconds / kHour, "h", seconds % kHour / kMinute, "min");
  }
  return two_parts(seconds / kDay, "d", seconds % kDay / kHour, "h");
}

std::string formatted_time(std::int64_t seconds, bool utc, const char* format) {
  if (seconds <= 0 || seconds > kLastSecond) return {};
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

std::string utc_text(std::int64_t seconds) {
  const std::string text = formatted_time(seconds, true, "%Y-%m-%d %H:%M UTC");
  return text.empty() ? "an unknown time" : text;
}

}  // namespace corvane
