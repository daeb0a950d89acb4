#include "companions/detect/model.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <utility>

#include "anomaly_database/statuses.h"
#include "finding/anomaly.h"
#include "finding/incident.h"

namespace corvane::detect {

namespace {

constexpr std::int32_t kNight = 12 * 60 * 60;
constexpr std::size_t kHeldRemembered = 8;
// The service gathers no older backups.
constexpr std::int32_t kLatest = 91 * 24 * 60 * 60;
constexpr std::size_t kRemovedAtOnce = 56;  // to remove one takes as long
constexpr std::size_t kGoodRemembered = 4;

void insert(auto& into, const Observation& observation) {
  const auto place = std::lower_bound(into.begin(), into.end(), observation);
  if (place != into.end() && place->is_same_row(observation)) {
    *place = observation;
  } else {
    into.insert(place, observation);
  }
}

void erase_key(auto& records, const std::string& unique_key) {
  std::erase_if(records, [&](const auto& record) { return record.unique_key == unique_key; });
}

void erase_backup(std::vector<BackupReference>& references, const Backup& backup) {
  std::erase_if(references, [&](const BackupReference& one) {
    return one.time == backup.time && one.backup_id == backup.backup_id;
  });
}

void remember_good(std::vector<BackupReference>& good, const Backup& backup) {
  if (good.size() == kGoodRemembered && backup.time < good.front().time) return;
  erase_backup(good, backup);
  good.insert(std::ranges::upper_bound(good, backup.time, {}, &BackupReference::time),
              {backup.backup_id, backup.time});
  if (good.size() > kGoodRemembered) good.erase(good.begin());
}

bool is_before(const Held& a, const Held& b) { return a.observation < b.observation; }

std::int32_t time_of(const Held& held) { return held.observation.time(); }

// Those up to `time`.
std::span<const Held> held_until(const std::vector<Held>& held, std::int32_t time) {
  return {held.begin(), std::ranges::upper_bound(held, time, {}, time_of)};
}

void erase_held(Stream& stream, const Backup& backup) {
  erase_key(stream.held, backup.unique_key);
  const auto first = std::ranges::lower_bound(stream.older_held, backup.time, {}, time_of);
  const auto end = std::ranges::upper_bound(stream.older_held, backup.time, {}, time_of);
  const auto at = std::find_if(
      first, end, [&](const Held& one) { return one.unique_key == backup.unique_key; });
  if (at != end) stream.older_held.erase(at);
}

// A backup that comes late needs those before it.
void forget_oldest(Stream& stream) {
  auto& older = stream.older_held;
  const std::int32_t oldest = time_of(stream.held.front()) - kLatest;
  const auto end = std::ranges::lower_bound(older, oldest, {}, time_of);
  const auto count = static_cast<std::size_t>(end - older.begin());
  if (count < kHeldRemembered + kRemovedAtOnce) return;
  older.erase(older.begin(), end - static_cast<std::ptrdiff_t>(kHeldRemembered));
}

// The latest one up to the time of the backup, but not itself; null: none.
Held* former_of(Stream& stream, const Backup& backup) {
  for (auto* all : {&stream.held, &stream.older_held}) {
    auto at = std::ranges::upper_bound(*all, backup.time, {}, time_of);
    while (at != all->begin()) {
      if ((--at)->unique_key != backup.unique_key) return &*at;
    }
  }
  return nullptr;
}

// Of those up to `time`, as many of the latest as a stream remembers.
void append_held(const Stream& stream, std::int32_t time, std::vector<Observation>& into) {
  const auto latest = held_until(stream.held, time);
  const auto older = held_until(stream.older_held, time);
  const auto missing = std::min(older.size(), kHeldRemembered - latest.size());
  for (const Held& one : older.last(missing)) into.push_back(one.observation);
  for (const Held& one : latest) into.push_back(one.observation);
}

std::deque<Observation>::const_iterator first_after(const std::deque<Observation>& history,
                                                    std::int32_t time) {
  return std::upper_bound(
      history.begin(), history.end(), time,
      [](std::int32_t value, const Observation& other) { return value < other.time(); });
}

// The newest one that is not after `time`; null when there is none.
const Observation* newest_at(const std::deque<Observation>& history, std::int32_t time) {
  const auto after = first_after(history, time);
  return after == history.begin() ? nullptr : &*(after - 1);
}

std::size_t count_until(const std::deque<Observation>& history, std::int32_t time) {
  return static_cast<std::size_t>(first_after(history, time) - history.begin());
}

}  // namespace

Stream& Model::stream_of(const StreamKey& key) {
  Stream*& stream = by_text_[key.text()];
  if (stream == nullptr) {
    streams_.push_back(std::make_unique<Stream>());
    stream = streams_.back().get();
    stream->key = key;
    sources_[key.client_and_policy()].streams.push_back(stream);
  }
  return *stream;
}

void Model::learn(const Backup& backup, int cluster) {
  Stream& stream = stream_of(backup.stream);
  const Observation observation(backup);
  if (cluster != kNoCluster) {
    insert(stream.by_people, observation);
    stream.last_cluster = std::max(stream.last_cluster, cluster);
    erase_key(stream.false_positives, backup.unique_key);
    stream.false_positives.push_back({backup.unique_key, backup.time, std::nullopt});
    erase_held(stream, backup);
    return;
  }
  if (settled_) {
    insert(stream.history, observation);
    if (stream.history.size() > settings_.stream.max_observations) stream.history.pop_front();
  } else {
    stream.history.push_back(observation);
  }
  remember_good(stream.last_good, backup);
}

void Model::hold(const Backup& backup, const std::string& incident) {
  Stream& stream = stream_of(backup.stream);
  erase_held(stream, backup);
  const auto insert_held = [](std::vector<Held>& into, Held one) {
    const auto place = std::upper_bound(into.begin(), into.end(), one, is_before);
    into.insert(place, std::move(one));
  };
  insert_held(stream.held, {Observation(backup), backup.unique_key, incident});
  if (stream.held.size() <= kHeldRemembered) return;
  insert_held(stream.older_held, std::move(stream.held.front()));
  stream.held.erase(stream.held.begin());
  forget_oldest(stream);
}

void Model::forget(const Backup& backup) {
  Stream& stream = stream_of(backup.stream);
  std::erase_if(stream.history, [gone = Observation(backup)](const Observation& other) {
    return other.is_same_row(gone);
  });
  erase_backup(stream.last_good, backup);
  erase_held(stream, backup);
}

void Model::forget_false_positive(const Backup& backup) {
  const Observation gone(backup);
  Stream& stream = stream_of(backup.stream);
  std::erase_if(stream.by_people,
                [&](const Observation& other) { return other.is_same_row(gone); });
  erase_key(stream.false_positives, backup.unique_key);
}

void Model::settle() {
  if (settled_) return;
  for (const auto& stream : streams_) {
    auto& history = stream->history;
    // The latest of the same row counts.
    if (!std::is_sorted(history.begin(), history.end())) {
      std::stable_sort(history.begin(), history.end());
    }
    auto kept = history.begin();
    for (auto at = history.begin(); at != history.end(); ++at) {
      if (at + 1 != history.end() && at->is_same_row(*(at + 1))) continue;
      *kept++ = *at;
    }
    history.erase(kept, history.end());
    const std::size_t most = std::min(history.size(), settings_.stream.max_observations);
    history.erase(history.begin(), history.end() - static_cast<std::ptrdiff_t>(most));
  }
  settled_ = true;
}

void Model::clear() {
  streams_.clear();
  by_text_.clear();
  sources_.clear();
  settled_ = false;
}

// What is known at `time`. Merges the streams that match: a record without a known application type
// or destination belongs to every stream of its family.
void Model::collect(const StreamKey& key, std::int32_t time, std::vector<Observation>& history,
                    std::vector<Observation>& by_people, std::vector<Observation>& held) {
  history.clear();
  by_people.clear();
  held.clear();
  for (const Stream* stream : sources_[key.client_and_policy()].streams) {
    const bool same_kind = !key.is_incremental() && !stream->key.is_incremental();
    if (same_kind || stream->key.matches(key)) append_held(*stream, time, held);
    if (!stream->key.matches(key)) continue;
    const auto middle =
        history.insert(history.end(), stream->history.begin(), first_after(stream->history, time));
    std::inplace_merge(history.begin(), middle, history.end());
    std::ranges::copy_if(stream->by_people, std::back_inserter(by_people),
                         [&](const Observation& other) { return other.time() <= time; });
  }
  keep_newest(history, time);
}

// Keeps what counts for a verdict at `time`.
void Model::keep_newest(std::vector<Observation>& history, std::int32_t time) const {
  const std::size_t kept = count_that_matter(std::span<const Observation>(history), time,
                                             settings_.stream, &Observation::time);
  history.erase(history.begin(), history.end() - static_cast<std::ptrdiff_t>(kept));
}

// Chooses the stream that has made the most full backups of the source.
void Model::find_full_backups(const Backup& backup, Question& question) {
  full_backups_.clear();
  const Stream* best = nullptr;
  std::size_t most = 0;
  const Stream* night_stream = nullptr;
  bool night_is_held = false;
  const auto consider = [&](const Stream* stream, const Observation& copy, bool held) {
    if (backup.time - copy.time() > kNight) return;
    if (night_stream != nullptr && copy.time() < same_night_.time()) return;
    same_night_ = copy;
    night_stream = stream;
    night_is_held = held;
  };
  for (const Stream* stream : sources_[backup.stream.client_and_policy()].streams) {
    if (stream->key.is_incremental() || stream->key.matches(backup.stream)) continue;
    const std::size_t count = count_until(stream->history, backup.time);
    if (count > most) {
      best = stream;
      most = count;
    }
    if (count > 0) consider(stream, *newest_at(stream->history, backup.time), false);
    for (const auto* all : {&stream->older_held, &stream->held}) {
      const auto held = held_until(*all, backup.time);
      if (!held.empty()) consider(stream, held.back().observation, true);
    }
  }
  if (best == nullptr) return;
  std::vector<Observation> held;
  collect(best->key, backup.time, full_backups_, unused_, held);
  question.full_backups = full_backups_;
  if (night_stream == nullptr) return;
  question.same_night = &same_night_;
  question.same_night_is_normal =
      !night_is_held &&
      count_until(night_stream->history, backup.time) >= settings_.stream.min_observations &&
      same_night_.figures().transferred_kb >= 0;
}

Verdict Model::judge(const Backup& backup) {
  settle();
  Question question;
  question.record = Observation(backup);
  question.incremental = backup.stream.is_incremental();
  collect(backup.stream, backup.time, history_, by_people_, held_);
  question.history = history_;
  question.by_people = by_people_;
  question.held = held_;
  find_full_backups(backup, question);
  return judge_.judge(question, settings_);
}

std::vector<const Stream*> Model::matching(const StreamKey& key) {
  std::vector<const Stream*> found;
  for (const Stream* stream : sources_[key.client_and_policy()].streams) {
    if (stream->key.matches(key)) found.push_back(stream);
  }
  return found;
}

BackupReference Model::last_good_of(const StreamKey& key) {
  BackupReference latest;
  for (const Stream* stream : matching(key)) {
    if (stream->last_good.empty() || stream->last_good.back().time < latest.time) continue;
    latest = stream->last_good.back();
  }
  return latest;
}

std::optional<std::int64_t> Model::last_accepted_at(const StreamKey& key, std::int32_t time) {
  std::optional<std::int64_t> latest;
  for (const Stream* stream : matching(key)) {
    const Observation* accepted = newest_at(stream->history, time);
    if (accepted == nullptr) continue;
    latest = std::max<std::int64_t>(latest.value_or(accepted->time()), accepted->time());
  }
  return latest;
}

std::int64_t Model::first_accepted_after(const StreamKey& key, std::int32_t time) {
  std::int64_t first = 0;
  for (const Stream* stream : matching(key)) {
    const auto after = first_after(stream->history, time);
    if (after == stream->history.end()) continue;
    if (first == 0 || after->time() < first) first = after->time();
  }
  return first;
}

bool Model::is_false_positive(Stream& stream, const std::string& incident, std::int32_t time) {
  return std::ranges::any_of(stream.false_positives, [&](FalsePositive& one) {
    if (one.time > time) return false;
    if (!one.incident) one.incident = reported_incident_(one.unique_key);
    return *one.incident == incident || incident_name(one.unique_key) == incident;
  });
}

std::string Model::incident_of(const Backup& backup) {
  Stream& stream = stream_of(backup.stream);
  Held* former = former_of(stream, backup);
  if (former == nullptr) return incident_name(backup.unique_key);
  if (former->incident.empty()) former->incident = reported_incident_(former->unique_key);
  if (former->incident.empty()) former->incident = incident_name(former->unique_key);
  const bool continues =
      continues_incident(former->observation.time(), last_accepted_at(backup.stream, backup.time),
                         is_false_positive(stream, former->incident, backup.time));
  return continues ? former->incident : incident_name(backup.unique_key);
}

}  // namespace corvane::detect
