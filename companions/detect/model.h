// Every stream's history in memory, and the verdicts over it. Owned by one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "anomaly_database/backup.h"
#include "companions/detect/judge.h"
#include "companions/detect/observation.h"
#include "finding/finding.h"

namespace corvane::detect {

// An anomalous backup, as its stream remembers it.
struct Held {
  Observation observation;
  std::string unique_key;
  std::string incident;  // its name; empty: not looked up yet
};

// An anomalous backup that people marked as a false positive.
struct FalsePositive {
  std::string unique_key;
  std::int32_t time = 0;
  std::optional<std::string> incident;  // its name; absent: not looked up yet
};

struct Stream {
  StreamKey key;
  // Accepted, by time once settled. A deque: vectors that grow side by side fragment memory.
  std::deque<Observation> history;
  std::vector<Observation> by_people;  // false positives, by time
  std::vector<Held> held;              // the latest anomalous ones, by time
  // Those before them, by time, for backups that come late: of 91 days, and some that are older.
  std::vector<Held> older_held;
  std::vector<FalsePositive> false_positives;
  // The latest accepted ones, by time: when the last is forgotten, the one before it counts again.
  std::vector<BackupReference> last_good;
  int last_cluster = 0;           // the highest; each false positive has a cluster of its own
  std::string said_inconclusive;  // the day for which this was last logged
};

// The name of the incident of an anomalous backup; empty when it is not known.
using IncidentLookup = std::function<std::string(const std::string& unique_key)>;

// A backup may come late, after later ones: whatever is later than it plays no part in its verdict
// or its incident.
class Model {
 public:
  Model(const Settings& settings, IncidentLookup reported_incident)
      : settings_(settings), reported_incident_(std::move(reported_incident)) {}
  void set_settings(const Settings& settings) { settings_ = settings; }
  const Settings& settings() const { return settings_; }

  // A row of the history: accepted (cluster -1) or a false positive. A row with the same key
  // replaces the former one. Call settle() at the end of the first load.
  void learn(const Backup& backup, int cluster);
  // An anomalous row that is not in the history. An empty name of its incident is looked up when it
  // is needed.
  void hold(const Backup& backup, const std::string& incident);
  // Forgets an accepted or an anomalous backup, so that it can be judged: it is not compared with
  // itself.
  void forget(const Backup& backup);
  // Undoes a false positive.
  void forget_false_positive(const Backup& backup);
  // Sorts what learn() has appended so far; from then on learn() keeps the order. judge() does so,
  // too.
  void settle();
  void clear();

  // Leaves the histories as they are.
  Verdict judge(const Backup& backup);

  // The name of the incident of an anomalous backup: see continues_incident().
  std::string incident_of(const Backup& backup);

  // Of the stream and those that match it: the latest accepted backup; the time of the latest one
  // up to `time`, if any; the time of the first one after `time`, or 0.
  BackupReference last_good_of(const StreamKey& key);
  std::optional<std::int64_t> last_accepted_at(const StreamKey& key, std::int32_t time);
  std::int64_t first_accepted_after(const StreamKey& key, std::int32_t time);

  // The number for the stream's next false positive.
  int next_cluster(const StreamKey& key) { return stream_of(key).last_cluster + 1; }

  Stream& stream_of(const StreamKey& key);
  std::size_t streams() const { return streams_.size(); }
  const std::vector<std::unique_ptr<Stream>>& all() const { return streams_; }

 private:
  struct Source {  // what one client's policy backs up
    std::vector<Stream*> streams;
  };

  void collect(const StreamKey& key, std::int32_t time, std::vector<Observation>& history,
               std::vector<Observation>& by_people, std::vector<Observation>& held);
  void keep_newest(std::vector<Observation>& history, std::int32_t time) const;
  void find_full_backups(const Backup& backup, Question& question);
  std::vector<const Stream*> matching(const StreamKey& key);
  bool is_false_positive(Stream& stream, const std::string& incident, std::int32_t time);

  Settings settings_;
  IncidentLookup reported_incident_;
  Judge judge_;
  bool settled_ = false;
  std::vector<std::unique_ptr<Stream>> streams_;
  std::unordered_map<std::string, Stream*> by_text_;
  std::unordered_map<std::string, Source> sources_;
  std::vector<Observation> history_;
  std::vector<Observation> by_people_;
  std::vector<Observation> held_;
  std::vector<Observation> full_backups_;
  std::vector<Observation> unused_;
  Observation same_night_;
};

}  // namespace corvane::detect
