#include "anomaly_database/schema.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace corvane {

namespace {

constexpr std::string_view kCluster = "USER_IDENTIFIED_CLUSTER";

// Filled up with blanks.
std::string padded(std::string_view text, std::size_t width) {
  return std::string(text) + std::string(width - std::min(width, text.size()), ' ');
}

std::string backup_table(const char* table, const char* nineteenth, const char* schedule_type) {
  std::string sql = std::string("CREATE  TABLE  if not exists ") + table + " (";
  for (const auto& [name, type] : kHistoryColumns) {
    const std::string_view own_type =
        std::string_view(name) == "SCHEDULE_TYPE" ? schedule_type : type;
    sql += padded(name == kCluster ? nineteenth : name, 26) + padded(own_type, 6);
    sql += &name == &kHistoryColumns.back().name ? "PRIMARY KEY NOT NULL);" : "NOT NULL, ";
  }
  return sql;
}

// Written by the detection, read by the alerts.
constexpr char kAnomalyData[] =
    "CREATE TABLE if not exists ANOMALY_DATA ("
    "ANOMALY_UNIQUE_ID         TEXT  PRIMARY KEY NOT NULL, "
    "ANOMALY_DETAILS           TEXT  NOT NULL, "
    "PROCESSED                 INT   NOT NULL, "
    "DETECTION_KEY             TEXT  NOT NULL, "
    "CLIENT                    TEXT  NOT NULL, "
    "DETECTION_TIME            INT   NOT NULL);";

constexpr char kAnomalyDataFeedback[] =
    "CREATE TABLE if not exists ANOMALY_DATA_FEEDBACK ("
    "ANOMALY_UNIQUE_ID         TEXT  PRIMARY KEY NOT NULL, "
    "FEEDBACK                  INT   NOT NULL, "
    "CAPTURE_TIME              INT   NOT NULL);";

constexpr char kLastBackupDataCapture[] =
    "CREATE  TABLE  if not exists LAST_BACKUP_DATA_CAPTURE ("
    "LAST_BACKUP_TIME          INT   PRIMARY KEY NOT NULL);";

// The detection's neighbourhood radius for each stream.
constexpr char kDbscanModelParams[] =
    "CREATE TABLE IF NOT EXISTS DBSCAN_MODEL_PARAMS ("
    "CLIENT                    TEXT  NOT NULL, "
    "POLICY                    TEXT  NOT NULL, "
    "POLICY_TYPE               TEXT  NOT NULL, "
    "SCHEDULE_TYPE             INT   NOT NULL, "
    "SCHEDULE_NAME             TEXT  NOT NULL, "
    "APP_TYPE                  TEXT  NOT NULL, "
    "EPS                       REAL  NOT NULL, "
    "CAPTURE_DATE              INT   NOT NULL, "
    "DESTINATION_STORAGE_NAME  TEXT  NOT NULL, "
    "ASSET_ID                  TEXT  NOT NULL, "
    "PRIMARY KEY (CLIENT, POLICY, POLICY_TYPE, SCHEDULE_TYPE, SCHEDULE_NAME, APP_TYPE, "
    "DESTINATION_STORAGE_NAME));";

constexpr char kQueuedToCaptureData[] =
    "CREATE TABLE if not exists QUEUED_TO_CAPTURE_DATA ("
    "JOB_ID                    INT   PRIMARY KEY NOT NULL, "
    "START_TIME                INT   NOT NULL);";

struct TableColumns {
  std::string table;
  std::vector<std::string> columns;
};

std::vector<TableColumns> tables_of(Connection& database) {
  static constexpr char kSql[] =
      "SELECT m.name, c.name FROM sqlite_schema m, pragma_table_info(m.name) c "
      "WHERE m.type = 'table' ORDER BY m.rowid, c.cid";
  std::vector<TableColumns> tables;
  Query& rows = database.query(kSql);
  while (rows.step()) {
    if (tables.empty() || tables.back().table != rows.view(0)) tables.push_back({rows.text(0), {}});
    tables.back().columns.push_back(rows.text(1));
  }
  return tables;
}

}  // namespace

std::span<const std::string> anomaly_schema() {
  static const std::array<std::string, 7> kTables{
      backup_table("HIST_DATA", kCluster.data(), "TEXT"),
      backup_table("DATA_TO_PROCESS", "PROCESSED_STATUS", "INT"),
      kAnomalyData,
      kAnomalyDataFeedback,
      kLastBackupDataCapture,
      kDbscanModelParams,
      kQueuedToCaptureData};
  return kTables;
}

std::string backup_columns(const std::string& nineteenth) {
  std::string names;
  for (const Column& column : kHistoryColumns) {
    if (!names.empty()) names += ", ";
    names += column.name == kCluster ? nineteenth : column.name;
  }
  return names;
}

std::string missing_part(Connection& database) {
  Connection whole(":memory:", Connection::Access::kCreate);
  for (const std::string& table : anomaly_schema()) whole.execute(table.c_str());
  const std::vector<TableColumns> found = tables_of(database);
  for (const TableColumns& wanted : tables_of(whole)) {
    const auto table = std::ranges::find(found, wanted.table, &TableColumns::table);
    if (table == found.end()) return "table " + wanted.table;
    for (const std::string& column : wanted.columns) {
      if (std::ranges::find(table->columns, column) != table->columns.end()) continue;
      return "column " + column + " in table " + wanted.table;
    }
  }
  return {};
}

}  // namespace corvane
