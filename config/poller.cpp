#include "config/poller.h"

#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <system_error>
#include <utility>

#include "platform/clock.h"
#include "platform/console.h"
#include "platform/debug_log.h"

using corvane::kLogDetail;
using corvane::kLogError;

namespace {

constexpr char kStart[] = "Poller::StartPolling";
constexpr char kPoller[] = "Poller::poller";

// Runs `access` under `mutex`. If it cannot be locked, logs that with `flag` and returns 1.
template <typename Access>
int locked(std::mutex& mutex, const char* tag, const char* flag, Access access) {
  try {
    const std::lock_guard lock(mutex);
    access();
    return 0;
  } catch (const std::system_error&) {
    logmsgf(kLogError, tag, "Exception occurred in locking %s", flag);
    return 1;
  }
}

void log_stat_failure(int error, const std::string& path) {
  switch (error) {
    case EACCES:
      logmsgf(kLogError, kPoller,
              "Search permission is denied for one of the directories in the path prefix of [%s]",
              path.c_str());
      break;
    case EINVAL:
      logmsg(kLogError, kPoller, "Invalid parameter to stat.");
      break;
    default:
      logmsgf(kLogError, kPoller, "Unexpected error in stat:[%d]", error);
  }
}

void report_missing(const std::string& path) {
  logmsgf(kLogError, kPoller, "File [%s] not found.", path.c_str());
  corvane::write_console("file [" + path + "] not found");
}

}  // namespace

Poller::Poller(std::string path, int interval) : path_(std::move(path)), interval_(interval) {}

Poller::~Poller() { TerminatePolling(); }

int Poller::StartPolling() {
  if (unsetStopPoller() != 0) {
    logmsg(kLogError, kStart, "Failed to unset poller state flag");
    return 1;
  }
  if (thread_.joinable()) {
    logmsg(kLogError, kStart, "Polling thread is already running");
    return 1;
  }
  try {
    thread_ = std::thread(&Poller::poller, this);
  } catch (const std::exception&) {
    logmsgf(kLogError, kStart, "Exception occurred. Failed to start polling for file : [%s]",
            path_.c_str());
    return 1;
  }
  return 0;
}

int Poller::TerminatePolling() {
  if (setStopPoller() != 0) return 1;
  if (!thread_.joinable()) return 1;
  try {
    thread_.join();
  } catch (const std::exception&) {
    logmsg(kLogError, "Poller::TerminatePolling", "Exception ocuured while joining poller thread");
    return 1;
  }
  return 0;
}

int Poller::IsModified(bool& out) {
  out = false;
  return locked(modified_mutex_, "Poller::IsModified", "m_modified",
                [&] { out = std::exchange(m_modified, false); });
}

int Poller::setModified() {
  return locked(modified_mutex_, "Poller::setModified", "m_modified", [&] { m_modified = true; });
}

int Poller::setStopPoller() {
  return locked(stop_polling_mutex_, "Poller::setStopPoller", "m_stop_polling",
                [&] { m_stop_polling = true; });
}

int Poller::unsetStopPoller() {
  return locked(stop_polling_mutex_, "Poller::unsetStopPoller", "m_stop_polling",
                [&] { m_stop_polling = false; });
}

bool Poller::isStopPoller() {
  bool stop = true;
  locked(stop_polling_mutex_, "Poller::stopPoller", "m_stop_polling",
         [&] { stop = m_stop_polling; });
  return stop;
}

int Poller::poller() {
  logmsg(kLogDetail, kPoller, "ENTER");
  std::time_t last = 0;
  bool failing = false;
  int status = 0;
  while (!isStopPoller()) {
    struct stat file;
    status = stat(path_.c_str(), &file);
    if (status == 0) {
      if (std::difftime(file.st_mtime, last) > 0) {
        setModified();
        last = file.st_mtime;
      }
      failing = false;
    } else if (const int error = errno; error == ENOENT) {
      if (!failing) report_missing(path_);
      failing = true;
    } else {
      log_stat_failure(error, path_);
      // A missing file may be about to be replaced; only other errors end the watch.
      if (!failing) {
        logmsg(kLogError, kPoller, "Encountered error. Stopping the poller");
        break;
      }
    }
    corvane::sleep(static_cast<unsigned>(interval_));
  }
  logmsg(kLogDetail, kPoller, "EXIT");
  return status;
}
