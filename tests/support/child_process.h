// Running a piece of a test in a process of its own that may fork, end itself and hang.
#pragma once

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "tests/support/in_child.h"

namespace corvane::test {

inline constexpr int kChildSucceeded = 0;
inline constexpr int kChildFailed = 97;       // a check in it failed
inline constexpr int kChildTookTooLong = 98;  // it was ended by the time limit

// Waits until this process has no child left. In a process made by run_in_child, the processes that
// its children leave behind are its children too.
inline void wait_for_descendants() {
  while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
  }
}

// A child that does nothing until a signal ends it, at the latest when this process ends.
inline pid_t start_idle_child() {
  return start_child([]() -> int {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) pause();
  });
}

// Runs `body` in a forked child and returns the child's exit status (see in_child):
// kChildSucceeded when `body` returned and no EXPECT or ASSERT in it failed. What `body` leaves
// running is waited for before the child ends. `limit_seconds` bounds the child itself.
template <typename Body>
int run_in_child(Body body, unsigned limit_seconds = 20) {
  return in_child([&] {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    struct sigaction give_up {};
    give_up.sa_handler = [](int) { _exit(kChildTookTooLong); };
    sigaction(SIGALRM, &give_up, nullptr);
    alarm(limit_seconds);
    body();
    wait_for_descendants();
    return ::testing::Test::HasFailure() ? kChildFailed : kChildSucceeded;
  });
}

}  // namespace corvane::test
