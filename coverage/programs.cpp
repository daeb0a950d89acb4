#include "coverage/programs.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "coverage/rules.h"
#include "platform/clock.h"
#include "platform/own_processes.h"
#include "platform/program_names.h"
#include "service/child_supervision.h"
#include "util/process.h"

namespace corvane::coverage {

namespace {

constexpr int kStopTakes = 18;  // times 10 seconds: a gather that ends and its purge

bool is_running(const std::string& name) { return !own_processes(name).empty(); }

bool belongs_to_unit(pid_t process) {
  std::ifstream groups("/proc/" + std::to_string(process) + "/cgroup");
  return is_in_service_unit({std::istreambuf_iterator<char>(groups), {}});
}

// Whether programs have to be started by a unit of their own: what is started from here would
// belong to this unit and end with it, or leave the service's.
bool starts_by_unit() {
  return std::getenv("INVOCATION_ID") != nullptr ||
         std::ranges::any_of(own_processes(kManagementProgram), belongs_to_unit);
}

// A line for the unit that may start programs (packaging/systemd/cvanomaly-restart.path).
void request(const Options& options, const std::string& line) {
  std::ofstream file(options.own_file(".requests"), std::ios::app);
  file << line << "\n" << std::flush;
  if (!file) throw std::runtime_error("cannot write " + options.own_file(".requests"));
}

// As the service does.
void start_companion(const std::string& companion) {
  const pid_t self = getpid();
  startProcessByName(companion);
  if (getpid() != self) _exit(1);  // the companion could not be executed
  checkProcessStartWithRetry(companion);
}

void stop_companion(const std::string& companion) {
  for (const pid_t process : own_processes(companion)) kill(process, SIGTERM);
}

void start_service() { Process("./cvanomalymgmt", " -start").start(); }

// As an operator would. The service ends when a gather in progress has ended.
void restart_service() {
  Process("./cvanomalymgmt", " -stop").start();
  for (int i = 0; i < kStopTakes; ++i) {
    checkProcessStopWithRetry(kManagementProgram);
    if (!is_running(kManagementProgram)) return start_service();
  }
}

}  // namespace

bool runs_as_service(pid_t process) {
  return std::ranges::count(own_processes(kManagementProgram), process) > 0;
}

bool is_in_service_unit(const std::string& groups) {
  std::istringstream lines(groups);
  for (std::string group; std::getline(lines, group);) {
    if (group.ends_with("/cvanomalymgmt.service")) return true;
  }
  return false;
}

Programs programs_of(const Options& options, const StopSignals& signals) {
  Programs programs;
  programs.now = [] { return static_cast<std::int64_t>(corvane::now()); };
  programs.service_runs = [] { return is_running(kManagementProgram); };
  programs.is_wanted = [&options](const std::string& companion) {
    return is_companion_wanted(options.config_path(), companion);
  };
  programs.is_running = is_running;
  programs.start = [&](const std::string& companion) {
    if (starts_by_unit()) return request(options, "start " + companion);
    const StopSignals::Unblocked unblocked(signals);
    start_companion(companion);
  };
  programs.stop = stop_companion;
  programs.restart_service = [&] {
    if (starts_by_unit()) return request(options, std::string("restart ") + kManagementProgram);
    const StopSignals::Unblocked unblocked(signals);
    restart_service();
  };
  programs.start_service = [&] {
    if (std::getenv("INVOCATION_ID") != nullptr) return;  // its unit restarts it
    const StopSignals::Unblocked unblocked(signals);
    start_service();
  };
  return programs;
}

}  // namespace corvane::coverage
