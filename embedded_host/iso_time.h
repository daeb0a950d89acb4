// Times as the web service writes and reads them: UTC, "2026-01-31T04:05:06.000Z".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvane::host {

struct Instant {
  std::int64_t seconds = 0;  // since the epoch
  int milliseconds = 0;
};

// The text of a time in whole seconds since the epoch, from the year 0 to 9999.
std::string iso_time(std::int64_t seconds);

// Reads "2026-01-31T04:05:06Z", with or without a fraction of one to three digits. Empty for any
// other form, and for days and hours that do not exist.
std::optional<Instant> parse_iso_time(std::string_view text);

}  // namespace corvane::host
