#include "companions/common/stop_signals.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/support/in_child.h"

namespace corvane {
namespace {

bool is_blocked(int signal) {
  sigset_t blocked;
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  return sigismember(&blocked, signal) == 1;
}

double seconds_of(const std::function<void()>& what) {
  const auto begin = std::chrono::steady_clock::now();
  what();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// Each in a process of its own, whose signals nobody else blocks.
class StopSignalsTest : public testing::TestWithParam<int> {
 protected:
  static void expect_in_child(const std::function<void()>& body) {
    EXPECT_EQ(test::in_child([&] {
                body();
                return 0;
              }),
              0);
  }
};

TEST_P(StopSignalsTest, IsTakenInsteadOfEndingTheProgram) {
  expect_in_child([] {
    StopSignals signals;
    EXPECT_TRUE(is_blocked(GetParam()));
    EXPECT_FALSE(signals.arrived());
    raise(GetParam());
    EXPECT_TRUE(signals.arrived());
  });
}

TEST_P(StopSignalsTest, IsTrueFromThenOn) {
  expect_in_child([] {
    StopSignals signals;
    raise(GetParam());
    EXPECT_TRUE(signals.wait(0));
    EXPECT_LT(seconds_of([&] { EXPECT_TRUE(signals.wait(60)); }), 30);
    EXPECT_TRUE(signals.arrived());
  });
}

TEST_P(StopSignalsTest, ReachesTheProgramWhileItIsUnblocked) {
  expect_in_child([] {
    const StopSignals signals;
    {
      const StopSignals::Unblocked unblocked(signals);
      EXPECT_FALSE(is_blocked(GetParam()));
    }
    EXPECT_TRUE(is_blocked(GetParam()));
  });
}

TEST_P(StopSignalsTest, EndsAWait) {
  expect_in_child([] {
    StopSignals signals;
    raise(GetParam());
    EXPECT_LT(seconds_of([&] { EXPECT_TRUE(signals.wait(60)); }), 30);
  });
}

INSTANTIATE_TEST_SUITE_P(Both, StopSignalsTest, testing::Values(SIGTERM, SIGINT));

TEST(StopSignals, AreWaitedFor) {
  EXPECT_EQ(test::in_child([] {
              StopSignals signals;
              EXPECT_LT(seconds_of([&] { EXPECT_FALSE(signals.arrived()); }), 0.9);
              std::thread sender([] {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                kill(getpid(), SIGTERM);
              });
              EXPECT_TRUE(signals.wait(60));
              sender.join();
              return 0;
            }),
            0);
}

TEST(StopSignals, LeaveOtherSignalsAlone) {
  EXPECT_EQ(test::in_child([] {
              signal(SIGUSR1, SIG_IGN);
              const bool was_blocked = is_blocked(SIGUSR1);
              StopSignals signals;
              EXPECT_EQ(is_blocked(SIGUSR1), was_blocked);
              raise(SIGUSR1);
              EXPECT_FALSE(signals.arrived());
              return 0;
            }),
            0);
}

}  // namespace
}  // namespace corvane
