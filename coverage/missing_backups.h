// The backups that the master server has, and the anomaly database has not.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "coverage/ledger.h"
#include "coverage/time_ranges.h"

namespace corvane::coverage {

struct Missing {
  std::string unique_key;
  TimeRange job;  // from its start to its end
  std::int64_t found = 0;
  std::int64_t attempts = 0;
  std::int64_t next_try = 0;

  friend bool operator==(const Missing&, const Missing&) = default;
};

// Everything throws QueryError.
class MissingBackups {
 public:
  explicit MissingBackups(Ledger& ledger) : ledger_(ledger) {}

  // Nothing changes for one that is known.
  void add(const Missing& missing);
  // Whether nothing more is tried for it.
  bool is_settled(const std::string& unique_key);
  // Those that are looked for, by their end.
  std::vector<Missing> all();
  void postpone(const Missing& missing, std::int64_t next_try);
  // Nothing waits for its next attempt any more, and nothing was found after `now`.
  void make_due(std::int64_t now);

  // What becomes of it. It was stored after all:
  void found(const std::string& unique_key);
  // The server gives it, but not as a backup that is kept:
  void refuse(const std::string& unique_key);
  // It could not be had:
  void give_up(const std::string& unique_key);
  std::vector<std::string> given_up();  // their keys

  void forget(std::int64_t before);

 private:
  Ledger& ledger_;
};

}  // namespace corvane::coverage
