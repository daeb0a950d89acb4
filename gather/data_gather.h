// Gathers backup records for a time range and stores them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "gather/backup_record.h"
#include "sqlite/db_access.h"

// The REST collections that are read page by page.
enum API_TYPE : std::int32_t { API_CATALOG_IMAGES = 0, API_ADMIN_JOBS = 1 };

// One object exists for as long as the management service; it is used from one thread. Times are
// seconds since the epoch, ranges include both ends. Modes are 1 for a live gather (jobs, completed
// by their images) and 0 for a historical one (images only). Log lines have the tag "cvanomalymgmt"
// unless stated otherwise.
//
// Each task of the class has a source file: rest_jobs.cpp, live_gather.cpp, record_storage.cpp,
// image_catalog.cpp, deployutil_archives.cpp.
class DataGather {
 public:
  using DBAccess = Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess;
  using Record = corvane::BackupRecord;
  using TimeRange = std::pair<int, int>;

  // `database` is not owned and must outlive the object; `location` is its directory, where scratch
  // files go. Without the name of a master server the product's command-line tools are the source.
  DataGather(DBAccess* database, const std::string& location, const std::string& master);

  // --- The entry points of the service ---

  // Gather and store a range. Errors are logged; they end the range, but do not reach the caller.
  void do_live_gather(int start, int end);
  void do_historical_gather(int start, int end);

  // Loads the part of the range that is in the deployment utility's archives, and returns the
  // ranges that remain to be gathered. On a host that is not the master server that is the whole
  // range. Throws ServiceStopException.
  std::vector<TimeRange> do_cvdeployutil_gather(int start, int end);

  // 0: the detection is enabled, and live records wait in DATA_TO_PROCESS. Otherwise it is
  // disabled, and they go straight to HIST_DATA.
  void set_detection_state(int state);

  // --- REST (rest_jobs.cpp) ---

  // Fetches and stores a range. Throws std::runtime_error if an answer cannot be parsed or the
  // first page cannot be fetched.
  void do_data_gather_api(const int& start, const int& end, const int& live);

  // Requests one page. On success `response` becomes the body; otherwise it is unchanged.
  void get_api_response(std::string& response, const int& start, const int& end, const int& offset,
                        API_TYPE type);

  // Reads one page. Mode 0: images, by job id; the first image of a job is kept. Mode 1: jobs, each
  // completed by its image, which is removed from `images`. `offset` becomes that of the next page,
  // 0 for none. Throws std::runtime_error.
  void parse_api_response(const std::string& response, std::map<int, Record>& images,
                          std::vector<Record>& jobs, int& offset, int mode);

  // Runs the product's jobs tool for all ids at once (at least one: std::out_of_range otherwise)
  // and appends a record for each job it returns. Throws std::runtime_error if its output is not
  // JSON.
  void get_job_details_json_from_job_id(std::vector<int>& job_ids, std::vector<Record>& out);
  void parse_jobs_details(const std::string& text, std::vector<Record>& out);

  // --- Completing and handing on records (live_gather.cpp) ---

  // Stores the images of a historical or the jobs of a live REST gather.
  void process_gathered_data(std::vector<Record>& jobs, std::map<int, Record> images,
                             const int& mode);

  // Adds the attributes of one catalog image to a job's record, whose own entries stay. A failure
  // is logged; what was added before it stays. The parsing half throws std::runtime_error.
  void get_image_data_from_backupid(const std::string& backup_id, Record& record);
  void parse_image_data_from_backupid(const std::string& response, Record& record);

  // Writes one DATA_TO_PROCESS row for each job of the jobs tool, whatever its state, completed
  // from the image list. Throws sqlite_exception.
  void process_jobs_info_live_gather(std::vector<Record>& jobs, std::map<int, Record>& images);

  // --- Storage (record_storage.cpp) ---

  // Stores one REST record as a row, or queues the job if it is still running. Storage errors are
  // logged and lose only this record. Throws std::out_of_range for a truncated time.
  void store_to_database(Record record, const unsigned long& mode);

  // Queues a running job, so that the next live gather reaches back far enough to see it again.
  // Storage errors are logged.
  void store_to_queue_db(const int& job_id, const int& start_time);

  // True unless the state is "DONE" or "SUSPENDED".
  bool IsActiveJob(const std::string& state);

  // --- The image-list tool (image_catalog.cpp) ---

  // Runs the tool for a range and reads its output.
  void do_image_gather(int start_time, int end_time, int mode);

  // Reads an output file, one JSON object per line. A line that cannot be parsed is logged and
  // skipped. If the file cannot be read to its end, that is logged, and what was read is kept. A
  // file that cannot be opened counts as empty.
  void parse_qpimagelist_input(const std::string& path, int mode);

  // Turns one line into a record. Throws std::runtime_error if it is not JSON.
  Record parse_qpimagelist_line(const std::string& line);

  // Stores one image as a HIST_DATA row. Storage errors are logged; `mode` is not used.
  void process_image_data(Record& image, int mode);

  // --- The deployment utility's archives (deployutil_archives.cpp) ---

  // The folder of the archives, with a trailing "/".
  std::string get_cvdeployutil_dir();

  // Loads the matching archives, each in its own transaction, and widens [covered_start,
  // covered_end] (0, 0 for none) to the range that they cover. Logs with its own name as tag.
  // Throws ServiceStopException.
  void do_cvdeployutil_gather(int start, int end, int& covered_start, int& covered_end);

  // Finds the archives of this domain's master server inside the range, as full paths. Returns
  // their number.
  int collect_deployutil_directories(const int& start, const int& end,
                                     std::vector<std::string>& dirs, int& covered_start,
                                     int& covered_end);
  std::vector<std::string> filter_cvutil_dirs_by_master(const std::vector<std::string>& names);
  std::vector<std::string> filter_cvutil_dirs_by_timerange(const std::vector<std::string>& dirs,
                                                           const int& start, const int& end,
                                                           int& covered_start, int& covered_end);

  // --- Codes and times (data_gather.cpp) ---

  void init_attributes();

  // True for policy types whose images have to be fetched one by one.
  bool validate_slp_policytype(const std::string& policy_type);

  // "2023-05-01T10:20:30.000Z" for 1682936430, UTC.
  std::string time_to_str(const int& seconds);

  // The inverse, by fixed positions: separators and everything after the seconds are ignored.
  // Throws std::out_of_range for fewer than 17 characters.
  int str_to_time(const std::string& text);

  // A code that is not in these tables has an empty name, and looking it up adds it.
  std::string policy_type_name(const std::string& code);
  std::string schedule_type_name(const std::string& code);

  DBAccess* db;
  std::string db_location;
  std::string master_server;
  std::string deployutil_dir;
  std::map<std::int32_t, std::string> policy_types;
  std::map<std::int32_t, std::string> schedule_types;
  bool detection_state = true;  // true: detection is disabled
  std::vector<std::string> slp_policy_types;
};
