// Earlier image lists that the product's deployment utility left on disk.
#include <algorithm>
#include <fstream>

#include "gather/data_gather.h"
#include "gather/rollback.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"
#include "service/host_role.h"
#include "service/service_stop_exception.h"
#include "service/signals.h"
#include "util/directory.h"
#include "util/file.h"

using corvane::kLogDetail;
using corvane::kLogEvent;
using corvane::kManagementProgram;

namespace {

constexpr char kGatherTag[] = "DataGather::do_cvdeployutil_gather";

// The time range of an archive, from the last valid line of its options file; (0, 0) if there is
// none.
DataGather::TimeRange read_archive_window(DataGather& gather, const std::string& options_path) {
  DataGather::TimeRange window{0, 0};
  std::ifstream file(options_path);
  for (std::string line; std::getline(file, line);) {
    if (line == "no entity was found") {
      logmsg(kLogDetail, kManagementProgram, "No data received");
      continue;
    }
    try {
      DataGather::Record options = gather.parse_qpimagelist_line(line);
      window = {corvane::to_int(options["start"]), corvane::to_int(options["end"])};
    } catch (...) {
      logmsg(kLogDetail, kManagementProgram, "Issue parsing image. Continue with other images.");
    }
  }
  return window;
}

}  // namespace

std::string DataGather::get_cvdeployutil_dir() { return db_location + "/../incremental/"; }

std::vector<DataGather::TimeRange> DataGather::do_cvdeployutil_gather(int start, int end) {
  int covered_start = 0;
  int covered_end = 0;
  if (IsMasterServer()) {
    logmsg(kLogDetail, kManagementProgram,
           "This is a Master server. Capturing data from cvdeployutil");
    do_cvdeployutil_gather(start, end, covered_start, covered_end);
    logmsgf(kLogDetail, kManagementProgram, "cvdeployutil data captured from time %d to %d",
            covered_start, covered_end);
  }
  if (covered_start != 0 && covered_end != 0) {
    return {{start, covered_start}, {covered_end, end}};
  }
  return {{start, end}};
}

void DataGather::do_cvdeployutil_gather(int start, int end, int& covered_start, int& covered_end) {
  logmsg(kLogDetail, kGatherTag, "Collecting cvdeployutil directories...");
  std::vector<std::string> archives;
  collect_deployutil_directories(start, end, archives, covered_start, covered_end);
  for (auto archive = archives.rbegin(); archive != archives.rend(); ++archive) {
    if (isTimeToStop()) {
      logmsg(kLogEvent, kGatherTag, "Service has been requested to stop");
      throw ServiceStopException(kGatherTag);
    }
    const std::string file = *archive + "/qpimagelist.out";
    logmsgf(kLogDetail, kGatherTag, "Collecting data from file: %s", file.c_str());
    try {
      db->begin_transaction();
      parse_qpimagelist_input(file, 0);
      db->commit_transaction();
    } catch (...) {
      logmsgf(kLogDetail, kGatherTag, "Error occurred while reading image data from %s",
              file.c_str());
      corvane::roll_back(*db, kGatherTag);
    }
  }
}

int DataGather::collect_deployutil_directories(const int& start, const int& end,
                                               std::vector<std::string>& dirs, int& covered_start,
                                               int& covered_end) {
  if (!Directory::is_folder(deployutil_dir)) return 0;
  dirs = Directory::GetDirectories(deployutil_dir);
  dirs = filter_cvutil_dirs_by_master(dirs);
  dirs = filter_cvutil_dirs_by_timerange(dirs, start, end, covered_start, covered_end);
  return static_cast<int>(dirs.size());
}

std::vector<std::string> DataGather::filter_cvutil_dirs_by_master(
    const std::vector<std::string>& names) {
  std::vector<std::string> own;
  for (const std::string& name : names) {
    const std::string archive = deployutil_dir + name;
    try {
      if (File::ReadAllText(archive + "/master.txt") == master_server) own.push_back(archive);
    } catch (...) {
      logmsg(kLogDetail, kManagementProgram, "Not a cvdeployutil data directory");
    }
  }
  return own;
}

std::vector<std::string> DataGather::filter_cvutil_dirs_by_timerange(
    const std::vector<std::string>& dirs, const int& start, const int& end, int& covered_start,
    int& covered_end) {
  std::vector<std::string> inside;
  for (const std::string& dir : dirs) {
    logmsgf(kLogDetail, kManagementProgram, "Checking in folder %s", dir.c_str());
    const auto [dir_start, dir_end] = read_archive_window(*this, dir + "/gather_options.json");
    if (start > dir_start || end < dir_end) continue;
    if (covered_start == 0 && covered_end == 0) {
      covered_start = dir_start;
      covered_end = dir_end;
    }
    covered_start = std::min(covered_start, dir_start);
    covered_end = std::max(covered_end, dir_end);
    inside.push_back(dir);
  }
  return inside;
}
