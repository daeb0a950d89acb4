#include "management/management_service.h"

#include <stdexcept>

#include "config/configuration.h"
#include "config/service_values.h"
#include "config/setting_values.h"
#include "gather/rollback.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"
#include "service/child_supervision.h"
#include "service/host_role.h"
#include "service/service_stop_exception.h"
#include "service/signals.h"
#include "service/state_flags.h"
#include "util/file.h"
#include "util/wrapping.h"

using corvane::kAlertProgram;
using corvane::kDetectionProgram;
using corvane::kLogDetail;
using corvane::kLogError;
using corvane::kLogEvent;
using corvane::kLogWarning;
using corvane::kManagementProgram;

namespace {

constexpr char kHistoricalTag[] = "ManagementService::do_historical_gather";
constexpr char kDatabaseName[] = "CV_Anomaly.db";
constexpr int kHistorySeconds = 91 * 24 * 60 * 60;
constexpr int kSliceSeconds = 60 * 60;

int now_seconds() { return static_cast<int>(corvane::now()); }

int elapsed_seconds(std::time_t since) { return static_cast<int>(corvane::now() - since); }

// The configured minutes between two gathers, within bounds; `found` says whether they are
// configured.
int read_fetch_interval(Configuration& config, bool& found) {
  const std::string value = corvane::value_of(config, corvane::setting::kGatherFrequency);
  found = !value.empty();
  return corvane::gather_interval_minutes(value);
}

// Slices of an hour that cover a range, both ends included; a shorter slice, if any, comes first.
// An empty or reversed range has none.
std::vector<DataGather::TimeRange> hour_slices(const DataGather::TimeRange& range) {
  const auto [start, end] = range;
  const int length = corvane::wrapping_subtract(end, start);
  const int count = length / kSliceSeconds + (length % kSliceSeconds > 0 ? 1 : 0);
  std::vector<DataGather::TimeRange> slices;
  int slice_start = start;
  for (int remaining = count - 1; remaining >= 0; --remaining) {
    const int slice_end = corvane::wrapping_subtract(end, remaining * kSliceSeconds);
    slices.emplace_back(slice_start, slice_end);
    slice_start = corvane::wrapping_add(slice_end, 1);
  }
  return slices;
}

void throw_when_stopping() {
  if (!isTimeToStop()) return;
  logmsgf(kLogEvent, kHistoricalTag, "Service has been requested to stop");
  throw ServiceStopException(kHistoricalTag);
}

}  // namespace

ManagementService::ManagementService() : ManagementService("", "", "", "", 0) {}

ManagementService::ManagementService(const std::string& location, const std::string& name,
                                     const std::string& gather_mode,
                                     const std::string& master_server, int interval)
    : m_database_location(location),
      m_database_name(name),
      m_gather_mode(gather_mode),
      m_data_fetch_interval_in_mins(interval),
      m_purge_interval_in_months(corvane::default_number(corvane::setting::kPurgeInterval)),
      m_master_server(master_server),
      m_disable_management(0),
      m_disable_detection(1),
      m_disable_alert(1) {}

int ManagementService::populate_config_params() {
  m_database_location = getDBLocation();
  m_database_name = kDatabaseName;
  m_gather_mode = "FULL";
  if (getConfigFilePath(m_config_file_path) != 0) {
    logmsgf(kLogWarning, kManagementProgram, "Could not determine the path to config file");
  }
  Configuration config(m_config_file_path, 1);
  bool found = false;
  m_data_fetch_interval_in_mins = read_fetch_interval(config, found);
  if (!found) {
    logmsgf(kLogError, kManagementProgram,
            "Failed to get fetch interval value from configuration. Assigning default value");
  }
  const std::string purge_interval = corvane::value_of(config, corvane::setting::kPurgeInterval);
  if (purge_interval.empty()) {
    logmsgf(kLogError, kManagementProgram,
            "Failed to get purge interval value from configuration. Assigning default value");
  }
  m_purge_interval_in_months = corvane::purge_interval_months(purge_interval);
  std::string master_server;
  getMasterServerName(master_server);
  if (master_server.empty()) {
    logmsgf(kLogError, kManagementProgram, "Failed to get master server name");
    return 1;
  }
  m_master_server = master_server;
  logmsgf(kLogDetail, kManagementProgram, "m_database_location:[%s]", m_database_location.c_str());
  logmsgf(kLogDetail, kManagementProgram, "m_database_name:[%s]", m_database_name.c_str());
  logmsgf(kLogDetail, kManagementProgram, "m_gather_mode:[%s]", m_gather_mode.c_str());
  logmsgf(kLogDetail, kManagementProgram, "m_data_fetch_interval_in_mins:[%d]",
          m_data_fetch_interval_in_mins);
  return 0;
}

