#include "companions/alert/quiet_hours.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>

namespace corvane::alert {

namespace {

constexpr int kMinutesOfDay = 24 * 60;

bool is_time(int hours, int minutes) {
  return minutes >= 0 && minutes < 60 && hours >= 0 && hours * 60 + minutes <= kMinutesOfDay;
}

}  // namespace

bool parse_quiet_hours(const std::string& text, QuietHours& quiet) {
  if (text.empty()) {
    quiet = {};
    return true;
  }
  int hours[2]{};
  int minutes[2]{};
  int length = 0;
  const int found = std::sscanf(text.c_str(), "%2d:%2d-%2d:%2d%n", &hours[0], &minutes[0],
                                &hours[1], &minutes[1], &length);
  const bool has_other = std::any_of(text.begin(), text.end(), [](unsigned char letter) {
    return std::isdigit(letter) == 0 && letter != ':' && letter != '-';
  });
  if (found != 4 || has_other || static_cast<std::size_t>(length) != text.size() ||
      !is_time(hours[0], minutes[0]) || !is_time(hours[1], minutes[1])) {
    return false;
  }
  quiet = {(hours[0] * 60 + minutes[0]) % kMinutesOfDay,
           (hours[1] * 60 + minutes[1]) % kMinutesOfDay};
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
  // By the calendar, since a day on which the clocks change has not 24 hours.
  if (over_midnight && minute >= quiet.begin) ++local.tm_mday;
  local.tm_hour = quiet.end / 60;
  local.tm_min = quiet.end % 60;
  local.tm_sec = 0;
  local.tm_isdst = -1;
  return std::max<std::int64_t>(std::mktime(&local), now + 1);
}

}  // namespace corvane::alert
