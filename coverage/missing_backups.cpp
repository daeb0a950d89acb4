#include "coverage/missing_backups.h"

namespace corvane::coverage {

namespace {

// Stored as numbers.
enum class State { kMissing = 0, kRefused = 1, kGivenUp = 2 };

constexpr char kSettle[] = "UPDATE missing SET state = ? WHERE unique_key = ?";

}  // namespace

void MissingBackups::add(const Missing& missing) {
  static constexpr char kSql[] = "INSERT OR IGNORE INTO missing VALUES (?, ?, ?, ?, ?, ?, ?)";
  ledger_.query(kSql)
      .bind(missing.unique_key)
      .bind(missing.job.begin)
      .bind(missing.job.end)
      .bind(missing.found)
      .bind(missing.attempts)
      .bind(missing.next_try)
      .bind(State::kMissing)
      .run();
}

bool MissingBackups::is_settled(const std::string& unique_key) {
  static constexpr char kSql[] = "SELECT 1 FROM missing WHERE unique_key = ? AND state <> ?";
  return ledger_.query(kSql).bind(unique_key).bind(State::kMissing).has_row();
}

std::vector<Missing> MissingBackups::all() {
  static constexpr char kSql[] =
      "SELECT unique_key, start, until, found, attempts, next_try FROM missing WHERE state = ? "
      "ORDER BY until, unique_key";
  std::vector<Missing> all;
  Query& rows = ledger_.query(kSql).bind(State::kMissing);
  while (rows.step()) {
    all.push_back({rows.text(0),
                   {rows.integer(1), rows.integer(2)},
                   rows.integer(3),
                   rows.integer(4),
                   rows.integer(5)});
  }
  return all;
}

void MissingBackups::postpone(const Missing& missing, std::int64_t next_try) {
  static constexpr char kSql[] =
      "UPDATE missing SET attempts = attempts + 1, next_try = ? WHERE unique_key = ?";
  ledger_.query(kSql).bind(next_try).bind(missing.unique_key).run();
}

void MissingBackups::make_due(std::int64_t now) {
  static constexpr char kSql[] = "UPDATE missing SET next_try = 0, found = min(found, ?)";
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

std::vector<std::string> MissingBackups::given_up() {
  static constexpr char kSql[] = "SELECT unique_key FROM missing WHERE state = ?";
  std::vector<std::string> keys;
  Query& rows = ledger_.query(kSql).bind(State::kGivenUp);
  while (rows.step()) keys.push_back(rows.text(0));
  return keys;
}

void MissingBackups::forget(std::int64_t before) {
  static constexpr char kSql[] = "DELETE FROM missing WHERE until < ?";
  ledger_.query(kSql).bind(before).run();
}

}  // namespace corvane::coverage
