#include "platform/daemon_mark.h"

#include <gtest/gtest.h>

TEST(DaemonMark, IsOffUntilSetAndCanBeTakenBack) {
  EXPECT_FALSE(corvane::is_marked_daemon());
  corvane::mark_daemon(true);
  EXPECT_TRUE(corvane::is_marked_daemon());
  corvane::mark_daemon(false);
  EXPECT_FALSE(corvane::is_marked_daemon());
}
