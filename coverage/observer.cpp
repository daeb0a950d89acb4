#include "coverage/observer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

#include "anomaly_database/anomaly_database.h"
#include "anomaly_database/backups.h"
#include "anomaly_database/gather_marks.h"
#include "anomaly_database/missing_rows.h"
#include "coverage/log_follower.h"
#include "finding/words.h"

namespace corvane::coverage {

namespace {

constexpr std::int64_t kHistory = 91 * kDay;      // what a first start of the service gathers
constexpr std::int64_t kLedgerKeeps = 30 * kDay;  // at least

constexpr std::int64_t kLateAudit = 10 * kMinute;  // two looks

constexpr char kAskedUntil[] = "asked_until";  // by the service
constexpr char kOldestBackup[] = "oldest_backup";

}  // namespace

void Observer::read(std::int64_t purged) {
  const std::int64_t now = sights_.now();
  std::optional<Connection> database;
  // Before the log: a gather whose mark is seen has been logged by then, at least its beginning.
  std::int64_t mark = 0;
  if (access(sights_.database.c_str(), F_OK) == 0) {
    database.emplace(open_for_reading(sights_.database));
    mark = last_gather(*database);
  }
  Transaction transaction(ledger_);
  const bool is_open = follow_log();
  distrust_the_future(purged);
  if (database) {
    notice_another_database(*database);
    notice_unjudged(*database);
    notice_oldest(*database);
    notice_found(*database);
  }
  notice_recovery();
  notice_setting(purged);
  // The mark counts without a log, too; not that of a gather under way, or of a clock that was
  // ahead.
  const bool is_mark_known = !is_open && mark <= now + kClockSkew;
  const std::int64_t asked_until = std::max(gathers_.asked_until(), is_mark_known ? mark : 0);
  ledger_.set_number(kAskedUntil, std::min(asked_until, now));
  find_holes(purged);
  notice_unaudited(purged);
  const std::int64_t oldest = std::min(horizon(purged), now - kLedgerKeeps);
  gathers_.forget(oldest);
  holes_.forget(oldest);
  missing_.forget(oldest, now - kLedgerKeeps);
  missing_.forget_purged(not_before(purged));
  ledger_.forget_acts(oldest);
  ledger_.add_look(now);
  transaction.commit();
}

// Returns whether a gather is under way.
bool Observer::follow_log() {
  GatherReader reader(
      [this](const Gather& gather) {
        gathers_.add(gather);
        holes_.add(gather);
      },
      gathers_.reader_state());
  LogPosition position = gathers_.log_position();
  LogFollower(sights_.log)
      .read(
          position, [&](std::string_view line) { reader.read(line); }, [&] { reader.cut(); });
  if (reader.state().is_open && !sights_.runs_as_service(reader.state().process)) reader.cut();
  gathers_.set_log_position(position, reader.state());
  return reader.state().is_open;
}

std::vector<Hole> Observer::find_holes(std::int64_t purged) {
  return holes_.find({horizon(purged), ledger_.number_of(kAskedUntil)}, sights_.now());
}

// The service deletes by the setting that it read when it started.
std::int64_t Observer::not_before(std::int64_t purged) {
  const bool is_known = ledger_.number_of(kPurgedAt) <= sights_.now() + kClockSkew;
  return std::max(purged, is_known ? ledger_.number_of(kPurgedBefore) : 0);
}

// Since when backups have to be there: since the first start of the service, as far as is known.
std::int64_t Observer::horizon(std::int64_t purged) {
  std::int64_t first = sights_.now() - kHistory;
  if (const std::int64_t oldest = ledger_.number_of(kOldestBackup); oldest > 0) {
    first = std::min(first, oldest);
  }
  return std::max(not_before(purged), first);
}

// With a wrong clock the service asked for times that had not come, and now takes them for asked.
// It may also have deleted what was not old.
void Observer::distrust_the_future(std::int64_t purged) {
  const std::int64_t now = sights_.now();
  const std::vector<TimeRange> covered = holes_.covered().all();
  const std::int64_t latest = covered.empty() ? 0 : covered.back().end;
  if (std::max({latest, ledger_.last_look(), gathers_.asked_until()}) <= now + kClockSkew) return;
  const std::int64_t trusted =
      std::min(std::max(ledger_.forget_looks_after(now), horizon(purged)), now);
  gathers_.forget_after(now + kClockSkew);
  holes_.uncover({trusted, kEver});
  audit_again();
  make_due();
  ledger_.note(now,
               "The clock was ahead. Backups since " + utc_text(trusted) + " are gathered again");
}

// In another file, or in an older copy of it, backups may be missing that were stored once. A copy
// lacks the row that was the last one, or has fewer rows. Called again when backups have been
// added, which an older copy lacks.
void Observer::notice_another_database(Connection& database) {
  static constexpr char kFile[] = "database_file";
  static constexpr char kHistoryRow[] = "history_rowid";
  static constexpr char kHistoryKey[] = "history_key";
  static constexpr char kRow[] = "rows_rowid";
  static constexpr char kRowKey[] = "rows_key";
  struct stat found {};
  if (stat(sights_.database.c_str(), &found) != 0) return;
  const auto has_last = [&](const char* name) {
    const std::string key = ledger_.text_of(name);
    return key.empty() || has_backup(database, key);
  };
  const auto file = static_cast<std::int64_t>(found.st_ino);
  const std::int64_t history = last_history_rowid(database);
  const std::int64_t rows = last_rowid_to_process(database);
  const std::int64_t former = ledger_.number_of(kFile);
  if (former != 0 &&
      (former != file || history < ledger_.number_of(kHistoryRow) ||
       rows < ledger_.number_of(kRow) || !has_last(kHistoryKey) || !has_last(kRowKey))) {
    audit_again();
  }
  ledger_.set_number(kFile, file);
  ledger_.set_number(kHistoryRow, history);
  ledger_.set_number(kRow, rows);
  ledger_.set_text(kHistoryKey, last_history_key(database));
  ledger_.set_text(kRowKey, last_key_to_process(database));
}

// The time of a backup does not tell how long it has waited: it may have been gathered late.
void Observer::notice_unjudged(Connection& database) {
  static constexpr char kFirst[] = "unjudged_rowid";
  const std::int64_t now = sights_.now();
  const std::int64_t first = first_waiting(database);
  const std::int64_t since = ledger_.number_of(kUnjudgedSince);
  if (first == 0) {
    ledger_.set_number(kUnjudgedSince, 0);
  } else if (first != ledger_.number_of(kFirst) || since == 0 || since > now) {
    ledger_.set_number(kUnjudgedSince, now);
  }
  ledger_.set_number(kFirst, first);
}

// It stays known when the backups are gone.
void Observer::notice_oldest(Connection& database) {
  const std::int64_t oldest = oldest_backup(database);
  const std::int64_t known = ledger_.number_of(kOldestBackup);
  if (oldest > 0 && (known == 0 || oldest < known)) ledger_.set_number(kOldestBackup, oldest);
}

// What kept the service's gathers from succeeding mostly kept the healer's, too.
void Observer::notice_recovery() {
  static constexpr char kFailing[] = "gathers_failing";
  const bool is_failing = gathers_.health().failed_in_a_row > 0;
  if (!is_failing && ledger_.number_of(kFailing) != 0) make_due();
  ledger_.set_number(kFailing, is_failing ? 1 : 0);
}

// The service may have stored what was missing, and people may have gathered what was given up.
void Observer::notice_found(Connection& database) {
  for (const auto& [key, end] : missing_.wanted()) {
    if (has_judged_backup(database, key, end, holes_.first_live())) missing_.found(key);
  }
}

// What the last look could not see is compared by the next one.
void Observer::notice_unaudited(std::int64_t purged) {
  const std::int64_t now = sights_.now();
  const std::int64_t first = horizon(purged);
  const std::vector<TimeRange> left = holes_.to_audit();
  const bool is_late = std::ranges::any_of(left, [&](const TimeRange& range) {
    return range.end >= first && std::max(range.begin, first) <= now - kLateAudit;
  });
  const std::int64_t since = ledger_.number_of(kUnauditedSince);
  if (!is_late) {
    ledger_.set_number(kUnauditedSince, 0);
  } else if (since == 0 || since > now) {
    ledger_.set_number(kUnauditedSince, now);
  }
}

// What was purged, or was about to be, may be wanted again.
void Observer::notice_setting(std::int64_t purged) {
  static constexpr char kNotBefore[] = "not_before";
  const std::int64_t cut_off = not_before(purged);
  if (cut_off < ledger_.number_of(kNotBefore) - kDay) audit_again();
  ledger_.set_number(kNotBefore, cut_off);
}

void Observer::audit_again() {
  holes_.audit_again();
  missing_.forget_refused();
}

void Observer::end_look(std::int64_t purged) {
  Connection database = open_for_reading(sights_.database);
  Transaction transaction(ledger_);
  notice_another_database(database);
  notice_found(database);
  notice_unaudited(purged);
  transaction.commit();
}

void Observer::make_due() {
  holes_.make_due(sights_.now());
  missing_.make_due(sights_.now());
  ledger_.set_number(kAuditNextTry, 0);
}

}  // namespace corvane::coverage
