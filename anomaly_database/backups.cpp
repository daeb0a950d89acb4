#include "anomaly_database/backups.h"

#include "anomaly_database/schema.h"

namespace corvane {

namespace {

#define HISTORY_ROWS \
  "SELECT rowid, USER_IDENTIFIED_CLUSTER, MODE, " BACKUP_COLUMNS " FROM HIST_DATA"

void read_row(const Query& rows, HistoryRow& into) {
  into.rowid = rows.integer(0);
  into.cluster = static_cast<int>(rows.integer(1));
  into.mode = static_cast<GatherMode>(rows.integer(2));
  read_backup(rows, 3, into.backup);
}

std::string first_text(Query& rows) {
  std::string text = rows.step() ? rows.text(0) : "";
  rows.restart();
  return text;
}

}  // namespace

std::int64_t read_history(Connection& database, std::int64_t after,
                          const std::function<bool(const HistoryRow&)>& visit) {
  static constexpr char kSql[] = HISTORY_ROWS " WHERE rowid > ? ORDER BY rowid";
  Query& rows = database.query(kSql).bind(after);
  HistoryRow row;
  while (rows.step()) {
    read_row(rows, row);
    after = row.rowid;
    if (!visit(row)) break;
  }
  rows.restart();
  return after;
}

std::int64_t last_history_rowid(Connection& database) {
  static constexpr char kSql[] = "SELECT max(rowid) FROM HIST_DATA";
  return database.number(kSql);
}

std::string last_history_key(Connection& database) {
  static constexpr char kSql[] = "SELECT UNIQUE_KEY FROM HIST_DATA ORDER BY rowid DESC LIMIT 1";
  return first_text(database.query(kSql));
}

std::int64_t read_rows_to_process(
    Connection& database, std::int64_t after,
    const std::function<bool(const RowToProcess&, ProcessedStatus)>& visit) {
  static constexpr char kSql[] = "SELECT rowid, PROCESSED_STATUS, " BACKUP_COLUMNS
                                 " FROM DATA_TO_PROCESS WHERE rowid > ? ORDER BY rowid";
  Query& rows = database.query(kSql).bind(after);
  RowToProcess row;
  while (rows.step()) {
    read_backup(rows, 2, row.backup);
    row.rowid = after = rows.integer(0);
    if (!visit(row, static_cast<ProcessedStatus>(rows.integer(1)))) break;
  }
  rows.restart();
  return after;
}

std::int64_t last_rowid_to_process(Connection& database) {
  static constexpr char kSql[] = "SELECT max(rowid) FROM DATA_TO_PROCESS";
  return database.number(kSql);
}

std::string last_key_to_process(Connection& database) {
  static constexpr char kSql[] =
      "SELECT UNIQUE_KEY FROM DATA_TO_PROCESS ORDER BY rowid DESC LIMIT 1";
  return first_text(database.query(kSql));
}

std::int64_t count_waiting(Connection& database) {
  static constexpr char kSql[] = "SELECT count(*) FROM DATA_TO_PROCESS WHERE PROCESSED_STATUS = ?";
  return database.query(kSql).bind(ProcessedStatus::kWaiting).first_integer();
}

std::int64_t first_waiting(Connection& database) {
  static constexpr char kSql[] =
      "SELECT min(rowid) FROM DATA_TO_PROCESS WHERE PROCESSED_STATUS = ?";
  return database.query(kSql).bind(ProcessedStatus::kWaiting).first_integer();
}

void read_accepted(Connection& database, std::int64_t after, std::int64_t since,
                   const std::function<void(const StreamKey&, std::int64_t time)>& visit) {
  static constexpr char kSql[] =
      "SELECT BACKUP_TIME, " STREAM_KEY_COLUMNS
      " FROM HIST_DATA WHERE rowid > ? AND BACKUP_TIME > ? AND USER_IDENTIFIED_CLUSTER = ? "
      "ORDER BY rowid";
  Query& rows = database.query(kSql).bind(after).bind(since).bind(std::int64_t{kNoCluster});
  StreamKey stream;
  while (rows.step()) {
    read_stream_key(rows, 1, stream);
    visit(stream, rows.integer(0));
  }
}

std::optional<Backup> find_backup(Connection& database, const std::string& unique_key) {
  static constexpr char kToProcess[] =
      "SELECT " BACKUP_COLUMNS " FROM DATA_TO_PROCESS WHERE UNIQUE_KEY = ?";
  static constexpr char kHistory[] =
      "SELECT " BACKUP_COLUMNS " FROM HIST_DATA WHERE UNIQUE_KEY = ?";
  for (const char* sql : {kToProcess, kHistory}) {
    Query& asked = database.query(sql).bind(unique_key);
    if (!asked.step()) continue;
    Backup backup;
    read_backup(asked, 0, backup);
    asked.restart();
    return backup;
  }
  return std::nullopt;
}

std::optional<HistoryRow> find_in_history(Connection& database, const std::string& unique_key) {
  static constexpr char kSql[] = HISTORY_ROWS " WHERE UNIQUE_KEY = ?";
  Query& asked = database.query(kSql).bind(unique_key);
  if (!asked.step()) return std::nullopt;
  HistoryRow row;
  read_row(asked, row);
  asked.restart();
  return row;
}

bool is_in_history(Connection& database, const std::string& unique_key) {
  static constexpr char kSql[] = "SELECT 1 FROM HIST_DATA WHERE UNIQUE_KEY = ?";
  return database.query(kSql).bind(unique_key).has_row();
}

bool mark_processed(Connection& database, std::int64_t rowid, ProcessedStatus status) {
  static constexpr char kSql[] =
      "UPDATE DATA_TO_PROCESS SET PROCESSED_STATUS = ? WHERE rowid = ? AND PROCESSED_STATUS = ?";
  database.query(kSql).bind(status).bind(rowid).bind(ProcessedStatus::kWaiting).run();
  return database.changes() == 1;
}

void add_to_history(Connection& database, const std::string& unique_key, int cluster) {
  static const std::string kSql = "INSERT OR REPLACE INTO HIST_DATA SELECT " + backup_columns("?") +
                                  " FROM DATA_TO_PROCESS WHERE UNIQUE_KEY = ?";
  database.query(kSql).bind(std::int64_t{cluster}).bind(unique_key).run();
}

void add_false_positive_to_history(Connection& database, const std::string& unique_key,
                                   int cluster) {
  static constexpr char kMark[] =
      "UPDATE HIST_DATA SET USER_IDENTIFIED_CLUSTER = ? WHERE UNIQUE_KEY = ?";
  add_to_history(database, unique_key, cluster);
  database.query(kMark).bind(std::int64_t{cluster}).bind(unique_key).run();
}

bool unmark_false_positive(Connection& database, const std::string& unique_key) {
  static constexpr char kSql[] =
      "UPDATE HIST_DATA SET USER_IDENTIFIED_CLUSTER = ?1 WHERE UNIQUE_KEY = ?2 "
      "AND USER_IDENTIFIED_CLUSTER <> ?1 "
      "AND NOT EXISTS (SELECT 1 FROM DATA_TO_PROCESS WHERE UNIQUE_KEY = ?2)";
  database.query(kSql).bind(std::int64_t{kNoCluster}).bind(unique_key).run();
  return database.changes() > 0;
}

bool remove_false_positive(Connection& database, const std::string& unique_key) {
  static constexpr char kSql[] =
      "DELETE FROM HIST_DATA WHERE UNIQUE_KEY = ? AND USER_IDENTIFIED_CLUSTER <> ?";
  database.query(kSql).bind(unique_key).bind(std::int64_t{kNoCluster}).run();
  return database.changes() > 0;
}

}  // namespace corvane
