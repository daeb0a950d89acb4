#include "anomaly_database/anomalies.h"

#include "util/json.h"

namespace corvane {

namespace {

#define ANOMALY_ROWS                                                                        \
  "SELECT a.ANOMALY_UNIQUE_ID, a.ANOMALY_DETAILS, a.PROCESSED, a.DETECTION_KEY, a.CLIENT, " \
  "a.DETECTION_TIME, f.ANOMALY_UNIQUE_ID IS NOT NULL, f.FEEDBACK, f.CAPTURE_TIME "          \
  "FROM ANOMALY_DATA a LEFT JOIN ANOMALY_DATA_FEEDBACK f "                                  \
  "ON f.ANOMALY_UNIQUE_ID = a.ANOMALY_UNIQUE_ID"

Feedback feedback_of(std::int64_t number) {
  return number != 0 ? Feedback::kFalsePositive : Feedback::kNoFalsePositive;
}

AnomalyRow read_row(const Query& row) {
  AnomalyRow anomaly;
  anomaly.id = row.view(0);
  anomaly.details = row.view(1);
  anomaly.status = row.integer(2) != 0 ? AnomalyStatus::kProcessed : AnomalyStatus::kUnprocessed;
  anomaly.detection_key = row.view(3);
  anomaly.client = row.view(4);
  anomaly.detection_time = row.integer(5);
  if (row.integer(6) != 0) anomaly.feedback = feedback_of(row.integer(7));
  anomaly.feedback_time = row.integer(8);
  return anomaly;
}

std::vector<AnomalyRow> read_rows(Query& rows) {
  std::vector<AnomalyRow> all;
  while (rows.step()) all.push_back(read_row(rows));
  return all;
}

}  // namespace

std::optional<AnomalyRow> find_anomaly_row(Connection& database, const std::string& id) {
  static constexpr char kSql[] = ANOMALY_ROWS " WHERE a.ANOMALY_UNIQUE_ID = ?";
  std::vector<AnomalyRow> found = read_rows(database.query(kSql).bind(id));
  if (found.empty()) return std::nullopt;
  return std::move(found.front());
}

bool has_anomaly(Connection& database, const std::string& id) {
  static constexpr char kSql[] = "SELECT 1 FROM ANOMALY_DATA WHERE ANOMALY_UNIQUE_ID = ?";
  return database.query(kSql).bind(id).has_row();
}

std::vector<AnomalyRow> find_anomalies_named_after(Connection& database,
                                                   const std::string& backup_id) {
  // The inner query reads only the index of the primary key.
  static constexpr char kSql[] = ANOMALY_ROWS
      " WHERE a.ANOMALY_UNIQUE_ID IN (SELECT ANOMALY_UNIQUE_ID FROM ANOMALY_DATA "
      "WHERE substr(ANOMALY_UNIQUE_ID, -length(?1)) = ?1)";
  return read_rows(database.query(kSql).bind("_" + backup_id));
}

std::vector<AnomalyRow> find_anomalies_that_name(Connection& database,
                                                 const std::string& backup_id) {
  static constexpr char kSql[] = ANOMALY_ROWS " WHERE instr(a.ANOMALY_DETAILS, ?) > 0";
  return read_rows(database.query(kSql).bind(quoted_json(backup_id)));
}

void read_anomaly_rows(Connection& database, const std::function<void(AnomalyRow&&)>& visit) {
  static constexpr char kSql[] = ANOMALY_ROWS " ORDER BY a.rowid";
  Query& rows = database.query(kSql);
  while (rows.step()) visit(read_row(rows));
}

std::vector<AnomalyRow> unprocessed_rows(Connection& database) {
  static constexpr char kSql[] =
      ANOMALY_ROWS " WHERE a.PROCESSED = ? ORDER BY a.DETECTION_TIME, a.rowid";
  return read_rows(database.query(kSql).bind(AnomalyStatus::kUnprocessed));
}

std::vector<std::string> unprocessed_anomalies(Connection& database) {
  static constexpr char kSql[] =
      "SELECT ANOMALY_UNIQUE_ID FROM ANOMALY_DATA WHERE PROCESSED = ? "
      "ORDER BY DETECTION_TIME, rowid";
  std::vector<std::string> ids;
  Query& rows = database.query(kSql).bind(AnomalyStatus::kUnprocessed);
  while (rows.step()) ids.push_back(rows.text(0));
  return ids;
}

void read_feedback(Connection& database,
                   const std::function<void(const std::string& anomaly_id, Feedback)>& visit) {
  static constexpr char kSql[] = "SELECT ANOMALY_UNIQUE_ID, FEEDBACK FROM ANOMALY_DATA_FEEDBACK";
  Query& rows = database.query(kSql);
  while (rows.step()) visit(rows.text(0), feedback_of(rows.integer(1)));
}

std::int64_t count_feedback(Connection& database) {
  static constexpr char kSql[] = "SELECT count(*) FROM ANOMALY_DATA_FEEDBACK";
  return database.number(kSql);
}

void add_anomaly(Connection& database, const AnomalyRow& row) {
  static constexpr char kSql[] = "INSERT OR IGNORE INTO ANOMALY_DATA VALUES (?, ?, ?, ?, ?, ?)";
  database.query(kSql)
      .bind(row.id)
      .bind(row.details)
      .bind(row.status)
      .bind(row.detection_key)
      .bind(row.client)
      .bind(row.detection_time)
      .run();
}

void set_details(Connection& database, const std::string& id, const std::string& details) {
  static constexpr char kSql[] =
      "UPDATE ANOMALY_DATA SET ANOMALY_DETAILS = ? WHERE ANOMALY_UNIQUE_ID = ?";
  database.query(kSql).bind(details).bind(id).run();
}

void mark_processed(Connection& database, const std::string& id) {
  static constexpr char kSql[] =
      "UPDATE ANOMALY_DATA SET PROCESSED = ? WHERE ANOMALY_UNIQUE_ID = ?";
  database.query(kSql).bind(AnomalyStatus::kProcessed).bind(id).run();
}

}  // namespace corvane
