#include "operator_tool/survey.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <tuple>

#include "companions/common/backup_types.h"
#include "operator_tool/seconds.h"
#include "operator_tool/stream_rows.h"

namespace corvane::ctl {

namespace {

constexpr char kHistory[] =
    "SELECT " STREAM_COLUMNS "USER_IDENTIFIED_CLUSTER FROM HIST_DATA WHERE rowid > ?" BY_PORTIONS;
constexpr char kRows[] =
    "SELECT " STREAM_COLUMNS "PROCESSED_STATUS FROM DATA_TO_PROCESS WHERE rowid > ?" BY_PORTIONS;

// PROCESSED_STATUS.
constexpr std::int64_t kWaiting = 0;
constexpr std::int64_t kAnomalous = 2;

class Surveyor {
 public:
  // The streams as they stand in the rows, their spellings of types folded.
  StreamSummary& stream_of(const Query& row) {
    spell_stream(row, raw_);
    // Night after night the streams come in much the same order.
    const std::size_t guess = former_ < raws_.size() ? raws_[former_].follower : raws_.size();
    if (guess < raws_.size() && *raws_[guess].text == raw_) {
      former_ = guess;
      return streams_[raws_[guess].stream];
    }
    const std::size_t found = find();
    const std::size_t place = found < raws_.size() ? found : add(row);
    if (former_ < raws_.size()) raws_[former_].follower = place;
    former_ = place;
    return streams_[raws_[place].stream];
  }

  std::vector<StreamSummary>& streams() { return streams_; }

 private:
  // A spelling of a stream.
  struct Raw {
    const std::string* text;  // in by_raw_
    std::size_t stream;
    std::size_t follower;  // the one that came after it last time
  };

  std::size_t find() const {
    const auto known = by_raw_.find(raw_);
    return known == by_raw_.end() ? raws_.size() : known->second;
  }

  std::size_t add(const Query& row) {
    const StreamKey key = read_stream_key(row, kKeyColumn);
    const auto [place, is_new] = by_text_.try_emplace(key.text(), streams_.size());
    if (is_new) {
      streams_.emplace_back();
      streams_.back().key = key;
    }
    const auto raw = by_raw_.emplace(raw_, raws_.size()).first;
    raws_.push_back({&raw->first, place->second, SIZE_MAX});
    return raws_.size() - 1;
  }

