// The backups that the master server has, and the anomaly database has not.
#pragma once

#include <cstdint>
#include <optional>
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
  std::int64_t answers = 0;  // attempts in which the server gave all that it has, without this one

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
  // When the first of those began, of any state, that ended within a range; nothing: there is none.
  std::optional<std::int64_t> first_start(TimeRange ended);
  // An attempt did not bring it.
  void postpone(const Missing& missing, std::int64_t next_try, bool is_answer);
  // The same, but the attempt does not count.
  void wait(const Missing& missing, std::int64_t next_try);
  // Attempts begin anew, nothing waits for the next one, and nothing was found after `now`.
  void make_due(std::int64_t now);

  // What becomes of it. It was stored after all:
  void found(const std::string& unique_key);
  // The server gives it, but not as a backup that is kept:
  void refuse(const std::string& unique_key);
  // It could not be had:
  void give_up(const std::string& unique_key);
  std::int64_t count_given_up();
  // All that are not refused: their keys and ends.
  std::vector<std::pair<std::string, std::int64_t>> wanted();

  // What was refused is asked for again if it is missing again.
  void forget_refused();
  // Those that began before a time are not looked for: they are purged.
  void forget_purged(std::int64_t not_before);
  // Forgets those that ended before a time, and the refused ones before another.
  void forget(std::int64_t before, std::int64_t refused_before);

 private:
  Ledger& ledger_;
};

}  // namespace corvane::coverage
