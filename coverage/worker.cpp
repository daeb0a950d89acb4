#include "coverage/worker.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "companions/common/child_process.h"

namespace corvane::coverage {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kLookEvery = 20;  // milliseconds

bool has_ended(const ChildProcess& child) {
  pollfd ended{child.ended(), POLLIN, 0};
  return poll(&ended, 1, kLookEvery) == 1;
}

}  // namespace

WorkerEnding run_worker(const Worker& worker, TimeRange range) {
  std::error_code ignored;
  std::filesystem::remove(worker.result, ignored);
  std::vector<std::string> command = worker.command;
  command.push_back(std::to_string(range.begin));
  command.push_back(std::to_string(range.end));
  const Clock::time_point until = Clock::now() + worker.deadline;
  ChildProcess child(command);
  while (!has_ended(child)) {
    if (worker.stop()) return WorkerEnding::kInterrupted;
    if (Clock::now() > until) return WorkerEnding::kTooLong;
  }
  // A request to end may have reached the worker, too.
  if (worker.stop()) return WorkerEnding::kInterrupted;
  const int status = child.finish();
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? WorkerEnding::kSucceeded
                                                       : WorkerEnding::kFailed;
}

std::string deadline_text(const Worker& worker) {
  return std::to_string(duration_cast<std::chrono::seconds>(worker.deadline).count()) + " s";
}

void end_with_parent() {
  const pid_t parent = getppid();
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) throw std::runtime_error("the process that has started it is gone");
}

}  // namespace corvane::coverage
