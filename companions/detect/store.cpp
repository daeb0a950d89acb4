#include "companions/detect/store.h"

#include <string_view>

#include "sqlite/sqlite_exception.h"

namespace corvane::detect {

namespace {

using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;

// Short, so that the process still ends promptly when it is asked to while somebody else writes.
constexpr int kBusyTimeoutMs = 500;

#define BACKUP_COLUMNS                                                               \
  "rowid, UNIQUE_KEY, BACKUP_ID, JOB_ID, BACKUP_TIME, CLIENT, POLICY, POLICY_TYPE, " \
  "SCHEDULE_TYPE, SCHEDULE_NAME, APP_TYPE, DESTINATION_STORAGE_NAME, NUM_FILES, "    \
  "IMAGE_SIZE, KB_TRANSFERRED, DEDUP_RATE, TOTAL_TIME"

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

}  // namespace

// Prepared anew by SQLite itself when the service has changed the schema meanwhile.
class Store::Query {
 public:
  Query(sqlite3* db, const char* sql) : db_(db), sql_(sql) {
    sqlite3_stmt* compiled = nullptr;
    check(sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &compiled, nullptr));
    compiled_.reset(compiled);
  }

  const char* sql() const { return sql_; }

  Query& restart() {
    sqlite3_reset(compiled_.get());
    next_ = 1;
    return *this;
  }
  Query& bind(std::int64_t number) {
    check(sqlite3_bind_int64(compiled_.get(), next_++, number));
    return *this;
  }
  Query& bind(double number) {
    check(sqlite3_bind_double(compiled_.get(), next_++, number));
    return *this;
  }
  Query& bind(const std::string& text) {
    check(sqlite3_bind_text(compiled_.get(), next_++, text.data(), static_cast<int>(text.size()),
                            SQLITE_TRANSIENT));
    return *this;
  }
  bool step() {
    const int result = sqlite3_step(compiled_.get());
    if (result == SQLITE_ROW) return true;
    if (result == SQLITE_DONE) {
      sqlite3_reset(compiled_.get());
      return false;
    }
    const std::string why = sqlite3_errmsg(db_);
    sqlite3_reset(compiled_.get());
    throw sqlite_exception(std::string("Query failed: ") + why, sql_);
  }
  void run() {
    while (step()) {
    }
  }

  std::int64_t integer(int column) const { return sqlite3_column_int64(compiled_.get(), column); }
  double real(int column) const { return sqlite3_column_double(compiled_.get(), column); }
  std::string text(int column) const { return std::string(view(column)); }
  std::string_view view(int column) const {
    const unsigned char* text = sqlite3_column_text(compiled_.get(), column);
    const int bytes = sqlite3_column_bytes(compiled_.get(), column);
    if (text == nullptr) return {};
    return {reinterpret_cast<const char*>(text), static_cast<std::size_t>(bytes)};
  }

  // The columns of BACKUP_COLUMNS.
  void read_backup(Backup& backup) const {
    backup.unique_key = view(1);
    backup.backup_id = view(2);
    backup.job_id = integer(3);
    backup.time = static_cast<std::int32_t>(integer(4));
    backup.stream.client = view(5);
    backup.stream.policy = view(6);
    backup.stream.policy_type = fold_policy_type(view(7));
    backup.stream.schedule_type = fold_schedule_type(view(8));
    backup.stream.schedule_name = view(9);
    backup.stream.app_type = view(10);
    backup.stream.destination = view(11);
    backup.figures = {real(12), real(13), real(14), real(15), real(16)};
  }

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* compiled) const noexcept { sqlite3_finalize(compiled); }
  };

  void check(int result) const {
    if (result != SQLITE_OK) {
      throw sqlite_exception(std::string("Query failed: ") + sqlite3_errmsg(db_), sql_);
    }
  }

  sqlite3* db_;
  const char* sql_;
  std::unique_ptr<sqlite3_stmt, Finalize> compiled_;
  int next_ = 1;
};

Store::Store(const std::string& path, bool read_only)
    : database_(path,
                (read_only ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE) | SQLITE_OPEN_NOMUTEX) {
  sqlite3_busy_timeout(database_.get_db_handle(), kBusyTimeoutMs);
  // A commit that a power failure takes back is judged again; it need not be waited for.
  if (!read_only) database_.execute_query("PRAGMA synchronous=NORMAL;");
}

Store::~Store() { queries_.clear(); }  // before the connection

Store::Query& Store::query(const char* sql) {
  for (const auto& known : queries_) {
    if (known->sql() == sql) return known->restart();
  }
  queries_.push_back(std::make_unique<Query>(database_.get_db_handle(), sql));
  return *queries_.back();
}

std::int64_t Store::data_version() {
  static constexpr char kSql[] = "PRAGMA data_version";
  Query& asked = query(kSql);
  asked.step();
  const std::int64_t version = asked.integer(0);
  asked.restart();
  return version;
}

std::int64_t Store::read_history(std::int64_t after,
                                 const std::function<bool(const Backup&, int cluster)>& visit) {
  Query& rows = query(kReadHistory).bind(after);
  Backup backup;
  while (rows.step()) {
    rows.read_backup(backup);
    after = rows.integer(0);
    if (!visit(backup, static_cast<int>(rows.integer(17)))) break;
  }
  rows.restart();
  return after;
}

std::int64_t Store::read_rows(std::int64_t after,
                              const std::function<bool(const WaitingRow&, Status)>& visit) {
  Query& rows = query(kReadRows).bind(after);
  WaitingRow row;
  while (rows.step()) {
    rows.read_backup(row.backup);
    row.rowid = after = rows.integer(0);
    if (!visit(row, static_cast<Status>(rows.integer(17)))) break;
  }
  rows.restart();
  return after;
}

std::int64_t Store::last_history_rowid() {
  static constexpr char kSql[] = "SELECT max(rowid) FROM HIST_DATA";
  Query& asked = query(kSql);
  const std::int64_t last = asked.step() ? asked.integer(0) : 0;
  asked.restart();
  return last;
}

std::int64_t Store::last_row_rowid() {
  static constexpr char kSql[] = "SELECT max(rowid) FROM DATA_TO_PROCESS";
  Query& asked = query(kSql);
  const std::int64_t last = asked.step() ? asked.integer(0) : 0;
  asked.restart();
  return last;
}

std::optional<Backup> Store::find_backup(const std::string& unique_key) {
  for (const char* sql : {kFindRow, kFindHistory}) {
    Query& asked = query(sql).bind(unique_key);
    if (!asked.step()) continue;
    Backup backup;
    asked.read_backup(backup);
    asked.restart();
    return backup;
  }
  return std::nullopt;
}

void Store::begin() {
  static constexpr char kSql[] = "BEGIN IMMEDIATE";
  query(kSql).run();
}

void Store::commit() {
  static constexpr char kSql[] = "COMMIT";
  query(kSql).run();
}

void Store::roll_back() noexcept {
  sqlite3* db = database_.get_db_handle();
  if (db == nullptr || sqlite3_get_autocommit(db) != 0) return;
  sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
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
  static constexpr char kSql[] =
      "SELECT CLIENT, POLICY, POLICY_TYPE, SCHEDULE_TYPE, SCHEDULE_NAME, APP_TYPE, "
      "DESTINATION_STORAGE_NAME, EPS FROM DBSCAN_MODEL_PARAMS";
  Query& rows = query(kSql);
  while (rows.step()) {
    const StreamKey key{rows.text(0), rows.text(1), rows.text(2), rows.text(3),
                        rows.text(4), rows.text(5), rows.text(6)};
    visit(key.text(), rows.real(7));
  }
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
