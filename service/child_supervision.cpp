#include "service/child_supervision.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "platform/clock.h"
#include "platform/console.h"
#include "platform/debug_log.h"
#include "platform/process_handler.h"
#include "platform/program_names.h"
#include "service/host_role.h"

using corvane::kAlertProgram;
using corvane::kDetectionProgram;
using corvane::kLogDetail;
using corvane::kLogError;
using corvane::kLogEvent;
using corvane::kLogWarning;
using corvane::kManagementProgram;

namespace {

constexpr char kHandleChildProc[] = "handleChildProc";
constexpr char kBinaries[] = "/usr/tessel/corvane/bin/";
constexpr int kChecks = 10;

// Looks up to 10 times, a second apart, until a process of the name is running, or, if `running` is
// false, until none is.
int await_process(const std::string& name, bool running) {
  for (int check = 0; check < kChecks; ++check) {
    if ((checkProcess(name) != 0) == running) return 0;
    corvane::sleep(1);
  }
  return 1;
}

int stop_child(const char* name) {
  logmsgf(kLogEvent, kHandleChildProc, "UNIX: Stopping process:[%s]", name);
  const int result = stopProcessByName(name);
  if (result != 0) {
    logmsgf(kLogWarning, kHandleChildProc, "Not able to stop [%s], still running", name);
  }
  return result;
}

int start_child(const char* name) {
  logmsgf(kLogEvent, kHandleChildProc, "UNIX: Starting process:[%s]", name);
  startProcessByName(name);
  const int result = checkProcessStartWithRetry(name);
  if (result != 0) logmsgf(kLogWarning, kHandleChildProc, "Not able to start [%s]", name);
  return result;
}

// Turns this process, forked for it, into the companion. Returns only when bash cannot be executed.
void become_companion(const std::string& name, const std::string& command_line) {
  if (checkProcess(name) != 0) {
    corvane::write_console(name + " service is already running\n");
    logmsgf(kLogDetail, "startProcessByName", "%s service is already running", name.c_str());
    _exit(0);
  }
  logmsgf(kLogDetail, "startProcessByName", "CMD: [%s]\n", command_line.c_str());
  if (setsid() == -1) {
    const int error = errno;
    logmsgf(kLogError, kManagementProgram, "Could not set the SID. Error:[%d]", error);
    _exit(error);
  }
  close(STDIN_FILENO);
  close(STDOUT_FILENO);
  close(STDERR_FILENO);
  execlp("bash", "bash", "-c", command_line.c_str(), nullptr);
}

}  // namespace

std::string corvane::detect_command_line() {
  return std::string(kBinaries) + kDetectionProgram +
         " -database_location /usr/tessel/var/global/anomaly_detection/"
         " -database_file_name CV_Anomaly.db"
         " -eps 2.5 -min_samples 3"
         " -config_file /usr/tessel/var/global/anomaly_detection/anomaly_config.conf";
}

std::string corvane::alert_command_line(const std::string& master_server) {
  return std::string(kBinaries) + kAlertProgram +
         " -database_location /usr/tessel/var/global/anomaly_detection/"
         " -database_file_name CV_Anomaly.db"
         " -master " +
         master_server;
}

int handleChildProc(const char* name, const char* command) {
  logmsgf(kLogEvent, kHandleChildProc, "Process Name:[%s], Command:[%s]", name, command);
  const std::string_view child = name;
  if (child != kDetectionProgram && child != kAlertProgram) {
    logmsgf(kLogError, kHandleChildProc, "Unknown child process:[%s]", name);
    return 1;
  }
  const bool running = checkProcess(name) != 0;
  const std::string_view action = command;
  if (action == "STOP") {
    if (running) return stop_child(name);
    logmsgf(kLogDetail, kHandleChildProc, "Process [%s] is not running", name);
    return 0;
  }
  if (action == "START") {
    if (!running) return start_child(name);
    logmsgf(kLogDetail, kHandleChildProc, "Process [%s] already running", name);
    return 0;
  }
  logmsgf(kLogError, kHandleChildProc, "Unknown command [%s] for child process [%s]", command,
          name);
  return 1;
}

void startProcessByName(std::string name) {
  std::string master;
  getMasterServerName(master);
  if (master.empty()) {
    logmsg(kLogError, kManagementProgram, "fetching master name failed, it is empty");
    return;
  }
  logmsgf(kLogDetail, kManagementProgram, "%s service is getting started", name.c_str());
  std::string command_line;
  if (name == kAlertProgram) {
    command_line = corvane::alert_command_line(master);
  } else if (name == kDetectionProgram) {
    command_line = corvane::detect_command_line();
  } else {
    logmsgf(kLogError, kManagementProgram, "%s service is neither detect nor alert", name.c_str());
    return;
  }

  const pid_t child = fork();
  if (child < 0) std::exit(1);
  if (child == 0) {
    // Two forks, so that the companion is not a child of this process and needs no wait.
    const pid_t grandchild = fork();
    if (grandchild < 0) _exit(1);
    if (grandchild > 0) _exit(0);
    // If the companion cannot be executed, its launcher goes on from here as a second service.
    // There is no exit after this call on purpose: others rely on the launcher carrying on.
    become_companion(name, command_line);
  }
  int status = 0;
  if (waitpid(child, &status, 0) > 0 && WIFEXITED(status)) {
    logmsgf(kLogDetail, kManagementProgram, "Immediate child is completed with %d",
            WEXITSTATUS(status));
  }
}

int stopProcessByName(std::string name) {
  logmsgf(kLogDetail, kManagementProgram, "%s service is getting terminated", name.c_str());
  ProcessHandler(name).terminate();
  // Both outcomes are logged as errors, because scripts look for these lines at that level.
  if (checkProcessStopWithRetry(name) != 0) {
    logmsg(kLogError, kManagementProgram, "process is still running");
    return 1;
  }
  logmsg(kLogError, kManagementProgram, "process is stopped");
  return 0;
}

int checkProcessStartWithRetry(std::string name) { return await_process(name, true); }

int checkProcessStopWithRetry(std::string name) { return await_process(name, false); }

unsigned checkProcess(std::string name) {
  return static_cast<unsigned>(ProcessHandler(name).getProcessIDs().size());
}
