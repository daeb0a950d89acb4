#include "anomaly_database/missing_rows.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <thread>
#include <vector>

#include "anomaly_database/schema.h"
#include "anomaly_database/statuses.h"

namespace corvane {

namespace {

// Between two transactions others have as long as each takes, on a slow disk, too: the service
// gives up a row after five seconds.
constexpr std::size_t kRowsPerTransaction = 64;
constexpr std::chrono::milliseconds kShortestRest{1};
constexpr std::int64_t kLongestCredible = std::int64_t{30} * 86400;  // seconds

// The other database, as long as this exists.
class Attached {
 public:
  Attached(Connection& database, const std::string& path) : database_(database) {
    Query(database.handle(), "ATTACH ? AS other").bind(path).run();
  }
  ~Attached() { sqlite3_exec(database_.handle(), "DETACH other", nullptr, nullptr, nullptr); }
  Attached(const Attached&) = delete;
  Attached& operator=(const Attached&) = delete;

 private:
  Connection& database_;
};

// Whether a table has the row `o` already. In HIST_DATA a row that only a gather of the history
// wrote does not count if the backup ended since a time that is bound.
constexpr char kIsThere[] =
    "EXISTS (SELECT 1 FROM main.DATA_TO_PROCESS d WHERE d.UNIQUE_KEY = o.UNIQUE_KEY) "
    "OR EXISTS (SELECT 1 FROM main.HIST_DATA h WHERE h.UNIQUE_KEY = o.UNIQUE_KEY "
    "AND (h.MODE <> 0 OR o.BACKUP_TIME + o.TOTAL_TIME < ?))";
static_assert(static_cast<int>(GatherMode::kHistorical) == 0);

std::vector<std::int64_t> rows_to_add(Connection& database, const RowsWanted& wanted) {
  const std::string sql =
      std::string("SELECT o.rowid FROM other.DATA_TO_PROCESS o WHERE o.BACKUP_TIME >= ? ") +
      "AND NOT (" + kIsThere + ") ORDER BY o.BACKUP_TIME, o.UNIQUE_KEY";
  Query rows(database.handle(), sql.c_str());
  rows.bind(wanted.not_before).bind(wanted.judged_since);
  std::vector<std::int64_t> found;
  while (rows.step()) found.push_back(rows.integer(0));
  return found;
}

// Bind the rowid and `judged_since`.
std::string insert_into(RowsFor rows_for) {
  const bool for_detection = rows_for == RowsFor::kDetection;
  const char* table = for_detection ? "DATA_TO_PROCESS" : "HIST_DATA";
  const std::string number =
      std::to_string(for_detection ? static_cast<int>(ProcessedStatus::kWaiting) : kNoCluster);
  // The service may have stored it in the meantime, or accepted it.
  return std::string("INSERT OR IGNORE INTO main.") + table + " SELECT " + backup_columns(number) +
         " FROM other.DATA_TO_PROCESS o WHERE o.rowid = ? AND NOT (" + kIsThere + ")";
}

}  // namespace

bool has_backup(Connection& database, const std::string& unique_key) {
  static constexpr char kSql[] =
      "SELECT EXISTS (SELECT 1 FROM HIST_DATA WHERE UNIQUE_KEY = ?1) "
      "OR EXISTS (SELECT 1 FROM DATA_TO_PROCESS WHERE UNIQUE_KEY = ?1)";
  return database.query(kSql).bind(unique_key).first_integer() != 0;
}

bool has_judged_backup(Connection& database, const std::string& unique_key, std::int64_t end,
                       std::int64_t judged_since) {
  static constexpr char kSql[] =
      "SELECT EXISTS (SELECT 1 FROM HIST_DATA WHERE UNIQUE_KEY = ?1 AND (MODE <> 0 OR ?2 < ?3)) "
      "OR EXISTS (SELECT 1 FROM DATA_TO_PROCESS WHERE UNIQUE_KEY = ?1)";
  return database.query(kSql).bind(unique_key).bind(end).bind(judged_since).first_integer() != 0;
}

std::int64_t longest_backup(Connection& database) {
  static constexpr char kSql[] =
      "SELECT max(TOTAL_TIME) FROM (SELECT TOTAL_TIME FROM HIST_DATA "
      "UNION ALL SELECT TOTAL_TIME FROM DATA_TO_PROCESS) WHERE TOTAL_TIME BETWEEN 0 AND ?";
  return database.query(kSql).bind(kLongestCredible).first_integer();
}

std::int64_t oldest_backup(Connection& database) {
  static constexpr char kSql[] =
      "SELECT min(BACKUP_TIME) FROM (SELECT BACKUP_TIME FROM HIST_DATA "
      "UNION ALL SELECT BACKUP_TIME FROM DATA_TO_PROCESS) WHERE BACKUP_TIME > 0";
  return database.query(kSql).first_integer();
}

std::int64_t add_missing_rows(Connection& database, const std::string& other,
                              const RowsWanted& wanted) {
  const Attached attached(database, other);
  const std::vector<std::int64_t> rows = rows_to_add(database, wanted);
  const std::string sql = insert_into(wanted.rows_for);
  Query insert(database.handle(), sql.c_str());
  std::int64_t added = 0;
  for (std::size_t first = 0; first < rows.size(); first += kRowsPerTransaction) {
    const auto begin = std::chrono::steady_clock::now();
    Transaction transaction(database);
    for (std::size_t i = first; i < std::min(first + kRowsPerTransaction, rows.size()); ++i) {
      insert.restart().bind(rows[i]).bind(wanted.judged_since).run();
      added += database.changes();
    }
    transaction.commit();
    const auto took = std::chrono::steady_clock::now() - begin;
    if (first + kRowsPerTransaction < rows.size()) {
      std::this_thread::sleep_for(std::max<std::chrono::nanoseconds>(took, kShortestRest));
    }
  }
  return added;
}

}  // namespace corvane
