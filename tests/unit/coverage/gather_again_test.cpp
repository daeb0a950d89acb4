#include "coverage/gather_again.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <chrono>
#include <csignal>

#include "sqlite/connection.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/support/in_child.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/sql.h"

namespace corvane::coverage {
namespace {

using std::chrono::milliseconds;

using Ending = GatherResult::Ending;

constexpr char kBegins[] =
    "'2026-01-31T04:05:06.789Z 7 2 cvanomalymgmt: Capturing data between 5 & 6 ' ";
constexpr char kEnds[] = "'2026-01-31T04:05:07.789Z 7 2 cvanomalyheal: The gather has ended'";

class RunGather : public testing::Test {
 protected:
  // A process that does this.
  GatherResult run(const std::string& script, milliseconds deadline = std::chrono::seconds(30)) {
    const Worker worker{
        {"/bin/sh", "-c", script, "sh"}, directory_("log"), deadline, [this] { return stops_; }};
    return run_gather(worker, {5, 6});
  }
  std::string logs(const std::string& lines) const {
    return "printf '%s\\n' " + lines + " >" + directory_("log") + "; ";
  }

  test::ScratchDir directory_;
  bool stops_ = false;
};

TEST_F(RunGather, ACompleteOne) {
  const GatherResult result = run(logs(std::string(kBegins) + kEnds));
  EXPECT_EQ(result.ending, Ending::kComplete);
  EXPECT_FALSE(result.lacks_images);
}

TEST_F(RunGather, OneWithoutTheImageOfABackup) {
  const GatherResult result =
      run(logs(std::string(kBegins) +
               "'2026-01-31T04:05:07.789Z 7 2 cvanomalymgmt: Image data could not capture for "
               "backupId: x' " +
               kEnds));
  EXPECT_EQ(result.ending, Ending::kComplete);
  EXPECT_TRUE(result.lacks_images);
}

TEST_F(RunGather, OneThatFailed) {
  const GatherResult result = run(logs(
      std::string(kBegins) +
      "'2026-01-31T04:05:07.789Z 7 16 cvanomalymgmt: Could not capture data between 5' " + kEnds));
  EXPECT_EQ(result.ending, Ending::kFailed);
  EXPECT_EQ(result.reason, "Could not capture data between 5");
}

TEST_F(RunGather, OneThatEndsEarly) {
  EXPECT_EQ(run("exit 0").reason, "The process that gathers ended before its first request");
  for (const std::string& script : {logs(kBegins),  // its log was cut
                                    logs(std::string(kBegins) + kEnds) + "exit 1",
                                    logs(std::string(kBegins) + kEnds) + "kill -9 $$"}) {
    const GatherResult result = run(script);
    EXPECT_EQ(result.ending, Ending::kFailed) << script;
    EXPECT_EQ(result.reason, "The gather ended early") << script;
  }
}

TEST_F(RunGather, OneThatTakesTooLong) {
  const GatherResult result = run("sleep 60", milliseconds(1));
  EXPECT_EQ(result.ending, Ending::kFailed);
  EXPECT_EQ(result.reason, "The gather took longer than 0 s");
}

TEST_F(RunGather, IsInterrupted) {
  stops_ = true;
  EXPECT_EQ(run("sleep 60").ending, Ending::kInterrupted);
}

class GatherInto : public PlatformFake {
 protected:
  test::ScratchDir directory_;
};

TEST_F(GatherInto, StoresWhatTheServerHas) {
  fake.answers.push_back({.body = R"({"data":[],"meta":{"pagination":{}}})"});
  fake.answers.push_back(
      {.body =
           "{\"data\":[{\"attributes\":{\"policyType\":\"STANDARD\",\"jobId\":7,"
           "\"backupId\":\"b\xFF\\u0000\",\"state\":\"DONE\",\"status\":0,"
           "\"backupTime\":\"1970-01-01T00:00:05.000Z\",\"startTime\":\"1970-01-01T00:00:05.000Z\","
           "\"endTime\":\"1970-01-01T00:00:06.000Z\",\"destinationStorageUnitName\":\"d\","
           "\"kilobytesTransferred\":1}}],\"meta\":{\"pagination\":{}}}"});
  gather_into(directory_(), {5, 6});
  const Connection database(directory_(kScratchDatabase), Connection::Access::kRead);
  EXPECT_EQ(test::query(database.handle(),
                        "SELECT UNIQUE_KEY, PROCESSED_STATUS, MODE FROM DATA_TO_PROCESS"),
            (std::vector<test::SqlRow>{{"data_7_b\uFFFD\uFFFD", "0", "1"}}));
  ASSERT_EQ(fake.log_openings.size(), 1U);
  EXPECT_EQ(fake.log_openings[0],
            (fake::LogOpening{directory_(), "cvanomalyheal", "gather.log", 0600}));
}

// As the service does.
TEST_F(GatherInto, WithoutAMasterItAsksTheImageList) {
  fake.master_config_result = -1;
  gather_into(directory_(), {5, 6});
  EXPECT_EQ(fake.requests.size(), 0U);
}

TEST_F(GatherInto, EndsWithTheProcessThatHasStartedIt) {
  const int status = test::in_child([this] {
    gather_into(directory_(), {5, 6});
    int signal = 0;
    prctl(PR_GET_PDEATHSIG, &signal);
    return signal;
  });
  EXPECT_EQ(status, SIGKILL);
}

TEST_F(GatherInto, NeedsALog) {
  fake.log_status = -1;
  EXPECT_THROW(gather_into(directory_(), {5, 6}), std::runtime_error);
}

}  // namespace
}  // namespace corvane::coverage
