// The historical gather: range, slices, transactions, stop requests.
#include <algorithm>

#include "service/service_stop_exception.h"
#include "service/signals.h"
#include "tests/support/child_process.h"
#include "tests/unit/management/service_world.h"

namespace corvane::test {
namespace {

constexpr int kStart = kNow - kHistorySeconds;

using corvane::fake::HttpAnswer;
using corvane::fake::HttpRequest;

std::string between(int start, int end) {
  return "Capturing data between " + std::to_string(start) + " & " + std::to_string(end) + " ";
}

HttpAnswer images_page(const std::string& attributes) {
  return {
      .result = 0,
      .status = 200,
      .body = R"({"data": [{"id": "b", "attributes": {"policyType": "X", )" + attributes + "}}]}"};
}

class History : public ServiceTest {
 protected:
  // The bounds of the slices in the log, without the line about the whole range.
  std::vector<std::string> slices() {
    std::vector<std::string> texts;
    for (const LogLine& line : log_of(kHistory)) {
      if (line.text.starts_with("Capturing data between")) texts.push_back(line.text);
    }
    texts.erase(texts.begin());
    return texts;
  }

  std::string last_gather_time() {
    return query_one(db, "SELECT LAST_BACKUP_TIME FROM LAST_BACKUP_DATA_CAPTURE");
  }
};

// --- Range and slices ---

TEST_F(History, ReachesBack91DaysInSlicesOfAnHourWithoutAGap) {
  service().do_historical_gather(gather());
  const auto all = slices();
  ASSERT_EQ(all.size(), 2184U);
  EXPECT_EQ(all.front(), between(kStart, kStart + 3600));
  EXPECT_EQ(all[1], between(kStart + 3601, kStart + 7200));
  for (int i = 1; i < 2184; ++i) {
    EXPECT_EQ(all[static_cast<std::size_t>(i)],
              between(kStart + i * 3600 + 1, kStart + (i + 1) * 3600));
  }
  EXPECT_EQ(all.back(), between(kNow - 3599, kNow));
  EXPECT_EQ(last_gather_time(), std::to_string(kNow));
}

TEST_F(History, LogsItsBeginningAndItsEndUnderTwoTags) {
  cover(*world, kStart, kNow);
  service().do_historical_gather(gather());
  EXPECT_EQ(log_of(kHistory), (std::vector<LogLine>{{2, kHistory, "Capturing historical data."},
                                                    {2, kHistory, between(kStart, kNow)}}));
  EXPECT_EQ(fake.log.back(), progress("Done capturing historical data."));
}

TEST_F(History, WithoutRangesOnlyTheTimeIsStored) {
  cover(*world, kStart, kNow);  // both rests have a length of zero: no slice
  SqlRecorder sql(db);
  service().do_historical_gather(gather());
  EXPECT_TRUE(slices().empty());
  EXPECT_TRUE(fake.requests.empty());
  EXPECT_EQ(last_gather_time(), std::to_string(kNow));
}

TEST_F(History, RangeOf5000SecondsIsTwoSlicesThePartialHourFirst) {
  cover(*world, kStart + 5000, kNow);
  service().do_historical_gather(gather());
  EXPECT_EQ(slices(), (std::vector<std::string>{between(kStart, kStart + 1400),
                                                between(kStart + 1401, kStart + 5000)}));
}

TEST_F(History, RangeOf3600SecondsIsOneSlice) {
  cover(*world, kStart + 3600, kNow);
  service().do_historical_gather(gather());
  EXPECT_EQ(slices(), (std::vector<std::string>{between(kStart, kStart + 3600)}));
}

TEST_F(History, RangesOf3601And1SecondsAreTwoSlicesAndOne) {
  cover(*world, kStart + 3601, kNow - 1);
  service().do_historical_gather(gather());
  EXPECT_EQ(slices(), (std::vector<std::string>{between(kStart, kStart + 1),
                                                between(kStart + 2, kStart + 3601),
                                                between(kNow - 1, kNow)}));
}

TEST_F(History, ClockNearTheEpochGivesARangeThatBeginsBeforeIt) {
  fake.now = 1000;
  fake.host_name = "other.example.com";  // no archives here
  service().do_historical_gather(gather());
  EXPECT_EQ(slices().front(), between(1000 - kHistorySeconds, 1000 - kHistorySeconds + 3600));
  EXPECT_EQ(slices().back(), between(-2599, 1000));
}

TEST_F(History, TimeStoredIsThatOfTheBeginning) {
  cover(*world, kStart + 3600, kNow);
  fake.handler = [this](const HttpRequest&) {
    fake.now += 500;
    return HttpAnswer{.result = 0, .status = 200, .body = "{}"};
  };
  service().start_historical_gather(gather());
  EXPECT_EQ(last_gather_time(), std::to_string(kNow));
  EXPECT_EQ(fake.log.back(), progress("Total time taken for historical gather 500."));
}

// --- Slices that go wrong ---

TEST_F(History, EachSliceIsATransaction) {
  cover(*world, kStart + 3600, kNow);
  fake.handler = [](const HttpRequest&) { return images_page(R"("jobId": 1)"); };
  SqlRecorder sql(db);
  service().do_historical_gather(gather());
  ASSERT_EQ(sql.texts.size(), 7U);
  EXPECT_EQ(sql.texts[0], "BEGIN TRANSACTION;");  // the archive's, which has no images
  EXPECT_EQ(sql.texts[1], "END TRANSACTION;");
  EXPECT_EQ(sql.texts[2], "BEGIN TRANSACTION;");
  EXPECT_TRUE(sql.texts[3].starts_with("INSERT OR REPLACE INTO HIST_DATA  VALUES "));
  EXPECT_EQ(sql.texts[4], "END TRANSACTION;");
  EXPECT_EQ(sql.expanded[5], "DELETE FROM LAST_BACKUP_DATA_CAPTURE");
  EXPECT_EQ(sql.expanded[6], "INSERT OR REPLACE INTO LAST_BACKUP_DATA_CAPTURE VALUES(1700000000)");
}

// Two slices, one image in each: job 1, then job 2.
void answer_with_jobs_one_and_two(corvane::fake::State& fake) {
  fake.handler = [&fake](const HttpRequest&) {
    return images_page(R"("jobId": )" + std::to_string(fake.requests.size()));
  };
}

TEST_F(History, SliceWhoseCommitFailsIsRolledBackLoggedAndTheNextGoesOn) {
  cover(*world, kStart + 7200, kNow);
  answer_with_jobs_one_and_two(fake);
  query(db, "PRAGMA foreign_keys=ON");
  query(db, "CREATE TABLE PARENT (ID INTEGER PRIMARY KEY)");
  query(db, "CREATE TABLE CHILD (ID INT REFERENCES PARENT (ID) DEFERRABLE INITIALLY DEFERRED)");
  query(db,
        "CREATE TRIGGER orphan AFTER INSERT ON HIST_DATA WHEN NEW.JOB_ID = 1 "
        "BEGIN INSERT INTO CHILD VALUES (1); END");
  service().do_historical_gather(gather());
  EXPECT_EQ(query_column(db, "SELECT JOB_ID FROM HIST_DATA"), std::vector<std::string>{"2"});
  EXPECT_EQ(
      std::count(fake.log.begin(), fake.log.end(),
                 progress("Error occurred while capturing data between " + std::to_string(kStart) +
                          " & " + std::to_string(kStart + 3600) + " ")),
      1);
  EXPECT_TRUE(corvane::fake::log_lines(16).empty());
  EXPECT_EQ(last_gather_time(), std::to_string(kNow));
}

TEST_F(History, RollbackThatFailsIsLoggedAndTheNextSliceGoesOn) {
  cover(*world, kStart + 7200, kNow);
  answer_with_jobs_one_and_two(fake);
  // A commit that this refuses is rolled back by SQLite itself, as on a full disk.
  int commits = 0;
  sqlite3_commit_hook(
      db, [](void* made) { return ++*static_cast<int*>(made) == 1 ? 1 : 0; }, &commits);
  service().do_historical_gather(gather());
  sqlite3_commit_hook(db, nullptr, nullptr);
  EXPECT_EQ(query_column(db, "SELECT JOB_ID FROM HIST_DATA"), std::vector<std::string>{"2"});
  EXPECT_EQ(corvane::fake::log_lines(16),
            (std::vector<LogLine>{{16, kProgram, "ROLLBACK TRANSACTION execution failed."}}));
  EXPECT_EQ(last_gather_time(), std::to_string(kNow));
}

TEST_F(History, SliceThatCannotBeginItsTransactionGathersNothing) {
  fake.host_name = "other.example.com";  // no archives, whose transactions would come first
  service().m_db->begin_transaction();
  service().do_historical_gather(gather());
  EXPECT_EQ(fake.requests.size(), 2183U);
  EXPECT_EQ(std::count_if(fake.log.begin(), fake.log.end(),
                          [](const LogLine& line) {
                            return line.text.starts_with("Error occurred while capturing data");
                          }),
            1);
}

TEST_F(History, SliceThatBreaksOffKeepsTheRowsBeforeTheBreak) {
  cover(*world, kStart + 3600, kNow);
  fake.handler = [](const HttpRequest&) {
    return HttpAnswer{.result = 0, .status = 200, .body = R"({"data": [
        {"id": "a", "attributes": {"policyType": "X", "jobId": 1}},
        {"id": "b", "attributes": {"policyType": "X", "jobId": 2, "backupTime": null}},
        {"id": "c", "attributes": {"policyType": "X", "jobId": 3}}]})"};
  };
  service().do_historical_gather(gather());
  EXPECT_EQ(query_column(db, "SELECT JOB_ID FROM HIST_DATA"), std::vector<std::string>{"1"});
  EXPECT_EQ(corvane::fake::log_lines(16),
            (std::vector<LogLine>{{16, kProgram,
                                   "Could not capture data between " + std::to_string(kStart) +
                                       " & " + std::to_string(kStart + 3600) + " "}}));
}

