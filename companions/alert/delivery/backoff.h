// How long to wait before retrying.
#pragma once

#include <cstdint>

namespace corvane::alert {

inline constexpr std::int64_t kLongestPauseSeconds = 900;

// Seconds after `failures` failures in a row (at least 1): 1, 2, 4, ... up to 15 minutes. `chance`
// (0 to 1) spreads each pause from half to one and a half of it, so that many senders do not retry
// at the same moment.
std::int64_t pause_after(std::int64_t failures, double chance);

// A random number from 0 to 1. Any thread may call it.
double chance();

}  // namespace corvane::alert
