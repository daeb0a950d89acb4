// How long to wait before a failed attempt is repeated.
#pragma once

#include <cstdint>

namespace corvane::alert {

inline constexpr std::int64_t kLongestPauseSeconds = 900;

// Seconds after so many failures in a row (at least 1): 1, 2, 4, ... up to 15 minutes, each spread
// by `chance` (0 to 1) over half to one and a half of it, so that many senders do not come at once.
std::int64_t pause_after(std::int64_t failures, double chance);

// A random number from 0 to 1. From any thread.
double chance();

}  // namespace corvane::alert
