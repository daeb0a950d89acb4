#include "platform/sigpipe_blocked.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/in_child.h"

using corvane::SigpipeBlocked;
using corvane::test::in_child;

namespace {

// Writes into a pipe that nobody reads; the result's errno.
int write_to_broken_pipe() {
  int ends[2];
  if (pipe(ends) != 0) return -1;
  close(ends[0]);
  const ssize_t written = write(ends[1], "x", 1);
  const int error = written < 0 ? errno : 0;
  close(ends[1]);
  errno = error;
  return error;
}

bool is_pending() {
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, SIGPIPE) == 1;
}

}  // namespace

TEST(SigpipeBlockedTest, WithoutItABrokenPipeEndsTheProcess) {
  EXPECT_EQ(in_child([] {
              signal(SIGPIPE, SIG_DFL);
              return write_to_broken_pipe();
            }),
            128 + SIGPIPE);
}

TEST(SigpipeBlockedTest, BrokenPipeIsAnErrorAndNothingIsLeft) {
  EXPECT_EQ(in_child([] {
              signal(SIGPIPE, SIG_DFL);
              {
                const SigpipeBlocked sigpipe_blocked;
                EXPECT_EQ(write_to_broken_pipe(), EPIPE);
                EXPECT_TRUE(is_pending());
              }
              EXPECT_EQ(errno, EPIPE);
              EXPECT_FALSE(is_pending());
              sigset_t mask;
              pthread_sigmask(SIG_BLOCK, nullptr, &mask);
              EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
              struct sigaction action {};
              sigaction(SIGPIPE, nullptr, &action);
              EXPECT_EQ(action.sa_handler, SIG_DFL);
              return 0;
            }),
            0);
}

TEST(SigpipeBlockedTest, OneThatWasPendingBeforeStays) {
  EXPECT_EQ(in_child([] {
              sigset_t sigpipe;
              sigemptyset(&sigpipe);
              sigaddset(&sigpipe, SIGPIPE);
              pthread_sigmask(SIG_BLOCK, &sigpipe, nullptr);
              raise(SIGPIPE);
              {
                const SigpipeBlocked sigpipe_blocked;
                EXPECT_EQ(write_to_broken_pipe(), EPIPE);
              }
              EXPECT_TRUE(is_pending());
              return 0;
            }),
            0);
}
