#include "companions/detect/store.h"

#include <string_view>

namespace corvane::detect {

namespace {

// Short, so that the process still ends promptly when it is asked to while somebody else writes.
constexpr int kBusyTimeoutMs = 500;
constexpr int kReaderBusyTimeoutMs = 5000;  // a person's question: nobody waits for its end

#define BACKUP_COLUMNS                                                         \
  "rowid, UNIQUE_KEY, BACKUP_ID, JOB_ID, BACKUP_TIME, NUM_FILES, IMAGE_SIZE, " \
  "KB_TRANSFERRED, DEDUP_RATE, TOTAL_TIME, " STREAM_KEY_COLUMNS
constexpr int kStreamColumn = 10;
constexpr int kBackupColumns = kStreamColumn + kStreamKeyColumns;

constexpr char kReadHistory[] = "SELECT " BACKUP_COLUMNS
                                ", USER_IDENTIFIED_CLUSTER FROM HIST_DATA WHERE rowid > ? "
                                "ORDER BY rowid";
constexpr char kReadRows[] = "SELECT " BACKUP_COLUMNS
                             ", PROCESSED_STATUS FROM DATA_TO_PROCESS WHERE rowid > ? "
                             "ORDER BY rowid";
constexpr char kFindRow[] = "SELECT " BACKUP_COLUMNS " FROM DATA_TO_PROCESS WHERE UNIQUE_KEY = ?";
constexpr char kFindHistory[] = "SELECT " BACKUP_COLUMNS " FROM HIST_DATA WHERE UNIQUE_KEY = ?";
constexpr char kAddToHistory[] =
    "INSERT OR REPLACE INTO HIST_DATA SELECT BACKUP_ID, BACKUP_TIME, CLIENT, POLICY, POLICY_TYPE, "
    "SCHEDULE_TYPE, SCHEDULE_NAME, APP_TYPE, NUM_FILES, IMAGE_SIZE, JOB_ID, PARENT_JOB_ID, "
    "KB_TRANSFERRED, START_TIME, END_TIME, TOTAL_TIME, DEDUP_RATE, MODE, ?, "
    "DESTINATION_STORAGE_NAME, STREAM_NUMBER, ASSET_ID, UNIQUE_KEY FROM DATA_TO_PROCESS "
    "WHERE UNIQUE_KEY = ?";

// The columns of BACKUP_COLUMNS.
void read_backup(const Query& row, Backup& backup) {
  backup.unique_key = row.view(1);
  backup.backup_id = row.view(2);
  backup.job_id = row.integer(3);
  backup.time = static_cast<std::int32_t>(row.integer(4));
  backup.figures = {row.real(5), row.real(6), row.real(7), row.real(8), row.real(9)};
  read_stream_key(row, kStreamColumn, backup.stream);
}

}  // namespace

Store::Store(const std::string& path, bool read_only)
    : database_(path,
                (read_only ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE) | SQLITE_OPEN_NOMUTEX) {
  sqlite3_busy_timeout(database_.get_db_handle(),
                       read_only ? kReaderBusyTimeoutMs : kBusyTimeoutMs);
  // A commit that a power failure takes back is judged again; it need not be waited for.
  if (!read_only) database_.execute_query("PRAGMA synchronous=NORMAL;");
}

Store::~Store() { queries_.clear(); }  // before the connection

Query& Store::query(const char* sql) { return queries_.get(database_.get_db_handle(), sql); }

std::int64_t Store::data_version() {
  static constexpr char kSql[] = "PRAGMA data_version";
  return query(kSql).first_integer();
}

std::int64_t Store::read_history(std::int64_t after,
                                 const std::function<bool(const Backup&, int cluster)>& visit) {
  Query& rows = query(kReadHistory).bind(after);
  Backup backup;
  while (rows.step()) {
    read_backup(rows, backup);
    after = rows.integer(0);
    if (!visit(backup, static_cast<int>(rows.integer(kBackupColumns)))) break;
  }
  rows.restart();
  return after;
}

std::int64_t Store::read_rows(std::int64_t after,
                              const std::function<bool(const WaitingRow&, Status)>& visit) {
  Query& rows = query(kReadRows).bind(after);
  WaitingRow row;
  while (rows.step()) {
    read_backup(rows, row.backup);
    row.rowid = after = rows.integer(0);
    if (!visit(row, static_cast<Status>(rows.integer(kBackupColumns)))) break;
  }
  rows.restart();
  return after;
}

std::int64_t Store::last_history_rowid() {
  static constexpr char kSql[] = "SELECT max(rowid) FROM HIST_DATA";
  return query(kSql).first_integer();
}

std::int64_t Store::last_row_rowid() {
  static constexpr char kSql[] = "SELECT max(rowid) FROM DATA_TO_PROCESS";
  return query(kSql).first_integer();
}

std::optional<Backup> Store::find_backup(const std::string& unique_key) {
  for (const char* sql : {kFindRow, kFindHistory}) {
    Query& asked = query(sql).bind(unique_key);
    if (!asked.step()) continue;
    Backup backup;
    read_backup(asked, backup);
    asked.restart();
    return backup;
  }
  return std::nullopt;
}

bool Store::mark(std::int64_t rowid, Status status) {
  static constexpr char kSql[] =
      "UPDATE DATA_TO_PROCESS SET PROCESSED_STATUS = ? WHERE rowid = ? AND PROCESSED_STATUS = 0";
  query(kSql).bind(static_cast<std::int64_t>(status)).bind(rowid).run();
  return sqlite3_changes(database_.get_db_handle()) == 1;
}

bool Store::is_reported(const std::string& anomaly_id) {
  static constexpr char kSql[] = "SELECT 1 FROM ANOMALY_DATA WHERE ANOMALY_UNIQUE_ID = ?";
  Query& asked = query(kSql).bind(anomaly_id);
  const bool found = asked.step();
  asked.restart();
  return found;
}

bool Store::is_in_history(const std::string& unique_key) {
  static constexpr char kSql[] = "SELECT 1 FROM HIST_DATA WHERE UNIQUE_KEY = ?";
  Query& asked = query(kSql).bind(unique_key);
  const bool found = asked.step();
  asked.restart();
  return found;
}

void Store::add_to_history(const std::string& unique_key, int cluster) {
  query(kAddToHistory).bind(std::int64_t{cluster}).bind(unique_key).run();
}

void Store::remove_from_history(const std::string& unique_key) {
  static constexpr char kSql[] =
      "DELETE FROM HIST_DATA WHERE UNIQUE_KEY = ? AND USER_IDENTIFIED_CLUSTER <> -1";
  query(kSql).bind(unique_key).run();
}

void Store::report(const std::string& anomaly_id, const std::string& details,
                   const StreamKey& stream, int detection_time) {
  static constexpr char kSql[] = "INSERT OR IGNORE INTO ANOMALY_DATA VALUES (?, ?, 0, ?, ?, ?)";
  query(kSql)
      .bind(anomaly_id)
      .bind(details)
      .bind(stream.text())
      .bind(stream.client)
      .bind(std::int64_t{detection_time})
      .run();
}

std::optional<std::string> Store::details(const std::string& anomaly_id) {
  static constexpr char kSql[] =
      "SELECT ANOMALY_DETAILS FROM ANOMALY_DATA WHERE ANOMALY_UNIQUE_ID = ?";
  Query& asked = query(kSql).bind(anomaly_id);
  if (!asked.step()) return std::nullopt;
  std::string details = asked.text(0);
  asked.restart();
  return details;
}

void Store::set_details(const std::string& anomaly_id, const std::string& details) {
  static constexpr char kSql[] =
      "UPDATE ANOMALY_DATA SET ANOMALY_DETAILS = ? WHERE ANOMALY_UNIQUE_ID = ?";
  query(kSql).bind(details).bind(anomaly_id).run();
}

void Store::read_feedback(
    const std::function<void(const std::string& anomaly_id, bool false_positive)>& visit) {
  static constexpr char kSql[] = "SELECT ANOMALY_UNIQUE_ID, FEEDBACK FROM ANOMALY_DATA_FEEDBACK";
  Query& rows = query(kSql);
  while (rows.step()) visit(rows.text(0), rows.integer(1) != 0);
}

void Store::read_eps(const std::function<void(const std::string& stream, double eps)>& visit) {
  static constexpr char kSql[] = "SELECT EPS, " STREAM_KEY_COLUMNS " FROM DBSCAN_MODEL_PARAMS";
  Query& rows = query(kSql);
  while (rows.step()) visit(read_stream_key(rows, 1).text(), rows.real(0));
}

void Store::store_eps(const StreamKey& stream, double eps, int capture_time) {
  static constexpr char kSql[] =
      "INSERT OR REPLACE INTO DBSCAN_MODEL_PARAMS VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, 'NA')";
  query(kSql)
      .bind(stream.client)
      .bind(stream.policy)
      .bind(stream.policy_type)
      .bind(stream.schedule_type)
      .bind(stream.schedule_name)
      .bind(stream.app_type)
      .bind(eps)
      .bind(std::int64_t{capture_time})
      .bind(stream.destination)
      .run();
}

}  // namespace corvane::detect
