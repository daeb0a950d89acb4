#include "coverage/gather_again.h"

#include <fstream>
#include <stdexcept>
#include <string_view>

#include "anomaly_database/schema.h"
#include "coverage/gather_reader.h"
#include "gather/data_gather.h"
#include "platform/answer_filter.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"
#include "service/host_role.h"
#include "sqlite/db_access.h"
#include "util/path.h"
#include "util/tolerant_json.h"

namespace corvane::coverage {

namespace {

using Ending = GatherResult::Ending;

// The last line of the process's log. Without it the log may have been cut by a full disk.
constexpr char kEnd[] = "The gather has ended";
// What the service's code logs when it leaves a backup out.
constexpr std::string_view kImageMissing = "Image data could not capture for backupId";

// What the log says of the one gather in it.
GatherResult read_result(const std::string& log) {
  std::ifstream file(log);
  GatherReader reader([](const Gather&) {});
  GatherResult result;
  bool has_ended = false;
  for (std::string line; std::getline(file, line);) {
    reader.read(line);
    result.lacks_images = result.lacks_images || line.find(kImageMissing) != std::string::npos;
    has_ended = line.ends_with(kEnd);
  }
  const ReaderState& state = reader.state();
  if (!state.is_open) {
    result.reason = "The process that gathers ended before its first request";
  } else if (state.gather.outcome != Outcome::kComplete) {
    result.reason = state.gather.reason;
  } else if (!has_ended) {
    result.reason = "The gather ended early";
  } else {
    result.ending = Ending::kComplete;
  }
  return result;
}

}  // namespace

GatherResult run_gather(const Worker& worker, TimeRange range) {
  const WorkerEnding ending = run_worker(worker, range);
  if (ending == WorkerEnding::kInterrupted) return {.ending = Ending::kInterrupted};
  if (ending == WorkerEnding::kTooLong) {
    return {.reason = "The gather took longer than " + deadline_text(worker)};
  }
  GatherResult result = read_result(worker.result);
  if (result.ending == Ending::kComplete && ending == WorkerEnding::kFailed) {
    return {.reason = "The gather ended early"};
  }
  return result;
}

void gather_into(const std::string& directory, TimeRange range) {
  using Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess;
  end_with_parent();
  int status = 0;
  if (open_debug_log(directory.c_str(), kHealProgram, kScratchLog, 0600, &status) < 0) {
    throw std::runtime_error("cannot create " + Path::Combine(directory, kScratchLog));
  }
  // Like the service, it asks the image list when the master server is not known.
  std::string master;
  getMasterServerName(master);
  DBAccess database(Path::Combine(directory, kScratchDatabase),
                    SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX);
  // It must survive that this process is killed, but not that the machine fails.
  database.execute_query("PRAGMA journal_mode=TRUNCATE;");
  database.execute_query("PRAGMA synchronous=OFF;");
  for (const std::string& table : anomaly_schema()) database.create_table(table);
  set_answer_filter(tolerant_json);
  DataGather gather(&database, directory, master);
  gather.set_detection_state(0);
  gather.do_live_gather(static_cast<int>(range.begin), static_cast<int>(range.end));
  logmsg(kLogDetail, kHealProgram, kEnd);
}

}  // namespace corvane::coverage
