// The service's part of the anomaly database: creating the tables, bookkeeping of gathers, purge.
#include <array>
#include <stdexcept>

#include "anomaly_database/schema.h"
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
    for (const std::string& table : corvane::anomaly_schema()) m_db->create_table(table);
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
