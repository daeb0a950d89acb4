// The hours of the day in which people get urgent alerts only.
#pragma once

#include <cstdint>
#include <string>

namespace corvane::alert {

// Minutes since local midnight. The end may be on the next day. Equal: no quiet hours.
struct QuietHours {
  int begin = 0;
  int end = 0;
  bool operator==(const QuietHours&) const = default;
};

// Parses "22:00-07:00"; an empty text means no quiet hours. False for anything else; `quiet` is
// then unchanged.
bool parse_quiet_hours(const std::string& text, QuietHours& quiet);

// The end of the quiet hours around `now`; 0 outside quiet hours. Seconds since the epoch.
std::int64_t end_of_quiet(const QuietHours& quiet, std::int64_t now);

}  // namespace corvane::alert
