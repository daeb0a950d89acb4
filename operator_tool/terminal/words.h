// Times for people at a terminal; numbers and amounts are in finding/words.h.
#pragma once

#include <cstdint>
#include <string>

#include "finding/words.h"

namespace corvane::ctl {

// "2026-11-16 20:30" of seconds since the epoch, in the local time zone or in UTC; "-" when there
// is none.
std::string time_text(std::int64_t seconds, bool utc);
// The same with the zone: "2026-11-16 20:30 UTC".
std::string moment_text(std::int64_t seconds, bool utc);

}  // namespace corvane::ctl
