#include "coverage/missing_backups.h"

namespace corvane::coverage {

namespace {

// Stored as numbers.
enum class State { kMissing = 0, kRefused = 1, kGivenUp = 2 };

constexpr char kSettle[] = "UPDATE missing SET state = ? WHERE unique_key = ?";

}  // namespace

void MissingBackups::add(const Missing& missing) {
  static constexpr char kSql[] = "INSERT OR IGNORE INTO missing VALUES (?, ?, ?, ?, ?, ?, ?, ?)";
  ledger_.query(kSql)
      .bind(missing.unique_key)
      .bind(missing.job.begin)
      .bind(missing.job.end)
      .bind(missing.found)
      .bind(missing.attempts)
      .bind(missing.next_try)
      .bind(missing.answers)
      .bind(State::kMissing)
      .run();
}

bool MissingBackups::is_settled(const std::string& unique_key) {
  static constexpr char kSql[] = "SELECT 1 FROM missing WHERE unique_key = ? AND state <> ?";
  return ledger_.query(kSql).bind(unique_key).bind(State::kMissing).has_row();
}

std::vector<Missing> MissingBackups::all() {
  static constexpr char kSql[] =
      "SELECT unique_key, start, until, found, attempts, next_try, answers FROM missing "
      "WHERE state = ? ORDER BY until, unique_key";
  std::vector<Missing> all;
  Query& rows = ledger_.query(kSql).bind(State::kMissing);
  while (rows.step()) {
    all.push_back({rows.text(0),
                   {rows.integer(1), rows.integer(2)},
                   rows.integer(3),
                   rows.integer(4),
                   rows.integer(5),
                   rows.integer(6)});
  }
  return all;
}

std::optional<std::int64_t> MissingBackups::first_start(TimeRange ended) {
  static constexpr char kSql[] =
      "SELECT start FROM missing WHERE until BETWEEN ? AND ? "
      "ORDER BY start LIMIT 1";
  Query& row = ledger_.query(kSql).bind(ended.begin).bind(ended.end);
  std::optional<std::int64_t> start;
  if (row.step()) start = row.integer(0);
  row.restart();
  return start;
}

void MissingBackups::postpone(const Missing& missing, std::int64_t next_try, bool is_answer) {
  static constexpr char kSql[] =
      "UPDATE missing SET attempts = attempts + 1, next_try = ?, answers = answers + ? "
      "WHERE unique_key = ?";
  ledger_.query(kSql).bind(next_try).bind(std::int64_t{is_answer}).bind(missing.unique_key).run();
}

void MissingBackups::wait(const Missing& missing, std::int64_t next_try) {
  static constexpr char kSql[] = "UPDATE missing SET next_try = ? WHERE unique_key = ?";
  ledger_.query(kSql).bind(next_try).bind(missing.unique_key).run();
}

void MissingBackups::make_due(std::int64_t now) {
  static constexpr char kSql[] =
      "UPDATE missing SET attempts = 0, next_try = 0, found = min(found, ?)";
  ledger_.query(kSql).bind(now).run();
}

void MissingBackups::found(const std::string& unique_key) {
  static constexpr char kSql[] = "DELETE FROM missing WHERE unique_key = ?";
  ledger_.query(kSql).bind(unique_key).run();
}

void MissingBackups::refuse(const std::string& unique_key) {
  ledger_.query(kSettle).bind(State::kRefused).bind(unique_key).run();
}

void MissingBackups::give_up(const std::string& unique_key) {
  ledger_.query(kSettle).bind(State::kGivenUp).bind(unique_key).run();
}

std::int64_t MissingBackups::count_given_up() {
  static constexpr char kSql[] = "SELECT count(*) FROM missing WHERE state = ?";
  return ledger_.query(kSql).bind(State::kGivenUp).first_integer();
}

std::vector<std::pair<std::string, std::int64_t>> MissingBackups::wanted() {
  static constexpr char kSql[] = "SELECT unique_key, until FROM missing WHERE state IN (?, ?)";
  std::vector<std::pair<std::string, std::int64_t>> all;
  Query& rows = ledger_.query(kSql).bind(State::kMissing).bind(State::kGivenUp);
  while (rows.step()) all.emplace_back(rows.text(0), rows.integer(1));
  return all;
}

void MissingBackups::forget_refused() {
  static constexpr char kSql[] = "DELETE FROM missing WHERE state = ?";
  ledger_.query(kSql).bind(State::kRefused).run();
}

void MissingBackups::forget_purged(std::int64_t not_before) {
  static constexpr char kSql[] = "DELETE FROM missing WHERE state = ? AND start < ?";
  ledger_.query(kSql).bind(State::kMissing).bind(not_before).run();
}

void MissingBackups::forget(std::int64_t before, std::int64_t refused_before) {
  static constexpr char kOld[] = "DELETE FROM missing WHERE until < ?";
  static constexpr char kRefused[] = "DELETE FROM missing WHERE state = ? AND until < ?";
  ledger_.query(kOld).bind(before).run();
  ledger_.query(kRefused).bind(State::kRefused).bind(refused_before).run();
}

}  // namespace corvane::coverage
