// Running a piece of a test in a process of its own.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>

namespace corvane::test {

// What a child ends with when an expectation failed in it, whatever it would have ended with.
inline constexpr int kExpectationFailed = 98;

// Forks; the child runs `body`, which may use EXPECT_ and returns the exit status. Returns the
// child's id.
inline pid_t start_child(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child != 0) return child;
  int status = 99;
  try {
    status = body();
  } catch (...) {
    std::fputs("an exception left the child's body\n", stderr);
  }
  if (::testing::Test::HasFailure()) status = kExpectationFailed;
  std::fflush(nullptr);
  _exit(status);
}

// The exit status of a child, or 128 and the number of the signal that ended it.
inline int status_of(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

inline int in_child(const std::function<int()>& body) { return status_of(start_child(body)); }

}  // namespace corvane::test
