// Spans of time in seconds.
#pragma once

#include <cstdint>

namespace corvane::ctl {

inline constexpr std::int64_t kMinute = 60;
inline constexpr std::int64_t kHour = 3600;
inline constexpr std::int64_t kDay = 86400;

}  // namespace corvane::ctl
