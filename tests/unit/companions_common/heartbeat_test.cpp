#include "companions/common/heartbeat.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/fakes/platform_fake_test.h"

namespace corvane {
namespace {

class HeartbeatTest : public PlatformFake {
 protected:
  // Whether it is due so many seconds after the begin of the test.
  bool is_due(int seconds) {
    fake::state().now = begin_ + seconds;
    return heartbeat_.is_due();
  }

  Heartbeat heartbeat_;
  const std::time_t begin_ = fake::state().now;
};

TEST_F(HeartbeatTest, IsDueAtFirstAndOnceAMinute) {
  for (const int seconds : {0, 60, 120, 300}) {
    EXPECT_TRUE(is_due(seconds)) << seconds;
    for (const int later : {0, 1, 59}) EXPECT_FALSE(is_due(seconds + later)) << seconds;
  }
}

TEST_F(HeartbeatTest, IsDueWhenTheClockWasSetBack) {
  is_due(100);
  EXPECT_TRUE(is_due(99));
  EXPECT_FALSE(is_due(99));
  EXPECT_FALSE(is_due(158));
  EXPECT_TRUE(is_due(159));
}

TEST_F(HeartbeatTest, IsDueAMinuteAfterARestart) {
  heartbeat_.restart();
  EXPECT_FALSE(is_due(59));
  EXPECT_TRUE(is_due(60));
}

TEST_F(HeartbeatTest, IsDueAtOnceAfterAReset) {
  is_due(0);
  heartbeat_.reset();
  EXPECT_TRUE(is_due(1));
}

}  // namespace
}  // namespace corvane
