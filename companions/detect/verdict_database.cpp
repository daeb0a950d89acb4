#include "companions/detect/verdict_database.h"

#include <array>
#include <chrono>
#include <limits>
#include <stdexcept>

#include "companions/common/damaged_database.h"
#include "platform/clock.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"
#include "util/file.h"

namespace corvane::detect {

namespace {

constexpr std::int64_t kVersion = 1;  // PRAGMA user_version
constexpr std::int64_t kDay = 86400;  // seconds
constexpr std::int64_t kDaysKept = 400;

// The columns of a backup have the names of the anomaly database, in the order of BACKUP_COLUMNS.
constexpr std::array kSchema{
    "CREATE TABLE IF NOT EXISTS verdict (UNIQUE_KEY TEXT PRIMARY KEY NOT NULL, "
    "BACKUP_ID TEXT NOT NULL, JOB_ID INT NOT NULL, BACKUP_TIME INT NOT NULL, "
    "NUM_FILES REAL NOT NULL, IMAGE_SIZE REAL NOT NULL, KB_TRANSFERRED REAL NOT NULL, "
    "DEDUP_RATE REAL NOT NULL, TOTAL_TIME REAL NOT NULL, CLIENT TEXT NOT NULL, "
    "POLICY TEXT NOT NULL, POLICY_TYPE TEXT NOT NULL, SCHEDULE_TYPE TEXT NOT NULL, "
    "SCHEDULE_NAME TEXT NOT NULL, APP_TYPE TEXT NOT NULL, DESTINATION_STORAGE_NAME TEXT NOT NULL, "
    "VERDICT INT NOT NULL, CLUSTER INT NOT NULL, INCIDENT TEXT NOT NULL) WITHOUT ROWID",
    "CREATE INDEX IF NOT EXISTS verdict_anomalous ON verdict (UNIQUE_KEY) WHERE VERDICT = 2",
    "CREATE INDEX IF NOT EXISTS verdict_time ON verdict (BACKUP_TIME)",
    "CREATE TABLE IF NOT EXISTS meta (name TEXT PRIMARY KEY NOT NULL, value NOT NULL)",
    "PRAGMA user_version = 1",
};
static_assert(static_cast<int>(JudgedAs::kAnomalous) == 2);

// Numbers of `meta`.
constexpr char kHistoryRowid[] = "history_rowid";
constexpr char kLastPass[] = "last_pass";
constexpr char kPassSeconds[] = "pass_seconds";

void move_aside(const std::string& path) {
  move_damaged_database_aside(path);
  logmsgf(kLogError, kDetectionProgram,
          "%s is damaged. It was moved to %s.damaged and is made again from the anomaly database",
          path.c_str(), path.c_str());
}

}  // namespace

std::string verdict_database_path(Connection& anomaly_database) {
  const char* name = sqlite3_db_filename(anomaly_database.handle(), "main");
  return verdict_database_path(std::string(name == nullptr ? "" : name));
}

std::string verdict_database_path(std::string anomaly_database) {
  if (anomaly_database.ends_with(".db")) anomaly_database.resize(anomaly_database.size() - 3);
  return anomaly_database + "_Detection.db";
}

// What a damaged database knows that the anomaly database does not is lost; the rest is found
// again.
template <typename Work>
auto VerdictDatabase::guarded(Work work) {
  try {
    return work();
  } catch (const QueryError& error) {
    if (writes_ && error.is_damage()) move_aside(path_);
    throw;
  }
}

// A commit that a power failure undoes is made up for from the anomaly database.
VerdictDatabase::VerdictDatabase(const std::string& name, Access access)
    : path_(name),
      writes_(access == Access::kCreate),
      database_(name, writes_ ? Connection::Access::kCreate : Connection::Access::kRead, kVersion,
                std::chrono::milliseconds(500)) {
  if (!writes_) return;
  Transaction transaction(database_);
  for (const char* statement : kSchema) database_.execute(statement);
  transaction.commit();
}

std::optional<KnownVerdict> VerdictDatabase::find(const std::string& unique_key) {
  static constexpr char kSql[] =
      "SELECT VERDICT, CLUSTER, INCIDENT, " BACKUP_COLUMNS " FROM verdict WHERE UNIQUE_KEY = ?";
  return guarded([&]() -> std::optional<KnownVerdict> {
    Query& asked = database_.query(kSql).bind(unique_key);
    if (!asked.step()) return std::nullopt;
    KnownVerdict verdict;
    verdict.judged_as = static_cast<JudgedAs>(asked.integer(0));
    verdict.cluster = static_cast<int>(asked.integer(1));
    verdict.incident = asked.text(2);
    read_backup(asked, 3, verdict.backup);
    asked.restart();
    return verdict;
  });
}

std::unordered_set<std::string> VerdictDatabase::anomalous_keys() {
  static constexpr char kSql[] = "SELECT UNIQUE_KEY FROM verdict WHERE VERDICT = 2";
  return guarded([&] {
    std::unordered_set<std::string> keys;
    Query& rows = database_.query(kSql);
    while (rows.step()) keys.insert(rows.text(0));
    return keys;
  });
}

std::int64_t VerdictDatabase::history_rowid() {
  return guarded([&] { return database_.number_of(kHistoryRowid); });
}

LastPass VerdictDatabase::last_pass() {
  return guarded([&] {
    return LastPass{database_.number_of(kLastPass), database_.number_of(kPassSeconds)};
  });
}

void VerdictDatabase::set_last_pass(const LastPass& pass) {
  guarded([&] {
    Transaction transaction(database_);
    database_.set_number(kLastPass, pass.ended);
    database_.set_number(kPassSeconds, pass.seconds);
    transaction.commit();
  });
}

void VerdictDatabase::insert(const char* sql, const KnownVerdict& verdict) {
  const Backup& backup = verdict.backup;
  Query& query = database_.query(sql)
                     .bind(backup.unique_key)
                     .bind(backup.backup_id)
                     .bind(backup.job_id)
                     .bind(std::int64_t{backup.time})
                     .bind(backup.figures.files)
                     .bind(backup.figures.size_kb)
                     .bind(backup.figures.transferred_kb)
                     .bind(backup.figures.ratio)
                     .bind(backup.figures.seconds);
  bind_stream_key(query, backup.stream);
  query.bind(verdict.judged_as).bind(std::int64_t{verdict.cluster}).bind(verdict.incident).run();
}

#define NINETEEN_VALUES "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"

void VerdictDatabase::store(const std::vector<KnownVerdict>& judged,
                            const std::vector<KnownVerdict>& found, std::int64_t history_rowid) {
  static constexpr char kPut[] = "INSERT OR REPLACE INTO verdict " NINETEEN_VALUES;
  static constexpr char kPutOnce[] = "INSERT OR IGNORE INTO verdict " NINETEEN_VALUES;
  guarded([&] {
    Transaction transaction(database_);
    for (const KnownVerdict& verdict : judged) insert(kPut, verdict);
    for (const KnownVerdict& verdict : found) insert(kPutOnce, verdict);
    remove_old();
    database_.set_number(kHistoryRowid, history_rowid);
    transaction.commit();
  });
}

void VerdictDatabase::remove_old() {
  // The day on which each of the newest backups was made; with an index this takes a millisecond.
  static constexpr char kOldestDayKept[] =
      "WITH RECURSIVE day(start) AS (SELECT ? UNION ALL SELECT (SELECT BACKUP_TIME / 86400 * 86400 "
      "FROM verdict WHERE BACKUP_TIME < start ORDER BY BACKUP_TIME DESC LIMIT 1) "
      "FROM day LIMIT 1 + ?) SELECT start FROM day LIMIT 1 OFFSET ?";
  static constexpr char kRemove[] = "DELETE FROM verdict WHERE BACKUP_TIME < min(?, ?)";
  const std::int64_t today = now() / kDay;
  if (removed_on_ == today) return;
  Query& days = database_.query(kOldestDayKept)
                    .bind(std::numeric_limits<std::int64_t>::max())
                    .bind(kDaysKept)
                    .bind(kDaysKept);
  const std::int64_t oldest = days.first_integer();  // 0: there are fewer days
  database_.query(kRemove).bind(now() - kDaysKept * kDay).bind(oldest).run();
  removed_on_ = today;
}

void VerdictDatabase::set_cluster(const std::string& unique_key, int cluster,
                                  std::int64_t history_rowid) {
  static constexpr char kSql[] = "UPDATE verdict SET CLUSTER = ? WHERE UNIQUE_KEY = ?";
  guarded([&] {
    Transaction transaction(database_);
    database_.query(kSql).bind(std::int64_t{cluster}).bind(unique_key).run();
    database_.set_number(kHistoryRowid, history_rowid);
    transaction.commit();
  });
}

std::unique_ptr<VerdictDatabase> open_verdicts(const std::string& path) {
  const auto open = [&] {
    return std::make_unique<VerdictDatabase>(path, VerdictDatabase::Access::kCreate);
  };
  try {
    return open();
  } catch (const QueryError& error) {
    if (!error.is_damage()) throw;
    move_aside(path);
    return open();
  }
}

std::unique_ptr<VerdictDatabase> open_verdicts_for_reading(const std::string& path) {
  if (!File::Exists(path)) return nullptr;
  try {
    auto database = std::make_unique<VerdictDatabase>(path, VerdictDatabase::Access::kRead);
    database->find({});  // can it be read?
    return database;
  } catch (const QueryError&) {
    return nullptr;
  }
}

}  // namespace corvane::detect
