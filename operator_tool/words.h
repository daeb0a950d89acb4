// Times, spans and amounts for people.
#pragma once

#include <cstdint>
#include <string>

#include "companions/alert/sentence.h"

namespace corvane::ctl {

// "2026-11-16 20:30" of seconds since the epoch, in the local time zone or in UTC; "-" when there
// is none.
std::string time_text(std::int64_t seconds, bool utc);
// The same with the zone: "2026-11-16 20:30 UTC".
std::string moment_text(std::int64_t seconds, bool utc);

// "45 s", "12 min", "3 h 20 min", "12 d 3 h".
std::string span_text(std::int64_t seconds);

// "1.2 GB" of kilobytes of 1024 bytes; "-" for a negative number.
std::string size_text(double kilobytes);

// "1 client", "12,345 clients".
using alert::counted;

}  // namespace corvane::ctl
