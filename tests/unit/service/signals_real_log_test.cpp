#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <sstream>
#include <string>
#include <thread>

#include "platform/debug_log.h"
#include "service/signals.h"
#include "tests/support/child_process.h"
#include "tests/support/scratch_dir.h"

namespace {

using corvane::test::kChildSucceeded;
using corvane::test::read_file;
using corvane::test::run_in_child;
using corvane::test::ScratchDir;

void bombard(std::chrono::milliseconds duration) {
  const auto end = std::chrono::steady_clock::now() + duration;
  while (std::chrono::steady_clock::now() < end) {
    kill(getpid(), SIGTERM);
    kill(getpid(), SIGINT);
  }
}

// What stands behind the time and the process id of a record.
std::string message_of(const std::string& record) {
  std::istringstream words(record);
  std::string skipped;
  std::string message;
  words >> skipped >> skipped >> std::ws;
  std::getline(words, message);
  return message;
}

TEST(SignalsRealLogTest, BothSignalsAtOnceNeverLockUpReadersThatLog) {
  const ScratchDir scratch;
  EXPECT_EQ(run_in_child([&] {
              int status = 0;
              open_debug_log(scratch().c_str(), "test", "log", 0644, &status);
              ASSERT_EQ(status, 0);
              ASSERT_EQ(SetupSignalHandler(), 0);
              std::atomic<bool> over = false;
              std::thread sender([&over] {
                bombard(std::chrono::milliseconds(200));
                over = true;
              });
              int positive = 0;
              while (!over) positive += isTimeToStop();
              sender.join();
              EXPECT_GT(positive, 0);
            }),
            kChildSucceeded);

  std::istringstream log(read_file(scratch("log")));
  int records = 0;
  for (std::string record; std::getline(log, record); ++records) {
    const std::string message = message_of(record);
    EXPECT_TRUE(message == "4 cvanomalymgmt: Intercepted signal SIGINT. Will stop the service" ||
                message == "4 cvanomalymgmt: Intercepted signal SIGTERM. Will stop the service" ||
                message ==
                    "4 isTimeToStop: System called for Service ShutDown. Stopping the service")
        << record;
    if (HasFailure()) break;
  }
  EXPECT_GT(records, 10);
}

}  // namespace
