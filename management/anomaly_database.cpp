// The anomaly database: schema, gather bookkeeping, purge.
#include <array>
#include <stdexcept>

#include "config/service_values.h"
#include "management/management_service.h"
#include "platform/clock.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"
#include "sqlite/statement.h"
#include "util/path.h"

using Altamir::Corvane::UsageReporting::SQLiteDatabase::Row;
using Altamir::Corvane::UsageReporting::SQLiteDatabase::Statement;
using corvane::kLogDetail;
using corvane::kLogError;
using corvane::kManagementProgram;

namespace {

constexpr int kOpenFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
static_assert(kOpenFlags == 32774);

// USER_IDENTIFIED_CLUSTER is -1 for a row that no user has assigned to a cluster.
constexpr char kHistData[] =
    "CREATE  TABLE  if not exists HIST_DATA ("
    "BACKUP_ID                 INT   NOT NULL, "
    "BACKUP_TIME               INT   NOT NULL, "
    "CLIENT                    TEXT  NOT NULL, "
    "POLICY                    TEXT  NOT NULL, "
    "POLICY_TYPE               TEXT  NOT NULL, "
    "SCHEDULE_TYPE             TEXT  NOT NULL, "
    "SCHEDULE_NAME             TEXT  NOT NULL, "
    "APP_TYPE                  TEXT  NOT NULL, "
    "NUM_FILES                 INT   NOT NULL, "
    "IMAGE_SIZE                REAL  NOT NULL, "
    "JOB_ID                    INT   NOT NULL, "
    "PARENT_JOB_ID             INT   NOT NULL, "
    "KB_TRANSFERRED            REAL  NOT NULL, "
    "START_TIME                INT   NOT NULL, "
    "END_TIME                  INT   NOT NULL, "
    "TOTAL_TIME                INT   NOT NULL, "
    "DEDUP_RATE                REAL  NOT NULL, "
    "MODE                      INT   NOT NULL, "
    "USER_IDENTIFIED_CLUSTER   INT   NOT NULL, "
    "DESTINATION_STORAGE_NAME  TEXT  NOT NULL, "
    "STREAM_NUMBER             INT   NOT NULL, "
    "ASSET_ID                  TEXT  NOT NULL, "
    "UNIQUE_KEY                TEXT  PRIMARY KEY NOT NULL);";

// As HIST_DATA, but for the type of SCHEDULE_TYPE and the nineteenth column.
constexpr char kDataToProcess[] =
    "CREATE  TABLE  if not exists DATA_TO_PROCESS ("
    "BACKUP_ID                 INT   NOT NULL, "
    "BACKUP_TIME               INT   NOT NULL, "
    "CLIENT                    TEXT  NOT NULL, "
    "POLICY                    TEXT  NOT NULL, "
    "POLICY_TYPE               TEXT  NOT NULL, "
    "SCHEDULE_TYPE             INT   NOT NULL, "
    "SCHEDULE_NAME             TEXT  NOT NULL, "
    "APP_TYPE                  TEXT  NOT NULL, "
    "NUM_FILES                 INT   NOT NULL, "
    "IMAGE_SIZE                REAL  NOT NULL, "
    "JOB_ID                    INT   NOT NULL, "
    "PARENT_JOB_ID             INT   NOT NULL, "
    "KB_TRANSFERRED            REAL  NOT NULL, "
    "START_TIME                INT   NOT NULL, "
    "END_TIME                  INT   NOT NULL, "
    "TOTAL_TIME                INT   NOT NULL, "
    "DEDUP_RATE                REAL  NOT NULL, "
    "MODE                      INT   NOT NULL, "
    "PROCESSED_STATUS          INT   NOT NULL, "
    "DESTINATION_STORAGE_NAME  TEXT  NOT NULL, "
    "STREAM_NUMBER             INT   NOT NULL, "
    "ASSET_ID                  TEXT  NOT NULL, "
    "UNIQUE_KEY                TEXT  PRIMARY KEY NOT NULL);";

// Written by the detection daemon, read by the alert daemon.
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

// The detection daemon's neighbourhood radius for each backup stream.
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

constexpr std::array kTables{kHistData,
                             kDataToProcess,
                             kAnomalyData,
                             kAnomalyDataFeedback,
                             kLastBackupDataCapture,
                             kDbscanModelParams,
                             kQueuedToCaptureData};

constexpr std::array kPurges{
    "DELETE FROM ANOMALY_DATA WHERE DETECTION_TIME < ? ;",
    "DELETE FROM ANOMALY_DATA_FEEDBACK WHERE CAPTURE_TIME < ? ;",
    "DELETE FROM HIST_DATA WHERE BACKUP_TIME < ? AND USER_IDENTIFIED_CLUSTER = -1;",
    "DELETE FROM DATA_TO_PROCESS WHERE BACKUP_TIME < ? ;"};

}  // namespace

