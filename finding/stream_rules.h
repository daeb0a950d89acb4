// Which accepted backups are a stream's baseline, and what state the stream is in. These rules
// exist only here; the detection and the operator's tool use them.
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
#include "finding/words.h"

namespace corvane {

// The settings that these rules depend on.
struct StreamSettings {
  std::size_t min_observations =
      static_cast<std::size_t>(default_number(setting::kMinObservations));
  std::size_t max_observations =
      static_cast<std::size_t>(default_number(setting::kMaxObservations));
  // After a pause of more than this many days a stream learns again.
  int days_to_ignore = default_number(setting::kDaysToIgnore);
  // Months of 30 days. Older history does not count; with 0 or less none does.
  int purge_months = default_number(setting::kPurgeInterval);
};

// How many of the last accepted backups are the baseline of a backup at `time`: those since the
// last long pause that are not too old, at most max_observations. `accepted` ascends by time;
// `time_of` returns the time of an element, in seconds since the epoch.
template <typename Element, typename TimeOf = std::identity>
std::size_t count_that_matter(std::span<const Element> accepted, std::int64_t time,
                              const StreamSettings& settings, TimeOf time_of = {}) {
  const std::int64_t longest = std::int64_t{settings.days_to_ignore} * kDay;
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
  kLearning,  // the baseline is still too small
  kJudged,
  kDormant,  // without a backup for so long that it will learn again
};

// "learning", "judged", "dormant".
const char* name_of(StreamState state);

// The state at `now` of a stream with a baseline of `that_matter` backups. `last`: time of the
// latest accepted backup; 0: none.
StreamState state_of(std::size_t that_matter, std::int64_t last, std::int64_t now,
                     const StreamSettings& settings);

// "learning 4 of 30", "judged", "dormant".
std::string words_for(StreamState state, std::size_t that_matter, const StreamSettings& settings);

}  // namespace corvane
