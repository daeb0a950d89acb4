// The hours of the day in which only what is urgent is told.
#pragma once

#include <cstdint>
#include <string>

namespace corvane::alert {

// Minutes of the local day; the end may lie on the next one. Equal: no quiet hours.
struct QuietHours {
  int begin = 0;
  int end = 0;
  bool operator==(const QuietHours&) const = default;
};

// Takes "22:00-07:00", or the empty text for none. False, with `quiet` as it was, for anything
// else.
bool parse_quiet_hours(const std::string& text, QuietHours& quiet);

// When the quiet hours that `now` lies in are over; 0 when it lies in none.
std::int64_t end_of_quiet(const QuietHours& quiet, std::int64_t now);

}  // namespace corvane::alert