void ManagementService::initializeDB() {
  try {
    m_db =
        std::make_unique<DBAccess>(Path::Combine(m_database_location, m_database_name), kOpenFlags);
  } catch (...) {
    constexpr char kMessage[] = "Failed to create database object";
    logmsgf(kLogError, kManagementProgram, kMessage);
    throw std::runtime_error(kMessage);
  }
  create_database_schema();
}

void ManagementService::create_database_schema() {
  try {
    m_db->execute_query("PRAGMA journal_mode=WAL;");
    for (const char* table : kTables) m_db->create_table(table);
  } catch (const std::exception& error) {
    throw std::runtime_error(std::string("Failed to create database.") + error.what());
  }
}

void ManagementService::store_last_gather_time(int time) {
  try {
    m_db->execute_query("DELETE FROM LAST_BACKUP_DATA_CAPTURE");
    Statement insert(m_db->get_db_handle(),
                     "INSERT OR REPLACE INTO LAST_BACKUP_DATA_CAPTURE VALUES(?)");
    insert.bind(1, time);
    m_db->execute_query_prepared(insert);
  } catch (const std::exception& error) {
    logmsgf(kLogError, kManagementProgram,
            "Failed to insert last known data gather time to database  %s", error.what());
  }
}

int ManagementService::get_last_gather_time() {
  try {
    std::vector<Row> rows;
    m_db->read_data("SELECT LAST_BACKUP_TIME FROM LAST_BACKUP_DATA_CAPTURE;", rows);
    return rows.empty() ? 0 : static_cast<int>(rows[0]["LAST_BACKUP_TIME"]);
  } catch (const std::exception& error) {
    logmsgf(kLogError, kManagementProgram,
            "Failed to get last known data gather time to database %s", error.what());
    return 0;
  }
}

int ManagementService::get_queued_job_time() {
  int earliest = 0;
  try {
    std::vector<Row> count;
    m_db->read_data("SELECT COUNT(*) FROM QUEUED_TO_CAPTURE_DATA;", count);
    if (count.empty() || static_cast<int>(count[0]["COUNT(*)"]) <= 0) return 0;
    std::vector<Row> minimum;
    m_db->read_data("SELECT MIN(START_TIME) FROM QUEUED_TO_CAPTURE_DATA;", minimum);
    if (!minimum.empty()) earliest = minimum[0]["MIN(START_TIME)"];
    m_db->execute_query("DELETE FROM QUEUED_TO_CAPTURE_DATA");
  } catch (const std::exception& error) {
    logmsgf(kLogError, kManagementProgram, "Failed to query queued job details %s", error.what());
  }
  return earliest;
}

void ManagementService::purge_database() {
  const int cut_off =
      corvane::purge_cut_off(static_cast<int>(corvane::now()), m_purge_interval_in_months);
  logmsgf(kLogDetail, kManagementProgram, "Cleaning records before %d", cut_off);
  try {
    for (const char* purge : kPurges) {
      Statement statement(m_db->get_db_handle(), purge);
      statement.bind(1, cut_off);
      m_db->execute_query_prepared(statement);
    }
  } catch (...) {
    logmsgf(kLogError, kManagementProgram, "Failed to purge database.");
  }
}
