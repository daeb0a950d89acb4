// The detection's own database, beside the anomaly database: how each backup was judged, and by
// which figures. Whatever others write into the history, the first verdict and its figures stand.
//
//   verdict   a backup that was gathered live and judged. VERDICT: see KnownVerdict; CLUSTER: its
//             number in the history when it is a false positive, else -1
//   meta      history_rowid: rows of the history up to here were looked through for verdicts;
//             last_pass, pass_seconds: the program's heartbeat
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "anomaly_database/backup.h"
#include "anomaly_database/statuses.h"
#include "companions/common/own_database.h"

namespace corvane::detect {

// The numbers are stored.
enum class JudgedAs { kAccepted = 1, kAnomalous = 2 };

struct KnownVerdict {
  Backup backup;  // as it was judged
  JudgedAs judged_as = JudgedAs::kAccepted;
  int cluster = kNoCluster;  // of a false positive
  std::string incident;      // its name; empty: none

  bool is_false_positive() const { return cluster != kNoCluster; }
};

// The end of the detection's last pass, in seconds since the epoch, and how long it took. While a
// pass lasts, the time until which it has worked, and how long the pass before it took. 0: none.
struct LastPass {
  std::int64_t ended = 0;
  std::int64_t seconds = 0;

  friend bool operator==(const LastPass&, const LastPass&) = default;
};

// "CV_Anomaly_Detection.db" of "CV_Anomaly.db", in the same folder.
std::string verdict_database_path(Connection& anomaly_database);
std::string verdict_database_path(std::string anomaly_database);

// For one thread. Everything throws QueryError. When a database that was opened for writing turns
// out to be damaged in use, it is moved aside (name + ".damaged") before that, with a line in the
// log; the object must not be used again, and the next one finds no database.
class VerdictDatabase {
 public:
  enum class Access { kRead, kCreate };

  // Throws std::runtime_error for a database of a later version.
  VerdictDatabase(const std::string& name, Access access);

  // --- Reading ---

  std::optional<KnownVerdict> find(const std::string& unique_key);
  // Keys of the anomalous backups, false positives included.
  std::unordered_set<std::string> anomalous_keys();
  std::int64_t history_rowid();
  LastPass last_pass();

  // --- Writing, each in one transaction ---

  // Stores `judged`, in place of former verdicts; `found` where there is no verdict; and the rowid.
  // Then, once a day, removes the backups that are more than 400 days old, since the service keeps
  // none for longer. Those of the newest 400 days on which there were any stay: neither a wrong
  // clock nor backups with a time in the future remove what is needed.
  void store(const std::vector<KnownVerdict>& judged, const std::vector<KnownVerdict>& found,
             std::int64_t history_rowid);
  // kNoCluster: it is no false positive any more.
  void set_cluster(const std::string& unique_key, int cluster, std::int64_t history_rowid);
  void set_last_pass(const LastPass& pass);

 private:
  template <typename Work>
  auto guarded(Work work);
  void insert(const char* sql, const KnownVerdict& verdict);
  void remove_old();

  std::string path_;
  bool writes_ = false;
  std::optional<std::int64_t> removed_on_;  // the day, since the epoch
  OwnDatabase database_;
};

// Creates a missing database, and replaces a damaged one.
std::unique_ptr<VerdictDatabase> open_verdicts(const std::string& path);

// Null when there is none, or none that can be read.
std::unique_ptr<VerdictDatabase> open_verdicts_for_reading(const std::string& path);

}  // namespace corvane::detect