TEST_F(History, ServerThatIsDownSkipsEverySliceAndStillStoresTheTime) {
  cover(*world, kStart + 7200, kNow);
  fake.handler = nullptr;
  service().do_historical_gather(gather());
  EXPECT_EQ(fake.requests.size(), 2U);
  EXPECT_EQ(last_gather_time(), std::to_string(kNow));
}

// --- start_historical_gather ---

TEST_F(History, IsNotGatheredAgainWhenATimeIsStored) {
  service().store_last_gather_time(5);
  service().start_historical_gather(gather());
  EXPECT_EQ(fake.log, (std::vector<LogLine>{progress("Historical data captured earlier.")}));
  EXPECT_EQ(last_gather_time(), "5");
}

TEST_F(History, LiveOnlyModeStoresTheTimeAndSleepsAWholeIntervalAtOnce) {
  service().m_gather_mode = "LIVE_ONLY";
  service().m_data_fetch_interval_in_mins = 20;
  service().start_historical_gather(gather());
  EXPECT_EQ(last_gather_time(), std::to_string(kNow));
  EXPECT_EQ(fake.sleeps, std::vector<unsigned>{1200});
  EXPECT_TRUE(fake.requests.empty());
  EXPECT_TRUE(fake.log.empty());
}

// --- Stop requests: once made they stay, hence a process for each ---

