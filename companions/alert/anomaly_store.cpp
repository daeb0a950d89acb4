#include "companions/alert/anomaly_store.h"

namespace corvane::alert {

namespace {

// Short, so that the process still ends promptly when it is asked to while somebody else writes.
constexpr int kBusyTimeoutMs = 500;

}  // namespace

AnomalyStore::AnomalyStore(const std::string& path)
    : database_(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX) {
  sqlite3_busy_timeout(database_.get_db_handle(), kBusyTimeoutMs);
  // A mark that a power failure takes back is made again.
  database_.execute_query("PRAGMA synchronous=NORMAL;");
}

AnomalyStore::~AnomalyStore() { queries_.clear(); }  // before the connection

AnomalyStore::Snapshot::Snapshot(AnomalyStore& store) : store_(store) {
  static constexpr char kSql[] = "BEGIN";
  store_.query(kSql).run();
}

AnomalyStore::Snapshot::~Snapshot() {
  sqlite3_exec(store_.database_.get_db_handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

Query& AnomalyStore::query(const char* sql) { return queries_.get(database_.get_db_handle(), sql); }

std::int64_t AnomalyStore::data_version() {
  static constexpr char kSql[] = "PRAGMA data_version";
  return query(kSql).first_integer();
}

std::vector<std::int64_t> AnomalyStore::unprocessed() {
  static constexpr char kSql[] =
      "SELECT rowid FROM ANOMALY_DATA WHERE PROCESSED = 0 ORDER BY DETECTION_TIME, rowid";
  std::vector<std::int64_t> rowids;
  Query& rows = query(kSql);
  while (rows.step()) rowids.push_back(rows.integer(0));
  return rowids;
}

std::optional<AnomalyRow> AnomalyStore::row(std::int64_t rowid) {
  static constexpr char kSql[] =
      "SELECT ANOMALY_UNIQUE_ID, ANOMALY_DETAILS, DETECTION_KEY, CLIENT, DETECTION_TIME "
      "FROM ANOMALY_DATA WHERE rowid = ?";
  Query& asked = query(kSql).bind(rowid);
  if (!asked.step()) return std::nullopt;
  AnomalyRow row{asked.text(0), asked.text(1), asked.text(2), asked.text(3), asked.integer(4)};
  asked.restart();
  return row;
}

std::string AnomalyStore::details(const std::string& anomaly_id) {
  static constexpr char kSql[] =
      "SELECT ANOMALY_DETAILS FROM ANOMALY_DATA WHERE ANOMALY_UNIQUE_ID = ?";
  Query& asked = query(kSql).bind(anomaly_id);
  std::string details = asked.step() ? asked.text(0) : "";
  asked.restart();
  return details;
}

bool AnomalyStore::is_false_positive(const std::string& anomaly_id) {
  static constexpr char kSql[] =
      "SELECT FEEDBACK FROM ANOMALY_DATA_FEEDBACK WHERE ANOMALY_UNIQUE_ID = ?";
  return query(kSql).bind(anomaly_id).first_integer() != 0;
}

void AnomalyStore::mark_processed(const std::vector<std::string>& anomaly_ids) {
  static constexpr char kSql[] =
      "UPDATE ANOMALY_DATA SET PROCESSED = 1 WHERE ANOMALY_UNIQUE_ID = ?";
  Transaction transaction(database_.get_db_handle());
  for (const std::string& id : anomaly_ids) query(kSql).bind(id).run();
  transaction.commit();
}

std::int64_t AnomalyStore::last_history_rowid() {
  static constexpr char kSql[] = "SELECT max(rowid) FROM HIST_DATA";
  return query(kSql).first_integer();
}

void AnomalyStore::read_history(std::int64_t after, std::int64_t since,
                                const std::function<void(const UsualBackup&)>& visit) {
  static constexpr char kSql[] =
      "SELECT BACKUP_TIME, USER_IDENTIFIED_CLUSTER, " STREAM_KEY_COLUMNS
      " FROM HIST_DATA WHERE rowid > ? AND BACKUP_TIME > ? ORDER BY rowid";
  Query& rows = query(kSql).bind(after).bind(since);
  while (rows.step()) {
    visit({read_stream_key(rows, 2), rows.integer(0), rows.integer(1) >= 0});
  }
}

}  // namespace corvane::alert
