#include "platform/clock.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <chrono>
#include <ctime>

#include "tests/support/in_child.h"

using corvane::test::in_child;

TEST(Clock, NowIsTheSystemsTime) {
  const std::time_t before = std::time(nullptr);
  const std::time_t now = corvane::now();
  EXPECT_LE(before, now);
  EXPECT_LE(now, std::time(nullptr));
}

TEST(Clock, SleepLastsAsLongAsAsked) {
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(corvane::sleep(1), 0U);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(990));
}

TEST(Clock, SignalHandlerEndsSleepEarly) {
  EXPECT_EQ(in_child([] {
              signal(SIGALRM, [](int) {});
              // Repeated, so that one that comes before the sleep begins does no harm.
              const itimerval every_50_ms{{0, 50'000}, {0, 50'000}};
              setitimer(ITIMER_REAL, &every_50_ms, nullptr);
              EXPECT_GE(corvane::sleep(30), 29U);
              return 0;
            }),
            0);
}
