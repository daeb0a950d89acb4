// The whole run: start().
#include <algorithm>
#include <stdexcept>

#include "service/signals.h"
#include "tests/support/child_process.h"
#include "tests/unit/management/service_world.h"

namespace corvane::test {
namespace {

using corvane::fake::HttpAnswer;
using corvane::fake::HttpRequest;

const LogLine kDisabled{4, kProgram, "Detection has been disabled. Exiting"};
const LogLine kStopSeen{4, "isTimeToStop",
                        "System called for Service ShutDown. Stopping the service"};

class Start : public PlatformFake {
 protected:
  void SetUp() override {
    PlatformFake::SetUp();
    world = std::make_unique<ServiceWorld>();
  }
  void TearDown() override {
    world.reset();
    PlatformFake::TearDown();
  }

  // The loop ends after so many sleeps, by the management flag.
  void end_after(std::size_t sleeps) {
    fake.on_sleep = [this, sleeps](unsigned) {
      if (fake.sleeps.size() == sleeps) world->configure_states("1", "1", "1");
    };
  }

  std::string failure() {
    try {
      world->service.start();
    } catch (const std::exception& error) {
      return error.what();
    }
    return "";
  }

  // A database of an earlier run, with or without a gather time.
  void existing_database(const std::string& statement) {
    ManagementService earlier(world->location, "CV_Anomaly.db", "FULL", kMaster, 15);
    earlier.initializeDB();
    query(earlier.m_db->get_db_handle(), statement);
  }

  std::string last_gather_time() {
    return query_one(world->handle(), "SELECT LAST_BACKUP_TIME FROM LAST_BACKUP_DATA_CAPTURE");
  }

