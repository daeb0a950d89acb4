#include "service/service_control.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "management/management_service.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/debug_log.h"
#include "platform/descriptor.h"
#include "platform/host_product.h"
#include "platform/process_handler.h"
#include "platform/program_names.h"
#include "service/child_supervision.h"
#include "service/host_role.h"
#include "service/logging_setup.h"
#include "service/signals.h"
#include "service/state_flags.h"
#include "util/directory.h"

using corvane::kAlertProgram;
using corvane::kDetectionProgram;
using corvane::kLogDetail;
using corvane::kLogError;
using corvane::kLogEvent;
using corvane::kLogWarning;
using corvane::kManagementProgram;

namespace {

constexpr int kStartChecks = 10;

// Tells the parent of a fork that the child has counted the services, or has died. The child counts
// "one more than me" only while the parent exists, so the parent waits until then.
class ChildHasCounted {
 public:
  ChildHasCounted() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return;
    read_end_.reset(ends.front());
    write_end_.reset(ends.back());
  }

  // For the child.
  void tell() {
    read_end_.reset();
    write_end_.reset();
  }

  // For the parent. Gives up after 2 seconds.
  void wait() {
    write_end_.reset();
    pollfd end_of_pipe{read_end_.get(), POLLIN, 0};
    while (read_end_.is_open() && poll(&end_of_pipe, 1, 2000) == -1 && errno == EINTR) {
    }
  }

 private:
  corvane::Descriptor read_end_;
  corvane::Descriptor write_end_;
};

int await_start(ChildHasCounted& child_has_counted) {
  for (int check = 0; check < kStartChecks; ++check) {
    if (checkProcess(kManagementProgram) > 0) {
      child_has_counted.wait();
      corvane::write_console("Successfully started the mgmt service\n");
      return 0;
    }
    corvane::sleep(1);
  }
  corvane::write_console(std::string(kManagementProgram) + " service didn't start successfully");
  logmsgf(kLogError, kManagementProgram, "%s service didn't start successfully",
          kManagementProgram);
  return 1;
}

// Returns only if the daemon cannot be set up.
int run_as_daemon(ChildHasCounted& child_has_counted) {
  const unsigned services = checkProcess(kManagementProgram);
  child_has_counted.tell();
  if (services > 1) {
    corvane::write_console(std::string(kManagementProgram) + " service is already running\n");
    logmsgf(kLogDetail, kManagementProgram, "%s service is already running\n", kManagementProgram);
    _exit(0);
  }
  if (SetupLogging() != 0) {
    corvane::write_console("Failed to setup logging\n");
    return 1;
  }
  if (const int result = SetupSignalHandler(); result != 0) {
    corvane::write_console("Failed to setup signal handler\n");
    logmsgf(kLogError, kManagementProgram, "Could not SetupSignalHandler. Error:[%d]", result);
    return 1;
  }
  if (setsid() == -1) {
    const int error = errno;
    logmsgf(kLogError, kManagementProgram, "Could not set the SID. Error:[%d]", error);
    std::exit(error);
  }
  close(STDIN_FILENO);
  close(STDOUT_FILENO);
  close(STDERR_FILENO);
  std::exit(SVC_MAIN());
}

void prepare_database_directory() {
  const std::string db = getDBLocation();
  if (Directory::Exists(db)) return;
  corvane::write_console("\nDatabase directory " + db + " does not exit. Will create it.\n");
  Directory::MkDir(db);
  logmsgf(kLogDetail, kManagementProgram, "Database directory:[%s] does not exist. Will create it",
          db.c_str());
}

// Runs the service unless the state flags or the host's role forbid it.
void run_service(ManagementService& service) {
  int disable_management = 0;
  int disable_detection = 0;
  int disable_alert = 0;
  ReadConfigStateFlags(disable_management, disable_detection, disable_alert);
  if (ValidateConfigStateFlags(disable_management, disable_detection, disable_alert) == 0) {
    logmsg(kLogWarning, kManagementProgram, "Invalid state flags in config file. Exiting");
    corvane::sleep(2);
  } else if (disable_management == 1) {
    logmsg(kLogError, kManagementProgram, "cvanomalymgmt service state is disabled. Exiting");
    corvane::sleep(2);
  } else if (isAnomalyRunningOnDiffServer()) {
    logmsg(kLogEvent, kManagementProgram, "Running on different anomaly proxy server. Exiting");
    corvane::sleep(4);
  } else {
    try {
      service.start();
    } catch (...) {
      logmsg(kLogError, kManagementProgram, "Error occurred while gathering data");
    }
  }
}

int stop_companion(const char* name) {
  logmsgf(kLogEvent, "handleChildProc", "UNIX: Stopping process:[%s]", name);
  const int result = stopProcessByName(name);
  if (result != 0) {
    logmsgf(kLogWarning, "handleChildProc", "Not able to stop [%s], still running", name);
  }
  return result;
}

}  // namespace

int StartSvc(const char* /*display_name*/) {
  ChildHasCounted child_has_counted;
  const pid_t child = fork();
  if (child < 0) {
    logmsgf(kLogError, kManagementProgram, "fork() failed. Error:[%d]", child);
    return 1;
  }
  return child > 0 ? await_start(child_has_counted) : run_as_daemon(child_has_counted);
}

int StopSvc(const char* /*display_name*/) {
  ProcessHandler(kAlertProgram).terminate();
  ProcessHandler(kDetectionProgram).terminate();
  const std::vector<pid_t> services = ProcessHandler(kManagementProgram).getProcessIDs();
  if (services.empty()) {
    logmsg(kLogError, kManagementProgram, "Could not fetch the pids of the process.");
    return 1;
  }
  for (const pid_t service : services) {
    logmsgf(kLogDetail, kManagementProgram, "[%d] pid SIGTERM is getting sent", service);
    kill(service, SIGTERM);
  }
  return 0;
}

int TerminateSVC() {
  for (const char* name : {kAlertProgram, kDetectionProgram, kManagementProgram}) {
    ProcessHandler(name).terminate();
  }
  return 0;
}

int SVC_MAIN() {
  pluma_set_corvane_daemon(1);
  prepare_database_directory();
  const auto service = std::make_unique<ManagementService>();
  if (const int result = service->populate_config_params(); result != 0) {
    logmsg(kLogError, kManagementProgram, "Failed to populate config parameters");
    return result;
  }
  run_service(*service);
  stop_companion(kAlertProgram);
  return stop_companion(kDetectionProgram);
}
