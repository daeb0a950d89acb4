#include "config/poller.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/fakes/platform_fake_test.h"
#include "tests/support/mutex_calls.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/scratch_dir.h"
#include "tests/unit/config/poller_test_support.h"

namespace {

// What the next call of stat(2) fails with; 0: it does not.
int next_stat_error = 0;

}  // namespace

extern "C" {

int __real_stat(const char* path, struct stat* status);

int __wrap_stat(const char* path, struct stat* status) {
  if (next_stat_error == 0) return __real_stat(path, status);
  errno = std::exchange(next_stat_error, 0);
  return -1;
}

}  // extern "C"

namespace {

using corvane::fake::log_lines;
using corvane::fake::LogLine;
using corvane::test::fail_next_lock;
using corvane::test::is_modified;
using corvane::test::kEnter;
using corvane::test::kExit;
using corvane::test::kPoller;
using corvane::test::OrdinaryUserFiles;
using corvane::test::ScratchDir;
using corvane::test::set_modified_at;
using corvane::test::write_file;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const LogLine kStopping{16, kPoller, "Encountered error. Stopping the poller"};

// The thread's body, run in the test's own thread: after each look the next step of the script
// runs, and after the last one the poller is told to stop.
class PollerTest : public PlatformFake {
 protected:
  int look(std::vector<std::function<void()>> steps = {}) {
    std::size_t step = 0;
    fake.on_sleep = [&, this](unsigned) {
      if (step == steps.size()) {
        poller_.setStopPoller();
      } else {
        steps[step++]();
      }
    };
    return poller_.poller();
  }

  LogLine not_found() const { return {16, kPoller, "File [" + path_ + "] not found."}; }

  ScratchDir scratch_;
  std::string path_ = scratch_("test.conf");
  Poller poller_{path_, 7};
};

TEST_F(PollerTest, TheFirstLookAtAFileReportsAModification) {
  write_file(path_, "");
  EXPECT_EQ(look(), 0);
  EXPECT_TRUE(is_modified(poller_));
  EXPECT_THAT(log_lines(), ElementsAre(kEnter, kExit));
}

TEST_F(PollerTest, IsModifiedCalledTwiceAfterOneChangeYieldsTrueThenFalse) {
  write_file(path_, "");
  look();
  EXPECT_TRUE(is_modified(poller_));
  EXPECT_FALSE(is_modified(poller_));
}

TEST_F(PollerTest, SleepsTheIntervalAfterEachLook) {
  write_file(path_, "");
  look({[] {}, [] {}});
  EXPECT_THAT(fake.sleeps, ElementsAre(7u, 7u, 7u));
}

TEST_F(PollerTest, OnlyATimeThatMovesForwardIsReported) {
  write_file(path_, "");
  set_modified_at(path_, 1000);
  look({
      [this] { EXPECT_TRUE(is_modified(poller_)); },
      [this] {
        EXPECT_FALSE(is_modified(poller_)) << "nothing has changed";
        set_modified_at(path_, 1001);
      },
      [this] {
        EXPECT_TRUE(is_modified(poller_)) << "one second forward";
        set_modified_at(path_, 900);
      },
      [this] {
        EXPECT_FALSE(is_modified(poller_)) << "backwards";
        set_modified_at(path_, 1001);
      },
      [this] { EXPECT_FALSE(is_modified(poller_)) << "up to the last time again"; },
  });
}

TEST_F(PollerTest, ModificationsWithinOneSecondAreOne) {
  write_file(path_, "");
  set_modified_at(path_, 1000, 1);
  look({[this] {
          EXPECT_TRUE(is_modified(poller_));
          set_modified_at(path_, 1000, 999'999'999);
        },
        [this] { EXPECT_FALSE(is_modified(poller_)); }});
}

TEST_F(PollerTest, AFileOfTheEpochIsNotReported) {
  write_file(path_, "");
  set_modified_at(path_, 0);
  look();
  EXPECT_FALSE(is_modified(poller_));
}

TEST_F(PollerTest, SeveralChangesBetweenTwoReadsAreOne) {
  write_file(path_, "");
  set_modified_at(path_, 1000);
  look({[this] { set_modified_at(path_, 1001); }, [this] { set_modified_at(path_, 1002); }});
  EXPECT_TRUE(is_modified(poller_));
  EXPECT_FALSE(is_modified(poller_));
}

TEST_F(PollerTest, AMissingFileIsLoggedOnceAndReportedOnceItExists) {
  testing::internal::CaptureStdout();
  const int result = look({[] {}, [] {},
                           [this] {
                             EXPECT_FALSE(is_modified(poller_));
                             write_file(path_, "");
                           },
                           [this] { EXPECT_TRUE(is_modified(poller_)); }});
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "file [" + path_ + "] not found");
  EXPECT_EQ(result, 0);
  EXPECT_THAT(log_lines(), ElementsAre(kEnter, not_found(), kExit));
  EXPECT_THAT(fake.sleeps, ElementsAre(7u, 7u, 7u, 7u, 7u));
}

