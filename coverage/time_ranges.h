// Sets of seconds, as ranges.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <vector>

namespace corvane::coverage {

// Seconds since the epoch, both ends included.
struct TimeRange {
  std::int64_t begin = 0;
  std::int64_t end = 0;

  bool is_empty() const { return end < begin; }
  friend auto operator<=>(const TimeRange&, const TimeRange&) = default;
};

// The end of a range without one. What comes a second later is a number, too.
inline constexpr std::int64_t kEver = std::numeric_limits<std::int64_t>::max() - 1;

class TimeRanges {
 public:
  // Empty ranges change nothing.
  void add(TimeRange range);
  void remove(TimeRange range);

  // In order, as few as possible: none of them touches another.
  std::vector<TimeRange> all() const;
  // What of a range is missing, in order.
  std::vector<TimeRange> gaps_in(TimeRange range) const;

 private:
  std::map<std::int64_t, std::int64_t> ends_;  // by their begin
};

}  // namespace corvane::coverage
