#include "service/signals.h"

#include <csignal>
#include <mutex>
#include <string>
#include <system_error>

#include "platform/console.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"

using corvane::kLogError;
using corvane::kLogEvent;
using corvane::kManagementProgram;

bool CLI_RUN = false;

namespace {

bool bShutDownInitiated = false;
std::mutex bShutDownInitiated_mutex;

// Blocks SIGINT and SIGTERM in this thread for as long as it lives. Their handler takes the flag's
// mutex; if it interrupted code that holds the mutex, it would wait forever.
class ShutdownSignalsBlocked {
 public:
  ShutdownSignalsBlocked() {
    sigset_t shutdown_signals;
    sigemptyset(&shutdown_signals);
    sigaddset(&shutdown_signals, SIGINT);
    sigaddset(&shutdown_signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &shutdown_signals, &before_);
  }
  ~ShutdownSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  ShutdownSignalsBlocked(const ShutdownSignalsBlocked&) = delete;
  ShutdownSignalsBlocked& operator=(const ShutdownSignalsBlocked&) = delete;

 private:
  sigset_t before_;
};

int install_handler(int signal_number, const char* signal_name) {
  if (std::signal(signal_number, SignalHandler) != SIG_ERR) return 0;
  const std::string message =
      std::string("Failed to install signal handler for signal ") + signal_name;
  logmsgf(kLogError, kManagementProgram, "%s", message.c_str());
  if (CLI_RUN) corvane::write_console(message + "\n");
  return 1;
}

}  // namespace

int SetupSignalHandler() {
  if (install_handler(SIGINT, "SIGINT") != 0) return 1;
  return install_handler(SIGTERM, "SIGTERM");
}

void SignalHandler(int signal_number) {
  if (std::signal(signal_number, SIG_IGN) == SIG_ERR) {
    logmsgf(kLogError, kManagementProgram,
            "Failed to set SIG_ERR for signal [%d] before processing", signal_number);
    return;
  }
  switch (signal_number) {
    case SIGINT:
      logmsgf(kLogEvent, kManagementProgram, "Intercepted signal SIGINT. Will stop the service");
      SetShutDownInitiated();
      break;
    case SIGTERM:
      logmsgf(kLogEvent, kManagementProgram, "Intercepted signal SIGTERM. Will stop the service");
      SetShutDownInitiated();
      break;
    default:
      logmsgf(kLogEvent, kManagementProgram, "Unknown Signal");
  }
  if (std::signal(signal_number, SignalHandler) == SIG_ERR) {
    logmsgf(kLogError, kManagementProgram,
            "Failed to set our handler for signal [%d] after processing", signal_number);
  }
}

int SetShutDownInitiated() {
  try {
    const ShutdownSignalsBlocked blocked;
    const std::lock_guard lock(bShutDownInitiated_mutex);
    bShutDownInitiated = true;
    return 0;
  } catch (const std::system_error&) {
    logmsgf(kLogError, "SetShutDownInitiated",
            "Exception occurred while setting service shutdown status");
    return 1;
  }
}

int IsShutDownInitiated(bool& initiated) {
  try {
    const ShutdownSignalsBlocked blocked;
    const std::lock_guard lock(bShutDownInitiated_mutex);
    initiated = bShutDownInitiated;
    return 0;
  } catch (const std::system_error&) {
    logmsgf(kLogError, "IsShutDownInitiated",
            "Exception occurred while fetching service shutdown status");
    return 1;
  }
}

int isTimeToStop() {
  bool initiated = false;
  if (IsShutDownInitiated(initiated) != 0) {
    logmsgf(kLogEvent, "isTimeToStop", "Failed to determine the service shutdown status");
    return 0;
  }
  if (!initiated) return 0;
  logmsgf(kLogEvent, "isTimeToStop", "System called for Service ShutDown. Stopping the service");
  return 1;
}