void ManagementService::capture_updated_gather_frequency() {
  Configuration config(m_config_file_path, 1);
  bool found = false;
  m_data_fetch_interval_in_mins = read_fetch_interval(config, found);
  logmsgf(kLogDetail, kManagementProgram, "Using gather frequency as %d mins",
          m_data_fetch_interval_in_mins);
}

void ManagementService::start() {
  const std::time_t started = corvane::now();
  try {
    initializeDB();
  } catch (...) {
    constexpr char kMessage[] = "Exception occured while initialising database";
    logmsgf(kLogError, kManagementProgram, kMessage);
    throw std::runtime_error(kMessage);
  }
  DataGather gather(m_db.get(), m_database_location, m_master_server);
  if (!is_historical_gather_done()) {
    logmsgf(kLogDetail, kManagementProgram, "Historical gather is not done.");
    // A service that is restarted again and again must not start the costly history each time.
    if (!await_first_interval(started)) return;
    try {
      start_historical_gather(gather);
    } catch (const ServiceStopException& stop) {
      logmsgf(kLogEvent, kManagementProgram, "[%s] intercepted a shutdown request", stop.what());
      return;
    }
  }
  std::time_t last_gather = corvane::now();
  while (run_pass(gather, last_gather)) corvane::sleep(1);
}

bool ManagementService::await_first_interval(std::time_t since) {
  while (!isTimeToStop()) {
    if (interval_passed(since)) return true;
    corvane::sleep(1);
  }
  return false;
}

bool ManagementService::interval_passed(std::time_t since) const {
  return std::difftime(corvane::now(), since) >=
         corvane::wrapping_multiply(m_data_fetch_interval_in_mins, 60);
}

bool ManagementService::run_pass(DataGather& gather, std::time_t& last_gather) {
  if (isTimeToStop()) return false;
  handle_state_changes();
  if (m_disable_management == 1) {
    logmsgf(kLogEvent, kManagementProgram, "Detection has been disabled. Exiting");
    return false;
  }
  if (m_gather_mode == "LIVE_ONLY" && consume_terminate_request()) return false;
  if (!interval_passed(last_gather)) return true;

  if (isAnomalyRunningOnDiffServer()) {
    logmsgf(kLogEvent, kManagementProgram, "Running on different anomaly proxy server. Exiting");
    corvane::sleep(4);
    return false;
  }
  gather.set_detection_state(m_disable_detection);
  live_gather(gather);
  last_gather = corvane::now();
  capture_updated_gather_frequency();
  return true;
}

bool ManagementService::consume_terminate_request() {
  const std::string request = m_database_location + "/terminate_gather";
  if (!File::Exists(request)) return false;
  File::Delete(request);
  corvane::write_console("\nTerminating data gather.");
  logmsgf(kLogEvent, kManagementProgram, "\nTerminating data gather\n");
  return true;
}

