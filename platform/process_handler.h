// The process table of this machine, by process name.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// The running processes of one name. A process has a name when the kernel's short name of it
// (/proc/PID/comm) or the base name of its executable (/proc/PID/exe, without a trailing "
// (deleted)") equals it; its arguments do not count. The calling process, zombies and threads are
// not included.
class ProcessHandler {
 public:
  explicit ProcessHandler(std::string name);

  // Process ids, ascending. Empty if there are none or /proc cannot be read.
  std::vector<pid_t> getProcessIDs() const;

  // Sends SIGTERM to every process of the name, and SIGKILL to those that are left after 2 seconds.
  // Returns as soon as none is left, at the latest after 5 seconds.
  void terminate();

 private:
  std::string name_;
};
