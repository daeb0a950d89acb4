#include "companions/alert/channel/wakeup.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>

#include <chrono>
#include <stdexcept>
#include <thread>

#include "tests/support/in_child.h"

namespace corvane::alert {
namespace {

using namespace std::chrono_literals;

bool is_readable(int descriptor) {
  pollfd polled{descriptor, POLLIN, 0};
  return poll(&polled, 1, 0) == 1;
}

TEST(Wakeup, KeepsANotificationForTheNextWait) {
  Wakeup wakeup;
  EXPECT_FALSE(is_readable(wakeup.descriptor()));
  EXPECT_FALSE(wakeup.wait(0ms));
  wakeup.notify();
  wakeup.notify();
  EXPECT_TRUE(is_readable(wakeup.descriptor()));
  EXPECT_TRUE(wakeup.wait(0ms));
  EXPECT_FALSE(wakeup.wait(0ms));
}

TEST(Wakeup, WaitsForANotification) {
  Wakeup wakeup;
  std::thread notifier([&] { wakeup.notify(); });
  EXPECT_TRUE(wakeup.wait(10s));
  notifier.join();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(wakeup.wait(20ms));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 19ms);
}

TEST(Wakeup, ClosesItsDescriptorAndLeavesItToNoProgram) {
  int descriptor = -1;
  {
    const Wakeup wakeup;
    descriptor = wakeup.descriptor();
    EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    EXPECT_NE(fcntl(descriptor, F_GETFL) & O_NONBLOCK, 0);
  }
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

TEST(Wakeup, ThrowsWithoutADescriptor) {
  EXPECT_EQ(test::in_child([] {
              rlimit former{};
              getrlimit(RLIMIT_NOFILE, &former);
              const rlimit none{0, former.rlim_max};
              setrlimit(RLIMIT_NOFILE, &none);
              try {
                const Wakeup wakeup;
              } catch (const std::runtime_error& error) {
                setrlimit(RLIMIT_NOFILE,
                          &former);  // a sanitizer looks at memory through descriptors
                EXPECT_STREQ(error.what(), "eventfd: Too many open files");
                return 0;
              }
              return 1;
            }),
            0);
}

TEST(StopFlag, EndsAWait) {
  StopFlag stop;
  EXPECT_FALSE(stop.wait(0ms));
  std::thread asker([&] { stop.ask(); });
  EXPECT_TRUE(stop.wait(10s));
  asker.join();
  EXPECT_TRUE(stop.wait(0ms));
}

TEST(StopFlag, StaysRaised) {
  StopFlag stop;
  EXPECT_FALSE(stop.is_asked());
  EXPECT_FALSE(is_readable(stop.descriptor()));
  stop.ask();
  EXPECT_TRUE(stop.is_asked());
  EXPECT_TRUE(is_readable(stop.descriptor()));
}

}  // namespace
}  // namespace corvane::alert
