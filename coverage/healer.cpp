#include "coverage/healer.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "anomaly_database/anomaly_database.h"
#include "companions/common/error_text.h"
#include "coverage/pauses.h"
#include "finding/words.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"

namespace corvane::coverage {

namespace {

using Ending = GatherResult::Ending;

constexpr std::int64_t kUsualLongest = kDay;   // before a backup that took longer is known
constexpr std::int64_t kMostReach = 7 * kDay;  // longer backups are found by the audit
constexpr std::int64_t kShortestPortion = 15 * kMinute;
// How much is asked for at once: more as long as the answers come quickly.
constexpr std::int64_t kFirstPortion = 6 * kHour;
constexpr std::int64_t kMostPortion = 7 * kDay;
constexpr std::int64_t kQuickly = 15;        // seconds
constexpr std::int64_t kMostMissing = 1000;  // of a portion; with more it is gathered as a whole
// The time of an image may be before the start of its job.
constexpr std::int64_t kImageBefore = kHour;

constexpr std::int64_t kMostAttempts = 5;
// An image may enter the catalog a while after its job has ended.
constexpr std::int64_t kMostAnswers = 3;
// Clocks differ, and a job may be reported as done a while after its end.
constexpr std::int64_t kAuditOverlap = kHour;
// The service's transactions take that long at the worst: a purge of the whole database.
constexpr std::chrono::seconds kPatience{60};

// Numbers and texts of the ledger.
constexpr char kGatherSeconds[] = "gather_seconds";  // the length of a portion; 0: the first one
constexpr char kAuditSeconds[] = "audit_seconds";
constexpr char kAuditAttempts[] = "audit_attempts";

std::string range_text(TimeRange range) {
  return utc_text(range.begin) + " to " + utc_text(range.end);
}

void remove_database(const std::string& path) {
  for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
    std::error_code ignored;
    std::filesystem::remove(path + suffix, ignored);
  }
}

// Whether a database that was left by a process that was killed can be read.
bool can_be_read(const std::string& path) {
  try {
    Connection database(path, Connection::Access::kWrite);
    Query check(database.handle(), "PRAGMA quick_check(1)");
    Query(database.handle(), "SELECT count(*) FROM DATA_TO_PROCESS").first_integer();
    return check.step() && check.text(0) == "ok";
  } catch (const QueryError&) {
    return false;
  }
}

}  // namespace

void Healer::heal(const HealRules& rules) {
  if (access(world_.sights.database.c_str(), F_OK) != 0) return;  // nothing to add to
  heal_holes(rules);
  heal_missing(rules);
  audit(rules);
  heal_missing(rules);
  observer_.end_look(rules.not_before);
}

void Healer::heal_holes(const HealRules& rules) {
  for (const Hole& found : holes_.all()) {
    std::optional<Hole> hole = found;
    while (hole && !world_.stop() && hole->next_try <= world_.sights.now()) {
      hole = heal_hole(*hole, rules);
    }
  }
}

