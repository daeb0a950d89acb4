// What the detection knows of earlier verdicts, and what a row of the history therefore counts as.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "anomaly_database/backups.h"
#include "companions/detect/verdict_database.h"

namespace corvane::detect {

// The name of the incident of an anomalous backup; empty when the backup is not in ANOMALY_DATA.
std::string reported_incident(Connection& database, const std::string& unique_key);

// What a row of the history counts as: accepted (cluster -1), a false positive (its cluster), or
// held: it was reported, whatever was written over it.
struct Standing {
  const Backup* backup = nullptr;  // valid until the next question
  int cluster = kNoCluster;
  bool is_held = false;
};

// Earlier verdicts, for reading. Throws QueryError.
class KnownVerdicts {
 public:
  // Without an `own` no verdict is known.
  KnownVerdicts(Connection& anomaly_database, std::unique_ptr<VerdictDatabase> own);

  Standing standing_of(const HistoryRow& row);
  std::optional<KnownVerdict> find(const std::string& unique_key);
  // As in ANOMALY_DATA, else as it was judged; empty when it is not known.
  std::string incident_of(const std::string& unique_key);

 protected:
  Connection& anomaly_database_;
  std::unique_ptr<VerdictDatabase> own_;
  std::unordered_set<std::string> reported_;  // most rows never were, and take no query
  std::optional<KnownVerdict> answer_;        // of the last standing_of(), if it was asked for
};

// The anomaly database comes first: a verdict is stored here after its transaction there was
// committed. When the process dies in between, the anomaly database has the row and this one lacks
// it: it is found again, by add_reported() and standing_of(). When a power failure undoes the
// commit there but not the one here, the row is waiting again: an accepted one is accepted again,
// an anomalous one that is not in ANOMALY_DATA is judged again, but never learnt. Throws
// QueryError.
class Verdicts : public KnownVerdicts {
 public:
  // `own` is opened for writing.
  using KnownVerdicts::KnownVerdicts;

  // Call before the history is read from its begin. `last_rowid`: of the history.
  void begin_history(std::int64_t last_rowid);

  // What rows of the history count as, in the order of rowids. Notes what the row tells and is not
  // stored yet: the cluster of a false positive; a verdict, unless the backup is more than 120 days
  // old.
  Standing note(const HistoryRow& row);
  // A row of DATA_TO_PROCESS that is waiting or anomalous: notes that it was reported, if it was
  // and that is not known.
  void add_reported(const Backup& backup, ProcessedStatus status);
  // Notes what was judged, and returns the figures that count. What was reported before keeps the
  // figures of then, and a false positive stays one. Call store() once the anomaly database is
  // committed.
  const Backup& add(const Backup& backup, JudgedAs judged_as, const std::string& incident);
  // Stores what was noted. `history_rowid`: the row of the history that was read last.
  void store(std::int64_t history_rowid);
  void set_cluster(const std::string& unique_key, int cluster, std::int64_t history_rowid);
  void set_last_pass(const LastPass& pass) { own_->set_last_pass(pass); }

 private:
  // The history's rows up to here have their verdicts.
  std::int64_t seen_ = std::numeric_limits<std::int64_t>::max();
  std::int64_t oldest_ = 0;           // older rows need no verdict; seconds since the epoch
  std::vector<KnownVerdict> judged_;  // noted, to be stored
  std::vector<KnownVerdict> found_;   // the same, where there is no verdict yet
};

}  // namespace corvane::detect
