#include "coverage/worker.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "tests/support/in_child.h"
#include "tests/support/scratch_dir.h"

namespace corvane::coverage {
namespace {

using std::chrono::milliseconds;

class WorkerTest : public testing::Test {
 protected:
  // A process that does this.
  Worker worker(const std::string& script, milliseconds deadline = std::chrono::seconds(30)) {
    return {
        {"/bin/sh", "-c", script, "sh"}, directory_("result"), deadline, [this] { return stops_; }};
  }
  WorkerEnding run(const std::string& script) { return run_worker(worker(script), {5, 6}); }

  test::ScratchDir directory_;
  bool stops_ = false;
};

TEST_F(WorkerTest, IsGivenTheRange) {
  EXPECT_EQ(run("test \"$1 $2\" = '5 6'"), WorkerEnding::kSucceeded);
}

TEST_F(WorkerTest, Fails) {
  EXPECT_EQ(run("exit 1"), WorkerEnding::kFailed);
  EXPECT_EQ(run("kill -9 $$"), WorkerEnding::kFailed);
}

TEST_F(WorkerTest, AResultOfTheOneBeforeCountsForNothing) {
  test::write_file(directory_("result"), "x");
  EXPECT_EQ(run("test ! -e " + directory_("result")), WorkerEnding::kSucceeded);
}

TEST_F(WorkerTest, ThatHangsIsKilledWithItsChildren) {
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(run_worker(worker("sleep 60 & echo $! >" + directory_("child") + "; sleep 60",
                              milliseconds(300)),
                       {5, 6}),
            WorkerEnding::kTooLong);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
  const pid_t child = std::stoi(test::read_file(directory_("child")));
  for (int i = 0; i < 500 && kill(child, 0) == 0; ++i) {
    // Its parent is gone; until somebody has waited for it, it is a zombie.
    const std::string stat = test::read_file("/proc/" + std::to_string(child) + "/stat");
    if (stat.find(") Z ") != std::string::npos) break;
    std::this_thread::sleep_for(milliseconds(20));
    ASSERT_LT(i, 499);
  }
}

TEST_F(WorkerTest, IsInterrupted) {
  stops_ = true;
  EXPECT_EQ(run("sleep 60"), WorkerEnding::kInterrupted);
}

// A signal to the group of the caller ends the worker as well.
TEST_F(WorkerTest, OneThatEndsWithARequestToEndIsInterrupted) {
  Worker ending = worker("echo $$ >" + directory_("pid"));
  ending.stop = [this] {
    if (!std::filesystem::exists(directory_("pid"))) return false;
    const std::string id = test::read_file(directory_("pid"));
    return test::read_file("/proc/" + id.substr(0, id.find('\n')) + "/stat").find(") Z ") !=
           std::string::npos;
  };
  EXPECT_EQ(run_worker(ending, {5, 6}), WorkerEnding::kInterrupted);
}

TEST_F(WorkerTest, AProgramThatIsMissing) {
  const Worker missing{
      {"/nowhere/program"}, directory_("result"), milliseconds(1), [] { return false; }};
  EXPECT_THROW(run_worker(missing, {5, 6}), std::system_error);
}

TEST_F(WorkerTest, SaysWhatItTookLongerThan) {
  EXPECT_EQ(deadline_text(worker("", milliseconds(120'000))), "120 s");
}

TEST_F(WorkerTest, EndsWithItsParent) {
  const std::string pid = directory_("pid");
  // The parent goes away once the child has said who it is.
  EXPECT_EQ(test::in_child([&] {
              const pid_t child = test::start_child([&] {
                end_with_parent();
                test::write_file(pid + ".new", std::to_string(getpid()));
                std::filesystem::rename(pid + ".new", pid);
                sleep(60);
                return 0;
              });
              while (child > 0 && !std::filesystem::exists(pid)) usleep(1000);
              return 0;
            }),
            0);
  const pid_t child = std::stoi(test::read_file(pid));
  for (int i = 0; i < 1000 && kill(child, 0) == 0; ++i) {
    if (test::read_file("/proc/" + std::to_string(child) + "/stat").find(") Z ") !=
        std::string::npos) {
      break;
    }
    std::this_thread::sleep_for(milliseconds(20));
    ASSERT_LT(i, 999);
  }
}

}  // namespace
}  // namespace corvane::coverage