// Gathers the beginning of a hole. Returns the rest of it, if there is one and the beginning is
// healed or lost.
std::optional<Hole> Healer::heal_hole(const Hole& hole, const HealRules& rules) {
  // What a slow server did not give in time, it may give in parts.
  const std::int64_t halvings = std::min<std::int64_t>(hole.attempts, 10);
  const std::int64_t reach = longest() >> (2 * halvings);
  const std::int64_t portion =
      std::max(std::max(longest(), portion_of(kGatherSeconds)) >> halvings, kShortestPortion);
  const TimeRange part{hole.range.begin, std::min(hole.range.end, hole.range.begin + portion - 1)};
  const std::int64_t began = world_.sights.now();
  const GatherResult result = gather_rows({part.begin - reach, part.end}, rules);
  if (result.ending == Ending::kInterrupted) return std::nullopt;
  const std::int64_t now = world_.sights.now();
  Transaction transaction(ledger_);
  std::vector<Hole> left;
  if (result.ending == Ending::kComplete) {
    holes_.heal(part);
    ledger_.set_number(kHealedAt, now);
    lengthen(kGatherSeconds, part, now - began);
    if (result.added > 0) {
      ledger_.note(
          now, counted(result.added, "backup", "backups") + " gathered again: " + range_text(part));
    }
    left = observer_.find_holes(rules.not_before);
  } else if (result.ending == Ending::kNotAdded) {
    holes_.wait(hole, now + kFirstPause, result.reason);
  } else if (may_give_up(hole.attempts, hole.next_try)) {
    holes_.lose(part, result.reason, now);
    ledger_.note(now, "A range was given up after " +
                          counted(hole.attempts + 1, "attempt", "attempts") + ": " +
                          range_text(part) + ". " + result.reason);
    left = observer_.find_holes(rules.not_before);
  } else {
    holes_.postpone(hole, now + pause_after(hole.attempts + 1), result.reason);
    ledger_.set_number(kGatherSeconds, 0);
  }
  transaction.commit();
  const auto rest = std::ranges::find_if(left, [&](const Hole& other) {
    return other.range.begin > part.end && other.range.end <= hole.range.end;
  });
  return rest == left.end() ? std::nullopt : std::optional(*rest);
}

// After another attempt that failed. As long as the service's own gathers fail, or if none has
// succeeded since the attempt before, it is the server that is away.
bool Healer::may_give_up(std::int64_t attempts_before, std::int64_t next_try) {
  if (attempts_before + 1 < kMostAttempts) return false;
  const GatherHealth health = gathers_.health();
  const std::int64_t last_try = next_try - pause_after(attempts_before);
  return health.failed_in_a_row == 0 && health.last_complete > last_try;
}

void Healer::audit(const HealRules& rules) {
  if (ledger_.number_of(kAuditNextTry) > world_.sights.now()) return;
  const std::int64_t until = world_.sights.now() - kClockSkew;
  const std::int64_t first = observer_.horizon(rules.not_before);
  for (const TimeRange& range : holes_.to_audit()) {
    const std::int64_t end = std::min(range.end, until);
    for (std::int64_t begin = std::max(range.begin, first); begin <= end;) {
      const TimeRange part{begin, std::min(end, begin + portion_of(kAuditSeconds) - 1)};
      if (world_.stop() || !audit_range(part, rules)) return;
      begin = part.end + 1;
    }
  }
}

bool Healer::audit_range(TimeRange range, const HealRules& rules) {
  const std::int64_t began = world_.sights.now();
  const std::int64_t not_before = observer_.not_before(rules.not_before);
  std::vector<Missing> missing;
  try {
    Connection database = open_for_reading(world_.sights.database);
    const auto visit = [&](const EndedJob& job) {
      if (job.job.begin < not_before || missing_.is_settled(job.unique_key) ||
          has_judged_backup(database, job.unique_key, job.job.end, judged_since(rules))) {
        return;
      }
      missing.push_back({.unique_key = job.unique_key,
                         .job = job.job,
                         .found = world_.sights.now(),
                         .answers = job.has_data ? 0 : kMostAnswers - 1});
    };
    if (!world_.list_ended({range.begin - kAuditOverlap, range.end}, visit)) return false;
  } catch (const QueryError&) {
    throw;
  } catch (const std::runtime_error& error) {
    if (ledger_.text_of(kAuditReason) != error.what()) {
      logmsgf(kLogWarning, kHealProgram, "Cannot look for missing backups: %s", error.what());
    }
    ledger_.set_text(kAuditReason, error.what());
    postpone_audit();
    return false;
  }
  Transaction transaction(ledger_);
  holes_.audit(range);
  const TimeRanges whole = holes_.gathered_whole();
  const auto is_new = [&](const Missing& one) {
    return one.job.end >= range.begin && !whole.gaps_in({one.job.end, one.job.end}).empty();
  };
  const bool is_much = std::ranges::count_if(missing, is_new) > kMostMissing;
  if (is_much) {
    holes_.gather_whole(range);
    observer_.find_holes(rules.not_before);
  }
  for (const Missing& one : missing) {
    if (!is_much || !is_new(one)) missing_.add(one);
  }
  lengthen(kAuditSeconds, range, world_.sights.now() - began);
  ledger_.set_number(kAuditAttempts, 0);
  ledger_.set_number(kAuditedAt, world_.sights.now());
  ledger_.set_text(kAuditReason, "");
  transaction.commit();
  return true;
}