  std::unique_ptr<ServiceWorld> world;
};

const std::string kInitFailure = "Exception occured while initialising database";
const std::string kTimeStored = "INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (1699999000)";

TEST_F(Start, DatabaseThatCannotBeOpenedIsLoggedTwiceAndThrown) {
  world->service.m_database_location += "/missing";
  EXPECT_EQ(failure(), kInitFailure);
  EXPECT_EQ(fake.log, (std::vector<LogLine>{{16, kProgram, "Failed to create database object"},
                                            {16, kProgram, kInitFailure}}));
  EXPECT_TRUE(fake.sleeps.empty());
}

TEST_F(Start, SchemaThatCannotBeCreatedIsThrownUnderTheSameText) {
  write_file(world->database(), std::string(4096, 'x'));
  EXPECT_EQ(failure(), kInitFailure);
  EXPECT_EQ(fake.log, (std::vector<LogLine>{{16, kProgram, kInitFailure}}));
}

TEST_F(Start, ErrorWhileLookingForTheHistoryLeavesIt) {
  existing_database("DROP TABLE LAST_BACKUP_DATA_CAPTURE");
  ManagementService::DBAccess db(world->database(), SQLITE_OPEN_READWRITE);
  query(db.get_db_handle(), "CREATE VIEW LAST_BACKUP_DATA_CAPTURE AS SELECT * FROM NOWHERE");
  EXPECT_EQ(failure(),
            "Query execution failed for  SELECT COUNT(*) FROM LAST_BACKUP_DATA_CAPTURE;");
}

TEST_F(Start, HistoryBeginsOneWholeIntervalAfterTheStart) {
  end_after(900);
  world->service.start();
  EXPECT_EQ(fake.sleeps, std::vector<unsigned>(900, 1));
  EXPECT_EQ(fake.log.at(0), progress("Historical gather is not done."));
  EXPECT_EQ(fake.log.at(1), (LogLine{2, kHistory, "Capturing historical data."}));
  EXPECT_EQ(last_gather_time(), std::to_string(kNow + 900));
  EXPECT_EQ(fake.log.back(), kDisabled);
}

TEST_F(Start, IntervalOfZeroBeginsHistoryAtOnce) {
  world->service.m_data_fetch_interval_in_mins = 0;
  world->configure_states("1", "1", "1");  // not looked at before the loop
  world->service.start();
  EXPECT_TRUE(fake.sleeps.empty());
  EXPECT_EQ(last_gather_time(), std::to_string(kNow));
}

TEST_F(Start, WithATimeStoredGoesStraightIntoTheLoopAndGathersAnIntervalLater) {
  existing_database(kTimeStored);
  end_after(901);
  world->service.start();
  EXPECT_EQ(fake.log.at(0), progress("Historical data captured earlier."));
  EXPECT_EQ(log_of(kProgram).at(1), progress("Capturing data between 1699999001 & 1700000900 "));
  EXPECT_EQ(fake.sleeps, std::vector<unsigned>(901, 1));  // one after each pass, the last none
  EXPECT_EQ(last_gather_time(), std::to_string(kNow + 900));
}

TEST_F(Start, WithNoTimeStoredAndNothingLeftToGatherStoresTheTimeAndStartsTheLiveLoop) {
  cover(*world, kNow + 900 - kHistorySeconds, kNow + 900);
  end_after(902);
  world->service.start();
  EXPECT_TRUE(fake.requests.empty());
  EXPECT_EQ(last_gather_time(), std::to_string(kNow + 900));
  EXPECT_EQ(fake.sleeps, std::vector<unsigned>(902, 1));  // the last two between passes of the loop
  EXPECT_EQ(fake.log.back(), kDisabled);
}

TEST_F(Start, FirstLiveGatherComesAnIntervalAfterTheHistoryAndFollowsIt) {
  end_after(1801);
  world->service.start();
  const auto jobs = std::count_if(
      fake.requests.begin(), fake.requests.end(),
      [](const HttpRequest& request) { return request.path.starts_with("corvane/admin/jobs"); });
  EXPECT_EQ(jobs, 1);
  EXPECT_EQ(std::count(fake.log.begin(), fake.log.end(),
                       progress("Capturing data between 1700000901 & 1700001800 ")),
            1);
}

TEST_F(Start, LiveOnlyModeGathersNoHistoryAndSleepsASecondInterval) {
  world->service.m_gather_mode = "LIVE_ONLY";
  write_file(world->location + "/terminate_gather", "");
  ::testing::internal::CaptureStdout();
  world->service.start();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "\nTerminating data gather.");
  std::vector<unsigned> expected(900, 1);
  expected.push_back(900);
  EXPECT_EQ(fake.sleeps, expected);
  EXPECT_TRUE(fake.requests.empty());
  EXPECT_EQ(last_gather_time(), std::to_string(kNow + 900));
}

TEST_F(Start, AnotherAnomalyServerEndsItAfterTheFirstInterval) {
  existing_database(kTimeStored);
  world->product_configuration("ANOMALY_PROXY_SERVER = MASTER01.example.com");
  world->service.start();
  std::vector<unsigned> expected(900, 1);
  expected.push_back(4);
  EXPECT_EQ(fake.sleeps, expected);
  EXPECT_EQ(last_gather_time(), "1699999000");
}

// --- Stop requests: once made they stay, hence a process for each ---

TEST_F(Start, StopDuringTheFirstWaitEndsItWithoutAGather) {
  EXPECT_EQ(run_in_child([&] {
              fake.on_sleep = [&](unsigned) {
                if (fake.sleeps.size() == 3) SetShutDownInitiated();
              };
              world->service.start();
              EXPECT_EQ(fake.sleeps.size(), 3U);
              EXPECT_EQ(fake.log, (std::vector<LogLine>{progress("Historical gather is not done."),
                                                        kStopSeen}));
              EXPECT_EQ(last_gather_time(), "");
            }),
            kChildSucceeded);
}

TEST_F(Start, StopIsLookedAtBeforeTheEndOfTheWait) {
  EXPECT_EQ(run_in_child([&] {
              world->service.m_data_fetch_interval_in_mins = 0;
              SetShutDownInitiated();
              world->service.start();
              EXPECT_EQ(fake.log, (std::vector<LogLine>{progress("Historical gather is not done."),
                                                        kStopSeen}));
            }),
            kChildSucceeded);
}

TEST_F(Start, StopDuringTheHistoryEndsItNormallyAndStoresNoTime) {
  EXPECT_EQ(run_in_child([&] {
              world->service.m_data_fetch_interval_in_mins = 0;
              fake.handler = [&](const HttpRequest&) {
                if (fake.requests.size() == 2) SetShutDownInitiated();
                return HttpAnswer{.result = 0, .status = 200, .body = "{}"};
              };
              EXPECT_EQ(failure(), "");
              EXPECT_EQ(fake.requests.size(), 2U);
              EXPECT_EQ(
                  corvane::fake::log_lines(4),
                  (std::vector<LogLine>{
                      {4, "CurlClient::process_curl_response", "\nAPI execution succeeded \n"},
                      {4, "CurlClient::process_curl_response", "\nAPI execution succeeded \n"},
                      kStopSeen,
                      {4, kHistory, "Service has been requested to stop"},
                      {4, kProgram,
                       "[ManagementService::do_historical_gather] intercepted a shutdown "
                       "request"}}));
              EXPECT_EQ(last_gather_time(), "");
            }),
            kChildSucceeded);
}

constexpr char kArchives[] = "DataGather::do_cvdeployutil_gather";

// Requests the stop when the first archive is committed.
int stop_once_archives_are_read(void*) {
  return log_of(kArchives).size() > 1 ? SetShutDownInitiated() : 0;
}

int watch_commits(sqlite3* db, const char**, const sqlite3_api_routines*) {
  sqlite3_commit_hook(db, stop_once_archives_are_read, nullptr);
  return SQLITE_OK;
}

TEST_F(Start, StopBetweenArchivesEndsItNormallyToo) {
  EXPECT_EQ(run_in_child([&] {
              for (const char* name : {"a", "b"}) {
                const std::string archive = world->scratch("var/global/incremental/") + name;
                write_file(archive + "/master.txt", kMaster);
                write_file(archive + "/gather_options.json",
                           R"({"start": 1699990000, "end": 1699999000})");
                write_file(archive + "/qpimagelist.out", "{}");
              }
              world->service.m_data_fetch_interval_in_mins = 0;
              sqlite3_auto_extension(reinterpret_cast<void (*)()>(watch_commits));
              EXPECT_EQ(failure(), "");
              EXPECT_EQ(corvane::fake::log_lines(4),
                        (std::vector<LogLine>{
                            kStopSeen,
                            {4, kArchives, "Service has been requested to stop"},
                            {4, kProgram,
                             "[DataGather::do_cvdeployutil_gather] intercepted a shutdown "
                             "request"}}));
              EXPECT_EQ(world->rows("HIST_DATA"), "1");
              EXPECT_EQ(last_gather_time(), "");
            }),
            kChildSucceeded);
}

TEST_F(Start, StopEndsTheLoopBeforeAnythingElse) {
  EXPECT_EQ(run_in_child([&] {
              existing_database(kTimeStored);
              world->configure_states("0", "0", "0");
              SetShutDownInitiated();
              world->service.start();
              EXPECT_EQ(fake.log, (std::vector<LogLine>{
                                      progress("Historical data captured earlier."), kStopSeen}));
              EXPECT_TRUE(fake.sleeps.empty());
            }),
            kChildSucceeded);
}

TEST_F(Start, LiveOnlySleepDoesNotLookAtTheStopFlag) {
  EXPECT_EQ(run_in_child([&] {
              world->service.m_gather_mode = "LIVE_ONLY";
              world->service.m_data_fetch_interval_in_mins = 1;
              fake.on_sleep = [&](unsigned seconds) {
                if (seconds == 60) SetShutDownInitiated();
              };
              world->service.start();
              EXPECT_EQ(fake.sleeps.back(), 60U);
              EXPECT_EQ(corvane::fake::log_lines(4), (std::vector<LogLine>{kStopSeen}));
              EXPECT_EQ(last_gather_time(), std::to_string(kNow + 60));
            }),
            kChildSucceeded);
}

}  // namespace
}  // namespace corvane::test
