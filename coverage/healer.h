// Finds out what was not gathered, and gathers it.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "anomaly_database/missing_rows.h"
#include "coverage/gather_again.h"
#include "coverage/gathers.h"
#include "coverage/holes.h"
#include "coverage/job_list.h"
#include "coverage/ledger.h"
#include "coverage/missing_backups.h"
#include "coverage/observer.h"
#include "coverage/time_ranges.h"

namespace corvane::coverage {

// What a healer needs of the world.
struct Surroundings {
  Sights sights;
  std::string scratch;  // a database that does not exist yet is made there, and removed again
  // Gathers a range again, into a new database at `scratch`.
  std::function<GatherResult(TimeRange range)> gather_again;
  // See list_jobs().
  std::function<bool(TimeRange range, const std::function<void(const EndedJob&)>& visit)>
      list_ended;
  // Whether to end; asked between two requests.
  std::function<bool()> stop;
};

// What of the past matters, and what becomes of a backup that is gathered again.
struct HealRules {
  std::int64_t not_before = 0;  // older backups are purged
  RowsFor rows_for = RowsFor::kDetection;
};

// One look is: read_log(), then heal(). Throws QueryError, and std::system_error when no gather can
// be started.
class Healer {
 public:
  Healer(Ledger& ledger, Surroundings surroundings)
      : ledger_(ledger),
        gathers_(ledger),
        holes_(ledger),
        missing_(ledger),
        world_(std::move(surroundings)),
        observer_(ledger, world_.sights) {}

  // Brings the ledger up to date.
  void read_log(const HealRules& rules) { observer_.read(rules.not_before); }

  // Nothing waits for its next attempt any more.
  void make_due() { observer_.make_due(); }

  // Gathers what is missing, until it is asked to stop.
  void heal(const HealRules& rules);

  struct ByHand {
    std::int64_t added = 0;  // backups that were missing
    std::int64_t next = 0;   // where to go on
    bool is_whole = false;
  };
  // Gathers the backups that ended within a range that somebody named, portion by portion, until
  // `is_enough`, which is asked between two. Throws std::runtime_error if that fails.
  ByHand gather(TimeRange range, const HealRules& rules, const std::function<bool()>& is_enough);

 private:
  void heal_holes(const HealRules& rules);
  std::optional<Hole> heal_hole(const Hole& hole, const HealRules& rules);
  void audit(const HealRules& rules);
  bool audit_range(TimeRange range, const HealRules& rules);
  std::int64_t judged_since(const HealRules& rules);
  void postpone_audit();
  void heal_missing(const HealRules& rules);
  void heal_missing(const std::vector<Missing>& some, const HealRules& rules);
  void settle(const Missing& missing, const GatherResult& result);
  GatherResult gather_rows(TimeRange range, const HealRules& rules);
  bool may_give_up(std::int64_t attempts_before, std::int64_t next_try);
  std::int64_t portion_of(const char* name);
  void lengthen(const char* name, TimeRange part, std::int64_t took);
  std::int64_t longest();

  Ledger& ledger_;
  Gathers gathers_;
  Holes holes_;
  MissingBackups missing_;
  Surroundings world_;
  Observer observer_;
  std::optional<std::int64_t> longest_;
};

}  // namespace corvane::coverage