// A shorter list has fewer pages that can fail.
void Healer::postpone_audit() {
  Transaction transaction(ledger_);
  const std::int64_t attempts = ledger_.number_of(kAuditAttempts) + 1;
  ledger_.set_number(kAuditSeconds, std::max(portion_of(kAuditSeconds) / 2, kShortestPortion));
  ledger_.set_number(kAuditAttempts, attempts);
  ledger_.set_number(kAuditNextTry, world_.sights.now() + std::min(pause_after(attempts), kHour));
  transaction.commit();
}

void Healer::heal_missing(const HealRules& rules) {
  const std::vector<Missing> all = missing_.all();
  if (all.empty()) return;
  std::vector<Missing> some;
  TimeRange window;
  for (const Missing& one : all) {
    if (one.next_try > world_.sights.now()) continue;
    // What a slow server did not give in time, it may give in parts.
    const std::int64_t most =
        (2 * std::max(longest(), kFirstPortion)) >> (2 * std::min<std::int64_t>(one.attempts, 10));
    const TimeRange wider{std::min(window.begin, one.job.begin), std::max(window.end, one.job.end)};
    if (!some.empty() && wider.end - wider.begin > most) {
      heal_missing(some, rules);
      some.clear();
    }
    if (world_.stop()) return;
    window = some.empty() ? one.job : wider;
    some.push_back(one);
  }
  if (!some.empty()) heal_missing(some, rules);
}

void Healer::heal_missing(const std::vector<Missing>& some, const HealRules& rules) {
  TimeRange window = some.front().job;
  for (const Missing& one : some) {
    window = {std::min(window.begin, one.job.begin), std::max(window.end, one.job.end)};
  }
  const GatherResult result =
      gather_rows({window.begin - kImageBefore, window.end + kClockSkew}, rules);
  if (result.ending == Ending::kInterrupted) return;
  Connection database = open_for_reading(world_.sights.database);
  Transaction transaction(ledger_);
  for (const Missing& one : some) {
    if (has_judged_backup(database, one.unique_key, one.job.end, judged_since(rules))) {
      missing_.found(one.unique_key);
    } else {
      settle(one, result);
    }
  }
  if (result.added > 0) {
    ledger_.set_number(kHealedAt, world_.sights.now());
    ledger_.note(world_.sights.now(), counted(result.added, "missing backup", "missing backups") +
                                          " gathered: " + range_text(window));
  }
  transaction.commit();
}

// What becomes of a backup that a gather did not bring.
void Healer::settle(const Missing& missing, const GatherResult& result) {
  const std::int64_t attempts = missing.attempts + 1;
  const bool is_answer = result.ending == Ending::kComplete && !result.lacks_images;
  if (result.ending == Ending::kNotAdded) {
    missing_.wait(missing, world_.sights.now() + kFirstPause);
  } else if (is_answer && missing.answers + 1 >= kMostAnswers) {
    missing_.refuse(missing.unique_key);
  } else if (!is_answer && may_give_up(missing.attempts, missing.next_try)) {
    missing_.give_up(missing.unique_key);
    ledger_.note(
        world_.sights.now(),
        "Backup " + missing.unique_key + " was given up after " +
            counted(attempts, "attempt", "attempts") + ". " +
            (result.lacks_images ? "The master server does not give its image" : result.reason));
  } else {
    missing_.postpone(missing, world_.sights.now() + pause_after(attempts), is_answer);
  }
}

