#include "coverage/gather_again.h"

#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

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

using Clock = std::chrono::steady_clock;
using Ending = GatherResult::Ending;

constexpr std::chrono::milliseconds kLookEvery{20};
// The last line of the process's log. Without it the log may have been cut by a full disk.
constexpr char kEnd[] = "The gather has ended";
// What the service's code logs when it leaves a backup out.
constexpr std::string_view kImageMissing = "Image data could not capture for backupId";

// A process that leads a group of its own; killed with the group at the end of its scope.
class Child {
 public:
  explicit Child(std::vector<std::string> command) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& argument : command) arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    const int error =
        posix_spawn(&id_, arguments[0], nullptr, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) throw std::system_error(error, std::generic_category(), command[0]);
  }
  ~Child() { finish(); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // Its number stays its own until finish().
  bool has_ended() const {
    siginfo_t ended{};
    return waitid(P_PID, static_cast<id_t>(id_), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           ended.si_pid == id_;
  }
  // Ends what is left of its group. Returns whether the process has succeeded.
  bool finish() {
    if (id_ == 0) return false;
    // Before waitpid(): until then no other group can get this number.
    ::kill(-id_, SIGKILL);
    int status = 0;
    const bool is_known = waitpid(std::exchange(id_, 0), &status, 0) > 0;
    return is_known && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }

 private:
  pid_t id_ = 0;
};

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

// A process that nobody waits for would gather on for hours.
void end_with_parent() {
  const pid_t parent = getppid();
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) throw std::runtime_error("the process that has started it is gone");
}

}  // namespace

GatherResult run_gather(const GatherProcess& process, TimeRange range) {
  std::error_code ignored;
  std::filesystem::remove(process.log, ignored);
  std::vector<std::string> command = process.command;
  command.push_back(std::to_string(range.begin));
  command.push_back(std::to_string(range.end));
  const Clock::time_point until = Clock::now() + process.deadline;
  Child child(command);
  while (!child.has_ended()) {
    if (process.stop()) return {.ending = Ending::kInterrupted};
    if (Clock::now() > until) {
      const auto seconds = duration_cast<std::chrono::seconds>(process.deadline).count();
      return {.reason = "The gather took longer than " + std::to_string(seconds) + " s"};
    }
    std::this_thread::sleep_for(kLookEvery);
  }
  const bool has_succeeded = child.finish();
  GatherResult result = read_result(process.log);
  if (result.ending == Ending::kComplete && !has_succeeded) {
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