TEST_F(PollerTest, AFileThatIsMissingAgainIsLoggedAgain) {
  testing::internal::CaptureStdout();
  const int result =
      look({[this] { write_file(path_, ""); }, [this] { std::filesystem::remove(path_); }, [] {}});
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "file [" + path_ + "] not foundfile [" + path_ + "] not found");
  EXPECT_EQ(result, -1) << "the last look";
  EXPECT_THAT(log_lines(), ElementsAre(kEnter, not_found(), not_found(), kExit));
}

TEST_F(PollerTest, AFileReplacedByAnOlderOneIsNotReported) {
  testing::internal::CaptureStdout();
  write_file(path_, "");
  set_modified_at(path_, 1000);
  look({[this] {
          EXPECT_TRUE(is_modified(poller_));
          std::filesystem::remove(path_);
        },
        [this] {
          write_file(path_, "");
          set_modified_at(path_, 999);
        },
        [this] { EXPECT_FALSE(is_modified(poller_)); }});
  testing::internal::GetCapturedStdout();
}

TEST_F(PollerTest, APermissionErrorOnTheVeryFirstLookStopsThePoller) {
  if (!OrdinaryUserFiles::possible()) GTEST_SKIP() << "root cannot step down here";
  const std::string path = scratch_("closed/test.conf");
  write_file(path, "");
  chmod(scratch_("closed").c_str(), 0);
  Poller poller(path, 7);
  int result = 0;
  {
    const OrdinaryUserFiles ordinary_user;
    result = poller.poller();
  }
  chmod(scratch_("closed").c_str(), 0700);
  EXPECT_EQ(result, -1);
  EXPECT_FALSE(is_modified(poller));
  EXPECT_THAT(
      log_lines(),
      ElementsAre(kEnter,
                  LogLine{16, kPoller,
                          "Search permission is denied for one of the directories in the path "
                          "prefix of [" +
                              path + "]"},
                  kStopping, kExit));
  EXPECT_THAT(fake.sleeps, IsEmpty());
}

TEST_F(PollerTest, AnInvalidParameterStopsThePoller) {
  write_file(path_, "");
  next_stat_error = EINVAL;
  EXPECT_EQ(look(), -1);
  EXPECT_THAT(log_lines(), ElementsAre(kEnter, LogLine{16, kPoller, "Invalid parameter to stat."},
                                       kStopping, kExit));
}

TEST_F(PollerTest, AnyOtherErrorStopsThePollerWithItsNumber) {
  write_file(path_, "a file, no folder");
  Poller below_a_file(path_ + "/test.conf", 7);
  EXPECT_EQ(below_a_file.poller(), -1);
  EXPECT_THAT(
      log_lines(),
      ElementsAre(kEnter, LogLine{16, kPoller, "Unexpected error in stat:[20]"}, kStopping, kExit));
}

TEST_F(PollerTest, ALinkToItselfStopsThePollerWithItsNumber) {
  std::filesystem::create_symlink(path_, path_);
  EXPECT_EQ(look(), -1);
  EXPECT_THAT(
      log_lines(),
      ElementsAre(kEnter, LogLine{16, kPoller, "Unexpected error in stat:[40]"}, kStopping, kExit));
}

TEST_F(PollerTest, AnErrorAfterAGoodLookStopsThePoller) {
  write_file(path_, "");
  EXPECT_EQ(look({[] { next_stat_error = EIO; }, [] { ADD_FAILURE() << "it went on"; }}), -1);
  EXPECT_THAT(log_lines(), ElementsAre(kEnter, LogLine{16, kPoller, "Unexpected error in stat:[5]"},
                                       kStopping, kExit));
}

TEST_F(PollerTest, AnErrorWhileTheFileIsMissingIsLoggedEachTimeAndPollingGoesOn) {
  testing::internal::CaptureStdout();
  const int result =
      look({[] { next_stat_error = EINVAL; }, [] { next_stat_error = EIO; },
            [this] { write_file(path_, ""); }, [this] { EXPECT_TRUE(is_modified(poller_)); }});
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(result, 0);
  EXPECT_THAT(log_lines(),
              ElementsAre(kEnter, not_found(), LogLine{16, kPoller, "Invalid parameter to stat."},
                          LogLine{16, kPoller, "Unexpected error in stat:[5]"}, kExit));
  EXPECT_THAT(fake.sleeps, ElementsAre(7u, 7u, 7u, 7u, 7u));
}

