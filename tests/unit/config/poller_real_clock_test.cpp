#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <string>
#include <thread>

#include "config/poller.h"
#include "tests/support/scratch_dir.h"
#include "tests/unit/config/poller_test_support.h"

namespace {

using corvane::test::ScratchDir;
using corvane::test::write_file;

bool becomes_modified(Poller& poller) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  bool modified = false;
  while (!modified && std::chrono::steady_clock::now() < deadline) {
    EXPECT_EQ(poller.IsModified(modified), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return modified;
}

TEST(PollerRealClockTest, SeesAnEditAndEnds) {
  const ScratchDir scratch;
  write_file(scratch("test.conf"), "");
  Poller poller(scratch("test.conf"), 0);
  ASSERT_EQ(poller.StartPolling(), 0);
  EXPECT_TRUE(becomes_modified(poller));
  corvane::test::set_modified_at(scratch("test.conf"), std::time(nullptr) + 100);
  EXPECT_TRUE(becomes_modified(poller));
  EXPECT_EQ(poller.TerminatePolling(), 0);
}

}  // namespace