  std::string raw_;
  std::size_t former_ = SIZE_MAX;
  std::vector<Raw> raws_;
  std::vector<StreamSummary> streams_;
  std::unordered_map<std::string, std::size_t> by_raw_;
  std::unordered_map<std::string, std::size_t> by_text_;
};

void widen(StreamSummary& stream, std::int64_t first, std::int64_t last) {
  if (first > 0 && (stream.first == 0 || first < stream.first)) stream.first = first;
  stream.last = std::max(stream.last, last);
}

void read_history(Database& database, Surveyor& surveyor, Survey& result) {
  read_portions(database, kHistory, [&](const Query& row) {
    ++result.history_rows;
    StreamSummary& stream = surveyor.stream_of(row);
    const std::int64_t time = row.integer(kTimeColumn);
    stream.newest = std::max(stream.newest, time);
    if (row.integer(kOwnColumn) != -1) {
      ++stream.by_people;
      return;
    }
    ++stream.records;
    widen(stream, time, time);
  });
}

// Those that were found normal are in the history too.
void read_rows(Database& database, Surveyor& surveyor, Survey& result) {
  read_portions(database, kRows, [&](const Query& row) {
    ++result.process_rows;
    const std::int64_t status = row.integer(kOwnColumn);
    if (status != kWaiting && status != kAnomalous) return;
    StreamSummary& stream = surveyor.stream_of(row);
    const std::int64_t time = row.integer(kTimeColumn);
    stream.newest = std::max(stream.newest, time);
    if (status == kAnomalous) {
      ++stream.reported;
      return;
    }
    ++stream.waiting;
    ++result.waiting_rows;
    if (result.oldest_waiting == 0 || time < result.oldest_waiting) result.oldest_waiting = time;
  });
}

int parts_known(const StreamKey& key) {
  return (is_known_application(key.app_type) ? 1 : 0) +
         (is_known_destination(key.destination) ? 1 : 0);
}

void add_counts(const StreamSummary& from, StreamSummary& to) {
  to.records += from.records;
  to.by_people += from.by_people;
  to.waiting += from.waiting;
  to.reported += from.reported;
  to.newest = std::max(to.newest, from.newest);
  if (from.records > 0) widen(to, from.first, from.last);
}

// Streams that differ at most in what is not known: vague ones are folded into those that know
// more and match.
void fold_family(std::vector<const StreamSummary*>& family, Survey& result) {
  std::ranges::stable_sort(family, [](const StreamSummary* a, const StreamSummary* b) {
    return parts_known(a->key) > parts_known(b->key);
  });
  const auto vague = std::ranges::find_if(
      family, [](const StreamSummary* stream) { return parts_known(stream->key) < 2; });
  const std::size_t begin = result.streams.size();
  for (auto at = family.begin(); at != family.end(); ++at) {
    const StreamSummary& stream = **at;
    std::size_t place = result.streams.size();
    if (at >= vague) {
      for (std::size_t i = begin; i < result.streams.size(); ++i) {
        if (!result.streams[i].key.matches(stream.key) ||
            parts_known(result.streams[i].key) == parts_known(stream.key)) {
          continue;
        }
        add_counts(stream, result.streams[i]);
        place = std::min(place, i);
      }
    }
    if (place == result.streams.size()) result.streams.push_back(stream);
    result.place[stream.key.text()] = place;
  }
}

StreamState state_of(const StreamSummary& stream, const detect::Settings& settings,
                     std::int64_t now) {
  if (stream.last > 0 && now - stream.last > settings.days_to_ignore * kDay) {
    return StreamState::kDormant;
  }
  return stream.records < static_cast<std::int64_t>(settings.min_observations)
             ? StreamState::kLearning
             : StreamState::kJudged;
}

void sort_streams(Survey& result) {
  std::vector<std::size_t> order(result.streams.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  const auto sorted_by = [&](std::size_t i) {
    const StreamKey& key = result.streams[i].key;
    return std::tie(key.client, key.policy, key.schedule_name, key.schedule_type, key.app_type,
                    key.destination);
  };
  std::ranges::sort(order,
                    [&](std::size_t a, std::size_t b) { return sorted_by(a) < sorted_by(b); });
  std::vector<StreamSummary> sorted;
  std::vector<std::size_t> moved_to(order.size());
  sorted.reserve(order.size());
  for (const std::size_t i : order) {
    moved_to[i] = sorted.size();
    sorted.push_back(std::move(result.streams[i]));
  }
  result.streams = std::move(sorted);
  for (auto& [text, place] : result.place) place = moved_to[place];
}

}  // namespace

const char* name_of(StreamState state) {
  switch (state) {
    case StreamState::kLearning:
      return "learning";
    case StreamState::kDormant:
      return "dormant";
    case StreamState::kJudged:
      break;
  }
  return "judged";
}

std::int64_t Survey::count(StreamState state) const {
  return std::ranges::count_if(streams,
                               [&](const StreamSummary& stream) { return stream.state == state; });
}

Survey survey(Database& database, const detect::Settings& settings, std::int64_t now) {
  Survey result;
  Surveyor surveyor;
  read_history(database, surveyor, result);
  read_rows(database, surveyor, result);
  std::unordered_map<std::string, std::vector<const StreamSummary*>> families;
  for (const StreamSummary& stream : surveyor.streams()) {
    families[stream.key.family()].push_back(&stream);
  }
  for (auto& [name, family] : families) fold_family(family, result);
  sort_streams(result);
  for (StreamSummary& stream : result.streams) stream.state = state_of(stream, settings, now);
  return result;
}

std::vector<Incident> incidents_of(const std::vector<FoundAnomaly>& anomalies,
                                   const Survey& survey) {
  std::map<std::string, Incident> by_name;
  for (const FoundAnomaly& found : anomalies) {  // the newest first
    const alert::Anomaly& anomaly = found.anomaly;
    Incident& incident = by_name[anomaly.incident];
    if (incident.records++ == 0) {
      incident.name = anomaly.incident;
      incident.client = anomaly.stream.client;
      incident.detection_key = anomaly.detection_key;
      incident.last = anomaly.known_time();
      incident.summary = anomaly.summary;
      incident.cause = anomaly.cause;
      incident.latest = anomaly.id;
    }
    incident.first = anomaly.known_time();
    incident.severity = std::max(incident.severity, anomaly.severity);
    if (found.opinion == Opinion::kFalsePositive || alert::is_adopted(anomaly.details)) {
      incident.is_open = false;
    }
  }
  std::vector<Incident> all;
  for (auto& [name, incident] : by_name) {
    const auto place = survey.place.find(incident.detection_key);
    if (place != survey.place.end() && survey.streams[place->second].last > incident.last) {
      incident.is_open = false;
    }
    all.push_back(std::move(incident));
  }
  std::ranges::stable_sort(all,
                           [](const Incident& a, const Incident& b) { return a.last > b.last; });
  return all;
}

}  // namespace corvane::ctl