TEST_F(PollerTest, AfterAGoodLookAnErrorIsOutOfNowhereAgain) {
  testing::internal::CaptureStdout();
  const int result = look({[this] { write_file(path_, ""); }, [] { next_stat_error = EIO; }});
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(result, -1);
  EXPECT_THAT(log_lines(),
              ElementsAre(kEnter, not_found(), LogLine{16, kPoller, "Unexpected error in stat:[5]"},
                          kStopping, kExit));
}

TEST_F(PollerTest, ToldToStopBeforeTheFirstLookItMakesNone) {
  poller_.setStopPoller();
  EXPECT_EQ(poller_.poller(), 0);
  EXPECT_FALSE(is_modified(poller_));
  EXPECT_THAT(log_lines(), ElementsAre(kEnter, kExit));
}

TEST_F(PollerTest, FlagsAreSetAndCleared) {
  EXPECT_FALSE(poller_.isStopPoller());
  EXPECT_EQ(poller_.setStopPoller(), 0);
  EXPECT_TRUE(poller_.isStopPoller());
  EXPECT_EQ(poller_.unsetStopPoller(), 0);
  EXPECT_FALSE(poller_.isStopPoller());
  EXPECT_FALSE(is_modified(poller_));
  EXPECT_EQ(poller_.setModified(), 0);
  EXPECT_TRUE(is_modified(poller_));
  EXPECT_THAT(log_lines(), IsEmpty());
}

// --- Locks that fail ---

TEST_F(PollerTest, SetModifiedThatCannotLockLeavesTheFlag) {
  fail_next_lock();
  EXPECT_EQ(poller_.setModified(), 1);
  EXPECT_FALSE(is_modified(poller_));
  EXPECT_THAT(log_lines(), ElementsAre(LogLine{16, "Poller::setModified",
                                               "Exception occurred in locking m_modified"}));
}

TEST_F(PollerTest, IsModifiedThatCannotLockIsFalseAndLeavesTheFlag) {
  poller_.setModified();
  bool modified = true;
  fail_next_lock();
  EXPECT_EQ(poller_.IsModified(modified), 1);
  EXPECT_FALSE(modified);
  EXPECT_TRUE(is_modified(poller_));
  EXPECT_THAT(log_lines(), ElementsAre(LogLine{16, "Poller::IsModified",
                                               "Exception occurred in locking m_modified"}));
}

TEST_F(PollerTest, SetAndUnsetStopPollerThatCannotLockLeaveTheFlag) {
  fail_next_lock();
  EXPECT_EQ(poller_.setStopPoller(), 1);
  EXPECT_FALSE(poller_.isStopPoller());
  poller_.setStopPoller();
  fail_next_lock();
  EXPECT_EQ(poller_.unsetStopPoller(), 1);
  EXPECT_TRUE(poller_.isStopPoller());
  EXPECT_THAT(
      log_lines(),
      ElementsAre(
          LogLine{16, "Poller::setStopPoller", "Exception occurred in locking m_stop_polling"},
          LogLine{16, "Poller::unsetStopPoller", "Exception occurred in locking m_stop_polling"}));
}

TEST_F(PollerTest, APollerThatCannotReadItsStopFlagStops) {
  fail_next_lock();
  EXPECT_TRUE(poller_.isStopPoller());
  EXPECT_FALSE(poller_.isStopPoller());
  EXPECT_THAT(log_lines(), ElementsAre(LogLine{16, "Poller::stopPoller",
                                               "Exception occurred in locking m_stop_polling"}));
}

TEST_F(PollerTest, StartPollingThatCannotUnsetTheStopFlagStartsNothing) {
  fail_next_lock();
  EXPECT_EQ(poller_.StartPolling(), 1);
  EXPECT_EQ(poller_.TerminatePolling(), 1) << "there is a thread";
  EXPECT_THAT(
      log_lines(),
      ElementsAre(
          LogLine{16, "Poller::unsetStopPoller", "Exception occurred in locking m_stop_polling"},
          LogLine{16, "Poller::StartPolling", "Failed to unset poller state flag"}));
}

TEST_F(PollerTest, TerminatePollingThatCannotSetTheStopFlagFails) {
  fail_next_lock();
  EXPECT_EQ(poller_.TerminatePolling(), 1);
  EXPECT_FALSE(poller_.isStopPoller());
  EXPECT_THAT(log_lines(), ElementsAre(LogLine{16, "Poller::setStopPoller",
                                               "Exception occurred in locking m_stop_polling"}));
}

}  // namespace
