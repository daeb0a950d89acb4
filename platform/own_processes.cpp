#include "platform/own_processes.h"

#include <sys/stat.h>

#include <cstddef>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>

#include "platform/process_handler.h"

namespace corvane {

namespace {

// Both can be looked at, and are not the same.
bool is_another(const std::string& one, const std::string& other) {
  struct stat first {};
  struct stat second {};
  return stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
         (first.st_dev != second.st_dev || first.st_ino != second.st_ino);
}

// In how many namespaces the process has an id, from that of the process table on; 0: unknown.
std::ptrdiff_t count_ids(const std::string& process) {
  constexpr std::string_view kIds = "NSpid:";
  std::ifstream status(process + "/status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with(kIds)) continue;
    std::istringstream ids(line.substr(kIds.size()));
    return std::distance(std::istream_iterator<std::string>(ids), {});
  }
  return 0;
}

}  // namespace

// Only root may look at the root directories and namespaces of other users' processes. Everybody
// may see that one has an id in a namespace below this one.
bool is_of_this_system(pid_t process, const std::string& proc) {
  const std::string other = proc + "/" + std::to_string(process);
  const std::string own = proc + "/self";
  return !is_another(other + "/root", own + "/root") &&
         !is_another(other + "/ns/pid", own + "/ns/pid") && count_ids(other) <= count_ids(own);
}

std::vector<pid_t> own_processes(const std::string& name) {
  std::vector<pid_t> processes = ProcessHandler(name).getProcessIDs();
  std::erase_if(processes, [](pid_t process) { return !is_of_this_system(process); });
  return processes;
}

}  // namespace corvane
