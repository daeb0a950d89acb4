// Times as people type them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace corvane::ctl {

// "2026-11-20", "2026-11-20 08:00" or "2026-11-20T08:00:30", in UTC or in local time, as seconds
// since the epoch. Without a time of day it is the beginning of the day. Nothing for a date that
// does not exist, or another text.
std::optional<std::int64_t> read_time(const std::string& text, bool utc);

}  // namespace corvane::ctl
