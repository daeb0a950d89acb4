#include "companions/detect/model.h"

#include <algorithm>

#include "anomaly_database/statuses.h"
#include "finding/anomaly.h"
#include "finding/incident.h"

namespace corvane::detect {

namespace {

constexpr std::int32_t kNight = 12 * 60 * 60;
constexpr std::size_t kHeldRemembered = 8;

void insert(auto& into, const Observation& observation) {
  const auto place = std::lower_bound(into.begin(), into.end(), observation);
  if (place != into.end() && place->is_same_row(observation)) {
    *place = observation;
  } else {
    into.insert(place, observation);
  }
}

void forget(auto& records, const std::string& unique_key) {
  std::erase_if(records, [&](const auto& record) { return record.unique_key == unique_key; });
}

std::deque<Observation>::const_iterator first_after(const std::deque<Observation>& history,
                                                    std::int32_t time) {
  return std::upper_bound(
      history.begin(), history.end(), time,
      [](std::int32_t value, const Observation& other) { return value < other.time(); });
}

// The newest one that is not after `time`, else the first one; null when there are none.
const Observation* newest_at(const std::deque<Observation>& history, std::int32_t time) {
  const auto after = first_after(history, time);
  if (history.empty()) return nullptr;
  return after == history.begin() ? &history.front() : &*(after - 1);
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
    forget(stream.false_positives, backup.unique_key);
    stream.false_positives.push_back({backup.unique_key, std::nullopt});
    forget(stream.held, backup.unique_key);
    return;
  }
  if (settled_) {
    insert(stream.history, observation);
    if (stream.history.size() > settings_.stream.max_observations) stream.history.pop_front();
  } else {
    stream.history.push_back(observation);
  }
  if (backup.time >= stream.last_good.time) stream.last_good = {backup.backup_id, backup.time};
}

void Model::hold(const Backup& backup, const std::string& incident) {
  Stream& stream = stream_of(backup.stream);
  forget(stream.held, backup.unique_key);
  stream.held.push_back({Observation(backup), backup.unique_key, incident});
  std::sort(stream.held.begin(), stream.held.end(),
            [](const Held& a, const Held& b) { return a.observation < b.observation; });
  if (stream.held.size() > kHeldRemembered) stream.held.erase(stream.held.begin());
}

void Model::forget_false_positive(const Backup& backup) {
  const Observation gone(backup);
  Stream& stream = stream_of(backup.stream);
  std::erase_if(stream.by_people,
                [&](const Observation& other) { return other.is_same_row(gone); });
  forget(stream.false_positives, backup.unique_key);
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

// Merges the streams that match: a record without a known application type or destination belongs
// to every stream of its family.
void Model::collect(const StreamKey& key, std::int32_t time, std::vector<Observation>& history,
                    std::vector<Observation>& by_people, std::vector<Observation>& held) {
  history.clear();
  by_people.clear();
  held.clear();
  for (const Stream* stream : sources_[key.client_and_policy()].streams) {
    const bool same_kind = !key.is_incremental() && !stream->key.is_incremental();
    if (same_kind || stream->key.matches(key)) {
      for (const Held& other : stream->held) held.push_back(other.observation);
    }
    if (!stream->key.matches(key)) continue;
    const auto middle =
        history.insert(history.end(), stream->history.begin(), stream->history.end());
    std::inplace_merge(history.begin(), middle, history.end());
    by_people.insert(by_people.end(), stream->by_people.begin(), stream->by_people.end());
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
  const Stream* night_stream = nullptr;
  bool night_is_held = false;
  const auto consider = [&](const Stream* stream, const Observation& copy, bool held) {
    if (copy.time() > backup.time || backup.time - copy.time() > kNight) return;
    if (night_stream != nullptr && copy.time() < same_night_.time()) return;
    same_night_ = copy;
    night_stream = stream;
    night_is_held = held;
  };
  for (const Stream* stream : sources_[backup.stream.client_and_policy()].streams) {
    if (stream->key.is_incremental() || stream->key.matches(backup.stream)) continue;
    if (!stream->history.empty()) {
      if (best == nullptr || stream->history.size() > best->history.size()) best = stream;
      consider(stream, *newest_at(stream->history, backup.time), false);
    }
    for (const Held& held : stream->held) consider(stream, held.observation, true);
  }
  if (best == nullptr) return;
  std::vector<Observation> held;
  collect(best->key, backup.time, full_backups_, unused_, held);
  question.full_backups = full_backups_;
  if (night_stream == nullptr) return;
  question.same_night = &same_night_;
  question.same_night_is_normal =
      !night_is_held && night_stream->history.size() >= settings_.stream.min_observations &&
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
    if (stream->last_good.time >= latest.time) latest = stream->last_good;
  }
  return latest;
}

std::optional<std::int64_t> Model::last_accepted_at(const StreamKey& key, std::int32_t time) {
  std::optional<std::int64_t> latest;
  for (const Stream* stream : matching(key)) {
    const Observation* accepted = newest_at(stream->history, time);
    if (accepted == nullptr || accepted->time() > time) continue;
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

bool Model::is_false_positive(Stream& stream, const std::string& incident) {
  return std::any_of(
      stream.false_positives.begin(), stream.false_positives.end(), [&](FalsePositive& one) {
        if (!one.incident) one.incident = reported_incident_(one.unique_key);
        return *one.incident == incident || incident_name(one.unique_key) == incident;
      });
}

std::string Model::incident_of(const Backup& backup) {
  Stream& stream = stream_of(backup.stream);
  const auto former = std::find_if(stream.held.rbegin(), stream.held.rend(), [&](const Held& held) {
    return held.observation.time() <= backup.time && held.unique_key != backup.unique_key;
  });
  if (former == stream.held.rend()) return incident_name(backup.unique_key);
  if (former->incident.empty()) former->incident = reported_incident_(former->unique_key);
  if (former->incident.empty()) former->incident = incident_name(former->unique_key);
  const bool continues =
      continues_incident(former->observation.time(), last_accepted_at(backup.stream, backup.time),
                         is_false_positive(stream, former->incident));
  return continues ? former->incident : incident_name(backup.unique_key);
}

}  // namespace corvane::detect