using HistoryStop = PlatformFake;

TEST_F(HistoryStop, BetweenSlicesThrowsAndStoresNoTimeButKeepsTheSlices) {
  EXPECT_EQ(run_in_child([] {
              ServiceWorld world;
              world.open();
              corvane::fake::state().handler = [](const HttpRequest&) {
                if (corvane::fake::state().requests.size() == 2) SetShutDownInitiated();
                return images_page(R"("jobId": )" +
                                   std::to_string(corvane::fake::state().requests.size()));
              };
              try {
                world.service.do_historical_gather(*world.gather);
                ADD_FAILURE() << "nothing thrown";
              } catch (const ServiceStopException& stop) {
                EXPECT_STREQ(stop.what(), kHistory);
              }
              EXPECT_EQ(corvane::fake::log_lines().back(),
                        (LogLine{4, kHistory, "Service has been requested to stop"}));
              EXPECT_EQ(world.rows("HIST_DATA"), "2");
              EXPECT_EQ(world.rows("LAST_BACKUP_DATA_CAPTURE"), "0");
            }),
            kChildSucceeded);
}

TEST_F(HistoryStop, BeforeTheFirstRangeThrowsEvenWhenItHasNoSlices) {
  EXPECT_EQ(run_in_child([] {
              ServiceWorld world;
              world.open();
              cover(world, kStart, kNow);
              // The stop comes when the one archive is committed.
              write_file(world.scratch("var/global/incremental/a/qpimagelist.out"), "{}\n");
              sqlite3_commit_hook(
                  world.handle(), [](void*) { return SetShutDownInitiated(); }, nullptr);
              EXPECT_THROW(world.service.do_historical_gather(*world.gather), ServiceStopException);
              EXPECT_EQ(world.rows("HIST_DATA"), "1");
              EXPECT_EQ(world.rows("LAST_BACKUP_DATA_CAPTURE"), "0");
            }),
            kChildSucceeded);
}

}  // namespace
}  // namespace corvane::test
