#include "finding/stream_survey.h"

#include <algorithm>
#include <numeric>
#include <tuple>

#include "anomaly_database/backup_types.h"

namespace corvane {

namespace {

using Family = std::vector<const ScannedStream*>;

int parts_known(const StreamKey& key) {
  return (is_known_application(key.app_type) ? 1 : 0) +
         (is_known_destination(key.destination) ? 1 : 0);
}

// The sum of all streams of the family that match `key`.
StreamSummary summary_of(const StreamKey& key, const Family& family, const StreamSettings& settings,
                         std::int64_t now) {
  StreamSummary sum;
  sum.key = key;
  std::vector<std::int32_t> accepted;
  for (const ScannedStream* stream : family) {
    if (!stream->key.matches(key)) continue;
    const auto middle = static_cast<std::ptrdiff_t>(accepted.size());
    accepted.insert(accepted.end(), stream->accepted.begin(), stream->accepted.end());
    std::inplace_merge(accepted.begin(), accepted.begin() + middle, accepted.end());
    sum.false_positives += stream->false_positives;
    sum.waiting += stream->waiting;
    sum.anomalous += stream->anomalous;
    sum.newest = std::max(sum.newest, stream->newest);
  }
  sum.accepted = static_cast<std::int64_t>(accepted.size());
  if (!accepted.empty()) {
    sum.first = accepted.front();
    sum.last = accepted.back();
  }
  sum.that_matter = count_that_matter(std::span<const std::int32_t>(accepted), now, settings);
  sum.state = state_of(sum.that_matter, sum.last, now, settings);
  return sum;
}

// The streams of a family differ at most in what is not known. One that matches another of which
// more is known is not a stream of its own.
void survey_family(Family& family, const StreamSettings& settings, std::int64_t now,
                   StreamSurvey& result) {
  std::ranges::stable_sort(family, [](const ScannedStream* a, const ScannedStream* b) {
    return parts_known(a->key) > parts_known(b->key);
  });
  const std::size_t begin = result.streams.size();
  for (const ScannedStream* stream : family) {
    const auto holds = [&](const StreamSummary& other) {
      return other.key.matches(stream->key) && parts_known(other.key) > parts_known(stream->key);
    };
    const auto first = result.streams.begin() + static_cast<std::ptrdiff_t>(begin);
    const auto holder = std::find_if(first, result.streams.end(), holds);
    const auto place = static_cast<std::size_t>(holder - result.streams.begin());
    StreamSummary own = summary_of(stream->key, family, settings, now);
    result.known[stream->key.text()] = {place, own.last};
    if (holder == result.streams.end()) result.streams.push_back(std::move(own));
  }
}

void sort_streams(StreamSurvey& result) {
  std::vector<std::size_t> order(result.streams.size());
  std::iota(order.begin(), order.end(), 0);
  std::ranges::sort(order, {}, [&](std::size_t i) {
    const StreamKey& key = result.streams[i].key;
    return std::tie(key.client, key.policy, key.schedule_name, key.schedule_type, key.app_type,
                    key.destination);
  });
  std::vector<StreamSummary> sorted;
  std::vector<std::size_t> moved_to(order.size());
  sorted.reserve(order.size());
  for (const std::size_t i : order) {
    moved_to[i] = sorted.size();
    sorted.push_back(std::move(result.streams[i]));
  }
  result.streams = std::move(sorted);
  for (auto& [text, known] : result.known) known.place = moved_to[known.place];
}

}  // namespace

std::int64_t StreamSurvey::count(StreamState state) const {
  return std::ranges::count(streams, state, &StreamSummary::state);
}

std::optional<std::size_t> StreamSurvey::place_of(const std::string& text) const {
  const auto found = known.find(text);
  return found == known.end() ? std::nullopt : std::optional(found->second.place);
}

std::int64_t StreamSurvey::last_accepted(const std::string& text) const {
  const auto found = known.find(text);
  return found == known.end() ? 0 : found->second.last_accepted;
}

StreamSurvey survey(const StreamScan& scan, const StreamSettings& settings, std::int64_t now) {
  StreamSurvey result;
  result.history_rows = scan.history_rows;
  result.process_rows = scan.process_rows;
  result.waiting_rows = scan.waiting_rows;
  result.oldest_waiting = scan.oldest_waiting;
  std::unordered_map<std::string, Family> families;
  for (const ScannedStream& stream : scan.streams) families[stream.key.family()].push_back(&stream);
  for (auto& [name, family] : families) survey_family(family, settings, now, result);
  sort_streams(result);
  return result;
}

}  // namespace corvane