Healer::ByHand Healer::gather(TimeRange range, const HealRules& rules,
                              const std::function<bool()>& is_enough) {
  std::int64_t portion = std::max(longest(), portion_of(kGatherSeconds));
  const std::int64_t end = std::min(range.end, world_.sights.now());
  ByHand done{.next = range.begin};
  const auto note = [&](std::int64_t until) {
    ledger_.note(world_.sights.now(), counted(done.added, "backup", "backups") +
                                          " gathered by hand: " + range_text({range.begin, until}));
  };
  while (done.next <= end) {
    const TimeRange part{done.next, std::min(end, done.next + portion - 1)};
    // Of a backup that is known to be missing it is known how long it took.
    const std::int64_t first = missing_.first_start(part).value_or(kEver) - kImageBefore;
    const GatherResult result =
        gather_rows({std::min(part.begin - longest(), first), part.end}, rules);
    done.added += result.added;
    if (result.ending == Ending::kFailed && portion > kShortestPortion) {
      portion = std::max(portion / 4, kShortestPortion);
      continue;
    }
    if (result.ending != Ending::kComplete) {
      if (done.added > 0) note(done.next - 1);
      throw std::runtime_error(result.reason.empty() ? "it was interrupted" : result.reason);
    }
    Transaction transaction(ledger_);
    holes_.heal(part);
    ledger_.set_number(kHealedAt, world_.sights.now());
    observer_.find_holes(rules.not_before);
    transaction.commit();
    observer_.end_look(rules.not_before);
    done.next = part.end + 1;
    if (is_enough()) break;
  }
  done.is_whole = done.next > end;
  note(done.is_whole ? range.end : done.next - 1);
  return done;
}

GatherResult Healer::gather_rows(TimeRange range, const HealRules& rules) {
  remove_database(world_.scratch);
  range.begin = std::max<std::int64_t>(range.begin, 0);
  GatherResult result = world_.gather_again(range);
  // What was found before a failure is worth keeping, too.
  if (std::filesystem::exists(world_.scratch)) {
    if (!can_be_read(world_.scratch)) {
      if (result.ending == Ending::kComplete) result = {.reason = "The rows cannot be read"};
    } else {
      try {
        Connection database(world_.sights.database, Connection::Access::kWrite, kPatience);
        // The rows must outlive a power failure that the ledger outlives.
        database.execute("PRAGMA synchronous=FULL");
        result.added = add_missing_rows(database, world_.scratch,
                                        {.rows_for = rules.rows_for,
                                         .not_before = observer_.not_before(rules.not_before),
                                         .judged_since = judged_since(rules)});
      } catch (const QueryError& error) {
        result = {.ending = Ending::kNotAdded, .reason = reason_of(error)};
        logmsgf(kLogError, kHealProgram, "Cannot add backups: %s", result.reason.c_str());
      }
    }
  }
  remove_database(world_.scratch);
  return result;
}

// What is added to the history joins the baseline as well.
std::int64_t Healer::judged_since(const HealRules& rules) {
  return rules.rows_for == RowsFor::kDetection ? holes_.first_live() : kEver;
}

std::int64_t Healer::portion_of(const char* name) {
  const std::int64_t known = ledger_.number_of(name);
  return known > 0 ? known : kFirstPortion;
}

void Healer::lengthen(const char* name, TimeRange part, std::int64_t took) {
  if (took > kQuickly || part.end - part.begin + 1 < portion_of(name)) return;
  ledger_.set_number(name, std::min(2 * portion_of(name), kMostPortion));
}

std::int64_t Healer::longest() {
  if (!longest_) {
    Connection database = open_for_reading(world_.sights.database);
    const std::int64_t known = longest_backup(database);
    longest_ = known > 0 ? std::min(known, kMostReach) : kUsualLongest;
  }
  return *longest_;
}

}  // namespace corvane::coverage
