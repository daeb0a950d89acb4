// The daemon's central object: the database, the gather loop, the states of the companions.
#pragma once

#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "gather/data_gather.h"
#include "sqlite/db_access.h"

// Used from one thread. Log lines have the tag "cvanomalymgmt" unless stated otherwise. Times are
// seconds since the epoch.
//
// Each task of the class has a source file: management_service.cpp (configuration and loop),
// anomaly_database.cpp (schema, bookkeeping, purge), anomaly_feedback.cpp.
class ManagementService {
 public:
  using DBAccess = Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess;
  using FeedbackRecord = std::map<std::string, std::string>;

  ManagementService();

  // `interval` is in minutes and not checked.
  ManagementService(const std::string& location, const std::string& name,
                    const std::string& gather_mode, const std::string& master_server, int interval);

  // --- Configuration and loop (management_service.cpp) ---

  // Determines paths and settings. Returns 0, or 1 (logged) if the master server is not known.
  int populate_config_params();

  // Runs the service until it is to stop. Throws std::runtime_error if the database cannot be
  // opened.
  void start();

  // One pass of the loop, once a second; `last_gather` is the end of the last gather. Returns false
  // if the loop is to end.
  bool run_pass(DataGather& gather, std::time_t& last_gather);

  // Re-reads the gather interval.
  void capture_updated_gather_frequency();

  // Re-reads the state flags and starts and stops the companions if they have changed. Returns 0,
  // or 1 (logged) if the flags are invalid; then nothing changes.
  int handle_state_changes();

  // Gathers everything since the last gather, purges the database and fetches the feedback.
  void live_gather(DataGather& gather);

  // In "LIVE_ONLY" mode stores the time and sleeps for an interval; otherwise gathers the history
  // unless that was done before. Throws ServiceStopException.
  void start_historical_gather(DataGather& gather);

  // Non-zero if a gather time is stored. Throws sqlite_exception.
  int is_historical_gather_done();

  // Gathers the last 91 days. A slice that fails is rolled back, logged and skipped. Throws
  // ServiceStopException; then no gather time is stored, and the next start gathers the history
  // again.
  void do_historical_gather(DataGather& gather);

  // --- The database (anomaly_database.cpp) ---

  // Opens the database and creates its schema. Throws std::runtime_error.
  void initializeDB();

  // Sets the journal mode and creates missing tables. Throws std::runtime_error.
  void create_database_schema();

  // Deletes rows older than the purge interval. Errors are logged.
  void purge_database();

  // The end of the last gather; 0 if none is stored. Errors are logged.
  void store_last_gather_time(int time);
  int get_last_gather_time();

  // Empties the queue of running jobs and returns its earliest start time, 0 if it was empty.
  // Errors are logged.
  int get_queued_job_time();

  // --- Feedback (anomaly_feedback.cpp) ---

  // Fetches the feedback of users on reported anomalies and stores it. Errors are logged.
  void capture_anomaly_feedback();

  // Returns 0 with the body, or 1 (logged).
  int get_anomaly_feedback_response(std::string& response);

  // Appends one record for each element of "data". Throws std::runtime_error if the text is not
  // JSON.
  void parse_anomaly_feedback(const std::string& response, std::vector<FeedbackRecord>& records);

  // Adds an element's members, and those of its "attributes", to one record; of two with the same
  // name the first counts. Throws std::runtime_error for a null pointer.
  void parse_anomaly_feedback_data_attributes(json_t* element, FeedbackRecord& record);

  std::string m_database_location;
  std::string m_database_name;
  std::string m_gather_mode;  // "FULL" or "LIVE_ONLY"
  std::string m_config_file_path;
  int m_data_fetch_interval_in_mins;
  int m_purge_interval_in_months;
  std::unique_ptr<DBAccess> m_db;  // null until initializeDB()
  std::string m_master_server;
  int m_disable_management;
  int m_disable_detection;
  int m_disable_alert;

 private:
  // Waits one interval from `since`. Returns false if the service is to stop.
  bool await_first_interval(std::time_t since);

  bool interval_passed(std::time_t since) const;
  bool consume_terminate_request();
  void gather_slice(DataGather& gather, int start, int end);
};