int ManagementService::handle_state_changes() {
  int disable_management = 0;
  int disable_detection = 0;
  int disable_alert = 0;
  ReadConfigStateFlags(disable_management, disable_detection, disable_alert);
  if (ValidateConfigStateFlags(disable_management, disable_detection, disable_alert) == 0) {
    logmsgf(kLogWarning, kManagementProgram,
            "Invalid state flags in config file. Not changing any current behaviour");
    return 1;
  }
  if (disable_management == m_disable_management && disable_detection == m_disable_detection &&
      disable_alert == m_disable_alert) {
    return 0;
  }
  m_disable_management = disable_management;
  m_disable_detection = disable_detection;
  m_disable_alert = disable_alert;
  logmsgf(kLogDetail, kManagementProgram, "Disable Mgmt:[%d]", disable_management);
  logmsgf(kLogDetail, kManagementProgram, "Disable Detection:[%d]", disable_detection);
  logmsgf(kLogDetail, kManagementProgram, "Disable Alert:[%d]", disable_alert);
  // The alerts read what the detection writes: they are stopped before it and started after it.
  if (disable_management == 1 || disable_detection == 1) {
    handleChildProc(kAlertProgram, "STOP");
    handleChildProc(kDetectionProgram, "STOP");
  } else {
    handleChildProc(kDetectionProgram, "START");
    handleChildProc(kAlertProgram, disable_alert == 1 ? "STOP" : "START");
  }
  return 0;
}

void ManagementService::start_historical_gather(DataGather& gather) {
  if (m_gather_mode == "LIVE_ONLY") {
    store_last_gather_time(now_seconds());
    corvane::sleep(
        static_cast<unsigned>(corvane::wrapping_multiply(m_data_fetch_interval_in_mins, 60)));
    return;
  }
  if (is_historical_gather_done()) return;
  const std::time_t begin = corvane::now();
  do_historical_gather(gather);
  logmsgf(kLogDetail, kManagementProgram, "Total time taken for historical gather %d.",
          elapsed_seconds(begin));
}

int ManagementService::is_historical_gather_done() {
  std::vector<Altamir::Corvane::UsageReporting::SQLiteDatabase::Row> rows;
  m_db->read_data("SELECT COUNT(*) FROM LAST_BACKUP_DATA_CAPTURE;", rows);
  if (rows.empty() || static_cast<int>(rows[0]["COUNT(*)"]) <= 0) return 0;
  logmsgf(kLogDetail, kManagementProgram, "Historical data captured earlier.");
  return 1;
}

void ManagementService::do_historical_gather(DataGather& gather) {
  logmsgf(kLogDetail, kHistoricalTag, "Capturing historical data.");
  const int end = now_seconds();
  const int start = corvane::wrapping_subtract(end, kHistorySeconds);
  logmsgf(kLogDetail, kHistoricalTag, "Capturing data between %d & %d ", start, end);
  for (const auto& range : gather.do_cvdeployutil_gather(start, end)) {
    throw_when_stopping();
    for (const auto& [slice_start, slice_end] : hour_slices(range)) {
      throw_when_stopping();
      gather_slice(gather, slice_start, slice_end);
    }
  }
  logmsgf(kLogDetail, kManagementProgram, "Done capturing historical data.");
  store_last_gather_time(end);
}

void ManagementService::gather_slice(DataGather& gather, int start, int end) {
  logmsgf(kLogDetail, kHistoricalTag, "Capturing data between %d & %d ", start, end);
  try {
    m_db->begin_transaction();
    gather.do_historical_gather(start, end);
    m_db->commit_transaction();
  } catch (...) {
    logmsgf(kLogDetail, kManagementProgram, "Error occurred while capturing data between %d & %d ",
            start, end);
    corvane::roll_back(*m_db, kManagementProgram);
  }
}

void ManagementService::live_gather(DataGather& gather) {
  const std::time_t begin = corvane::now();
  const int now = static_cast<int>(begin);
  int last = get_last_gather_time();
  const int queued = get_queued_job_time();
  if (queued != 0 && last > queued) last = corvane::wrapping_subtract(queued, 1);
  if (const int from = corvane::wrapping_add(last, 1); last != 0 && from <= now) {
    gather.do_live_gather(from, now);
  }
  store_last_gather_time(now);
  logmsgf(kLogDetail, kManagementProgram, "Total time taken for live gather %d.",
          elapsed_seconds(begin));
  purge_database();
  capture_anomaly_feedback();
}
