#include "companions/alert/quiet_hours.h"

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <regex>

namespace corvane::alert {

namespace {

constexpr int kMinutesOfDay = 24 * 60;

bool is_time(int hours, int minutes) {
  return minutes < 60 && hours * 60 + minutes <= kMinutesOfDay;
}

}  // namespace

bool parse_quiet_hours(const std::string& text, QuietHours& quiet) {
  if (text.empty()) {
    quiet = {};
    return true;
  }
  static const std::regex kForm(R"((\d\d?):(\d\d?)-(\d\d?):(\d\d?))");
  std::smatch found;
  if (!std::regex_match(text, found, kForm)) return false;
  const auto number = [&found](std::size_t part) { return std::stoi(found.str(part)); };
  if (!is_time(number(1), number(2)) || !is_time(number(3), number(4))) return false;
  quiet = {(number(1) * 60 + number(2)) % kMinutesOfDay,
           (number(3) * 60 + number(4)) % kMinutesOfDay};
  return true;
}

std::int64_t end_of_quiet(const QuietHours& quiet, std::int64_t now) {
  if (quiet.begin == quiet.end) return 0;
  const std::time_t time = now;
  std::tm local{};
  localtime_r(&time, &local);
  const int minute = local.tm_hour * 60 + local.tm_min;
  const bool over_midnight = quiet.begin > quiet.end;
  const bool is_quiet = over_midnight ? minute >= quiet.begin || minute < quiet.end
                                      : minute >= quiet.begin && minute < quiet.end;
  if (!is_quiet) return 0;
  // By the calendar: a day on which the clocks change does not have 24 hours.
  if (over_midnight && minute >= quiet.begin) ++local.tm_mday;
  local.tm_hour = quiet.end / 60;
  local.tm_min = quiet.end % 60;
  local.tm_sec = 0;
  local.tm_isdst = -1;
  return std::max<std::int64_t>(std::mktime(&local), now + 1);
}

}  // namespace corvane::alert
