#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <semaphore>
#include <string>
#include <thread>

#include "config/poller.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/support/child_process.h"
#include "tests/support/scratch_dir.h"
#include "tests/unit/config/poller_test_support.h"

namespace {

using corvane::fake::log_lines;
using corvane::fake::LogLine;
using corvane::test::is_modified;
using corvane::test::kChildSucceeded;
using corvane::test::kEnter;
using corvane::test::kExit;
using corvane::test::run_in_child;
using corvane::test::ScratchDir;
using corvane::test::set_modified_at;
using corvane::test::write_file;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The polling thread waits in each of its sleeps until the test lets it go on.
class PollerThreadTest : public PlatformFake {
 protected:
  void SetUp() override {
    PlatformFake::SetUp();
    fake.on_sleep = [this](unsigned) {
      looked_.release();
      go_on_.acquire();
    };
  }

  int start() {
    const int result = poller_.StartPolling();
    looked_.acquire();
    return result;
  }

  void next_look() {
    go_on_.release();
    looked_.acquire();
  }

  int terminate() {
    poller_.setStopPoller();
    go_on_.release();
    return poller_.TerminatePolling();
  }

  ScratchDir scratch_;
  std::string path_ = scratch_("test.conf");
  std::counting_semaphore<> looked_{0};
  std::counting_semaphore<> go_on_{0};
  Poller poller_{path_, 7};
};

TEST_F(PollerThreadTest, StartPollAndTerminate) {
  write_file(path_, "");
  set_modified_at(path_, 1000);
  EXPECT_EQ(start(), 0);
  EXPECT_TRUE(is_modified(poller_));
  next_look();
  EXPECT_FALSE(is_modified(poller_));
  set_modified_at(path_, 1001);
  next_look();
  EXPECT_TRUE(is_modified(poller_));
  EXPECT_EQ(terminate(), 0);
  EXPECT_THAT(log_lines(), ElementsAre(kEnter, kExit));
}

TEST_F(PollerThreadTest, StartingTwiceWithoutTerminatingIsRefused) {
  write_file(path_, "");
  EXPECT_EQ(start(), 0);
  EXPECT_EQ(poller_.StartPolling(), 1);
  EXPECT_EQ(terminate(), 0);
  EXPECT_THAT(
      log_lines(),
      ElementsAre(kEnter, LogLine{16, "Poller::StartPolling", "Polling thread is already running"},
                  kExit));
}

TEST_F(PollerThreadTest, TerminatePollingThatNeverStartedReturns1AndLogsNothing) {
  EXPECT_EQ(poller_.TerminatePolling(), 1);
  EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(PollerThreadTest, TerminatedPollingCanBeStartedAgainButNotTerminatedAgain) {
  write_file(path_, "");
  EXPECT_EQ(start(), 0);
  EXPECT_EQ(terminate(), 0);
  EXPECT_EQ(poller_.TerminatePolling(), 1);
  EXPECT_TRUE(is_modified(poller_));
  EXPECT_EQ(start(), 0);
  EXPECT_TRUE(is_modified(poller_)) << "the first look of a new thread";
  EXPECT_EQ(terminate(), 0);
}

TEST_F(PollerThreadTest, AThreadThatEndedByItselfIsJoinedBeforeANewStart) {
  write_file(path_, "a file, no folder");
  Poller poller(path_ + "/test.conf", 7);
  EXPECT_EQ(poller.StartPolling(), 0);
  while (log_lines().empty() || log_lines().back() != kExit) std::this_thread::yield();
  EXPECT_EQ(poller.StartPolling(), 1);
  EXPECT_EQ(log_lines().back(),
            (LogLine{16, "Poller::StartPolling", "Polling thread is already running"}));
  EXPECT_EQ(poller.TerminatePolling(), 0);
  EXPECT_EQ(poller.StartPolling(), 0);
  EXPECT_EQ(poller.TerminatePolling(), 0);
}

TEST_F(PollerThreadTest, DestructionEndsTheThread) {
  write_file(path_, "");
  {
    Poller poller(path_, 7);
    EXPECT_EQ(poller.StartPolling(), 0);
    looked_.acquire();
    poller.setStopPoller();
    go_on_.release();
  }
  EXPECT_THAT(log_lines(), ElementsAre(kEnter, kExit));
}

// In a process of its own, which ends without a second join: ThreadSanitizer takes the first one
// for done and does not survive another.
TEST_F(PollerThreadTest, AJoinThatThrowsIsLogged) {
  write_file(path_, "");
  EXPECT_EQ(run_in_child([this] {
              int result = 0;
              // The polling thread cannot join itself.
              fake.on_sleep = [&, this](unsigned) {
                go_on_.acquire();
                result = poller_.TerminatePolling();
                looked_.release();
                go_on_.acquire();
              };
              EXPECT_EQ(poller_.StartPolling(), 0);
              go_on_.release();
              looked_.acquire();
              EXPECT_EQ(result, 1);
              EXPECT_THAT(
                  log_lines(),
                  ElementsAre(kEnter, LogLine{16, "Poller::TerminatePolling",
                                              "Exception ocuured while joining poller thread"}));
            }),
            kChildSucceeded);
}

TEST_F(PollerThreadTest, AThreadThatCannotBeJoinedByTheDestructorEndsTheProcess) {
  write_file(path_, "");
  EXPECT_EQ(run_in_child([this] {
              const rlimit none{0, 0};
              setrlimit(RLIMIT_CORE, &none);
              testing::internal::CaptureStderr();
              auto poller = std::make_unique<Poller>(path_, 7);
              // The polling thread cannot join itself.
              fake.on_sleep = [&, this](unsigned) {
                go_on_.acquire();
                poller.reset();
              };
              poller->StartPolling();
              go_on_.release();
              for (;;) pause();
            }),
            128 + SIGABRT);
}

TEST_F(PollerThreadTest, AThreadThatCannotBeStartedIsLogged) {
  EXPECT_EQ(run_in_child([this] {
              // Root is under no such limit.
              if (geteuid() == 0) {
                ASSERT_EQ(setuid(65534), 0);
              }
              const rlimit none{0, 0};
              ASSERT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
              EXPECT_EQ(poller_.StartPolling(), 1);
              EXPECT_EQ(poller_.TerminatePolling(), 1) << "there is a thread";
              EXPECT_THAT(log_lines(),
                          ElementsAre(LogLine{16, "Poller::StartPolling",
                                              "Exception occurred. Failed to start polling for "
                                              "file : [" +
                                                  path_ + "]"}));
            }),
            kChildSucceeded);
}

}  // namespace
