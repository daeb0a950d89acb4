// How much a stream's history counts, and what its state is. These rules stand here alone; the
// detection judges by them, and whoever tells of streams asks them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <span>
#include <string>

#include "config/service_values.h"
#include "config/settings.h"

namespace corvane {

// The settings that they depend on.
struct StreamSettings {
  std::size_t min_observations =
      static_cast<std::size_t>(default_number(setting::kMinObservations));
  std::size_t max_observations =
      static_cast<std::size_t>(default_number(setting::kMaxObservations));
  // After a pause longer than so many days a stream learns anew.
  int days_to_ignore = default_number(setting::kDaysToIgnore);
  // Of 30 days; older history does not count. 0 or less: none does.
  int purge_months = default_number(setting::kPurgeInterval);
};

// Of accepted backups, ascending by time, how many of the last ones count for a verdict on a backup
// at `time`: those since the last long pause that are not too old, and of these the newest.
// `time_of` gives the time of an element, in seconds since the epoch.
template <typename Element, typename TimeOf = std::identity>
std::size_t count_that_matter(std::span<const Element> accepted, std::int64_t time,
                              const StreamSettings& settings, TimeOf time_of = {}) {
  constexpr std::int64_t kSecondsOfDay = 86400;
  const std::int64_t longest = std::int64_t{settings.days_to_ignore} * kSecondsOfDay;
  const std::int64_t oldest = purge_cut_off(static_cast<int>(time), settings.purge_months);
  std::int64_t later = time;
  std::size_t count = 0;
  for (auto at = accepted.rbegin(); at != accepted.rend() && count < settings.max_observations;
       ++at) {
    const std::int64_t own = std::invoke(time_of, *at);
    if (later - own > longest || own < oldest) break;
    later = std::min(later, own);
    ++count;
  }
  return count;
}

enum class StreamState {
  kLearning,  // fewer backups matter than the detection wants
  kJudged,
  kDormant,  // silent for so long that it will learn anew
};

// "learning", "judged", "dormant".
const char* name_of(StreamState state);

// The state at `now` of a stream of whose accepted backups so many matter; `last`: time of the
// latest, 0 for none.
StreamState state_of(std::size_t that_matter, std::int64_t last, std::int64_t now,
                     const StreamSettings& settings);

// "learning 4 of 30", "judged", "dormant".
std::string words_for(StreamState state, std::size_t that_matter, const StreamSettings& settings);

}  // namespace corvane
