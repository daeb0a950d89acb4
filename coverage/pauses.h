// How long something that failed is left alone.
#pragma once

#include <algorithm>
#include <cstdint>

#include "finding/words.h"

namespace corvane::coverage {

inline constexpr std::int64_t kFirstPause = 5 * kMinute;

// After so many attempts: 5 minutes, doubled each time, up to 6 hours.
inline std::int64_t pause_after(std::int64_t attempts) {
  const std::int64_t doublings = std::clamp<std::int64_t>(attempts - 1, 0, 10);
  return std::min(kFirstPause << doublings, 6 * kHour);
}

}  // namespace corvane::coverage
