#include "companions/common/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <system_error>

#include "tests/support/error_of.h"
#include "tests/support/in_child.h"
#include "tests/support/scratch_dir.h"

namespace corvane {
namespace {

using Output = ChildProcess::Output;

class ChildProcessTest : public testing::Test {
 protected:
  static std::vector<std::string> shell(const std::string& script) {
    return {"/bin/sh", "-c", script};
  }
  static bool has_ended(const ChildProcess& child, int milliseconds = 30'000) {
    pollfd ended{child.ended(), POLLIN, 0};
    return poll(&ended, 1, milliseconds) == 1;
  }
  std::string written() const { return test::read_file(directory_("out")); }

  const test::ScratchDir directory_;
};

TEST_F(ChildProcessTest, TellsHowItEnded) {
  ChildProcess failing(shell("exit 3"));
  EXPECT_TRUE(has_ended(failing));
  EXPECT_EQ(WEXITSTATUS(failing.finish()), 3);
  EXPECT_EQ(WEXITSTATUS(failing.finish()), 3);
  ChildProcess killed(shell("kill -9 $$"));
  EXPECT_TRUE(has_ended(killed));
  EXPECT_EQ(WTERMSIG(killed.finish()), SIGKILL);
}

TEST_F(ChildProcessTest, IsKilledWithItsGroup) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  {
    // Both hold the pipe as their input.
    const ChildProcess child(shell("sleep 60 & echo x >" + directory_("out") + "; sleep 60"),
                             Output::kShared, ends[0]);
    EXPECT_FALSE(has_ended(child, 50));
    while (written().empty()) usleep(1000);
  }
  close(ends[0]);
  // Nobody reads any more, as soon as the last one is gone.
  pollfd writing{ends[1], 0, 0};
  EXPECT_EQ(poll(&writing, 1, 30'000), 1);
  EXPECT_EQ(writing.revents, POLLERR);
  close(ends[1]);
}

TEST_F(ChildProcessTest, GetsAnInput) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  ASSERT_EQ(write(ends[1], "text", 4), 4);
  close(ends[1]);
  ChildProcess child(shell("cat >" + directory_("out")), Output::kShared, ends[0]);
  close(ends[0]);
  EXPECT_TRUE(has_ended(child));
  EXPECT_EQ(written(), "text");
}

TEST_F(ChildProcessTest, SharesOrDropsItsOutput) {
  const auto outputs_of = [&](Output output) {
    EXPECT_EQ(test::in_child([&] {
                const int file = creat(directory_("out").c_str(), 0600);
                dup2(file, STDOUT_FILENO);
                dup2(file, STDERR_FILENO);
                const ChildProcess child(shell("echo out; echo error >&2"), output);
                return has_ended(child) ? 0 : 1;
              }),
              0);
    return written();
  };
  EXPECT_EQ(outputs_of(Output::kShared), "out\nerror\n");
  EXPECT_EQ(outputs_of(Output::kDropped), "");
}

TEST_F(ChildProcessTest, HasNoOtherDescriptor) {
  const int open = fcntl(STDERR_FILENO, F_DUPFD, 30);  // would be inherited
  ASSERT_GE(open, 30);
  ChildProcess child(shell("test ! -e /proc/$$/fd/" + std::to_string(open)));
  close(open);
  EXPECT_TRUE(has_ended(child));
  EXPECT_EQ(child.finish(), 0);
}

TEST_F(ChildProcessTest, HasDefaultSignals) {
  EXPECT_EQ(test::in_child([] {
              signal(SIGUSR1, SIG_IGN);
              sigset_t blocked;
              sigemptyset(&blocked);
              sigaddset(&blocked, SIGUSR1);
              sigprocmask(SIG_BLOCK, &blocked, nullptr);
              ChildProcess child(shell("kill -USR1 $$; exit 0"));
              EXPECT_TRUE(has_ended(child));
              EXPECT_EQ(WTERMSIG(child.finish()), SIGUSR1);
              return 0;
            }),
            0);
}

TEST_F(ChildProcessTest, CannotBeStarted) {
  EXPECT_EQ(test::error_of<std::system_error>([] { const ChildProcess none({"/nowhere"}); }),
            "/nowhere: No such file or directory");
}

}  // namespace
}  // namespace corvane
