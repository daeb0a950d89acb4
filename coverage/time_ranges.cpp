#include "coverage/time_ranges.h"

#include <algorithm>
#include <iterator>

namespace corvane::coverage {

void TimeRanges::add(TimeRange range) {
  if (range.is_empty()) return;
  auto at = ends_.upper_bound(range.begin);
  if (at != ends_.begin() && std::prev(at)->second >= range.begin - 1) --at;
  while (at != ends_.end() && at->first - 1 <= range.end) {
    range.begin = std::min(range.begin, at->first);
    range.end = std::max(range.end, at->second);
    at = ends_.erase(at);
  }
  ends_.emplace(range.begin, range.end);
}

void TimeRanges::remove(TimeRange range) {
  if (range.is_empty()) return;
  auto at = ends_.upper_bound(range.begin);
  if (at != ends_.begin() && std::prev(at)->second >= range.begin) --at;
  while (at != ends_.end() && at->first <= range.end) {
    const auto [begin, end] = *at;
    at = ends_.erase(at);
    if (begin < range.begin) ends_.emplace(begin, range.begin - 1);
    if (end > range.end) ends_.emplace(range.end + 1, end);
  }
}

std::vector<TimeRange> TimeRanges::all() const {
  std::vector<TimeRange> ranges;
  for (const auto& [begin, end] : ends_) ranges.push_back({begin, end});
  return ranges;
}

std::vector<TimeRange> TimeRanges::gaps_in(TimeRange range) const {
  TimeRanges gaps;
  gaps.add(range);
  for (const auto& [begin, end] : ends_) gaps.remove({begin, end});
  return gaps.all();
}

}  // namespace corvane::coverage
