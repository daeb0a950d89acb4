// The calls with which the service's processes are born, detached and ended: tests make them fail
// and read what each forked process logged and how it ended. The executable wraps the calls at link
// time (see CMakeLists.txt); unless told otherwise they do what they always do.
#pragma once

#include <string>
#include <vector>

#include "tests/fakes/platform_fake.h"

namespace corvane::test {

struct ProcessCalls {
  // Counted down by each call; the call that brings it to 0 fails.
  int fork_fails_in = 0;
  int signal_fails_in = 0;

  int setsid_error = 0;  // not 0: setsid fails with this errno

  std::vector<std::string> signal_calls;  // "15 ignore", "15 handler", "15 default"

  // How many forks lie between this process and the test's; the platform fake's log begins empty
  // after each.
  int depth = 0;

  // Where forked processes leave their reports; empty: nowhere.
  std::string report_directory;
};

// A plain assignment of a fresh ProcessCalls makes the present process the one of depth 0.
ProcessCalls& process_calls();

// What the process of this depth left behind when it called _exit, exit or execlp; "" when none
// did. It has the form of `report_text`.
std::string report_of(int depth);

// One line for each log line, then how the process ended: "_exit 0", "exit 0", or "exec" followed
// by the program and its arguments.
std::string report_text(const std::vector<fake::LogLine>& log, const std::string& end);

}  // namespace corvane::test
