// One live gather: its window, the order of its steps, what it leaves behind.
#include <limits>

#include "tests/unit/management/service_world.h"

namespace corvane::test {
namespace {

using corvane::fake::HttpAnswer;
using corvane::fake::HttpRequest;

class LiveGather : public ServiceTest {
 protected:
  void last_gather(int time) {
    query(db, "INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (" + std::to_string(time) + ")");
  }

  void queue(int start_time) {
    query(db, "INSERT OR REPLACE INTO QUEUED_TO_CAPTURE_DATA VALUES (1, " +
                  std::to_string(start_time) + ")");
  }

  // The second at which the gather begins; "" when nothing is gathered.
  std::string gathered_from() {
    fake.log.clear();
    service().live_gather(gather());
    EXPECT_EQ(last_gather_time(), std::to_string(fake.now));
    EXPECT_EQ(world->rows("QUEUED_TO_CAPTURE_DATA"), "0");
    const std::string begin = "Capturing data between ";
    for (const LogLine& line : log_of(kProgram)) {
      if (!line.text.starts_with(begin)) continue;
      const std::size_t separator = line.text.find(" & ");
      EXPECT_EQ(line.text.substr(separator), " & " + std::to_string(fake.now) + " ");
      return line.text.substr(begin.size(), separator - begin.size());
    }
    return "";
  }

  std::string last_gather_time() {
    return query_one(db, "SELECT LAST_BACKUP_TIME FROM LAST_BACKUP_DATA_CAPTURE");
  }
};

// --- The window ---

TEST_F(LiveGather, BeginsOneSecondAfterTheLastGather) {
  last_gather(1000);
  EXPECT_EQ(gathered_from(), "1001");
}

TEST_F(LiveGather, BeginsAtTheEarliestQueuedJobWhenThatStartedBefore) {
  last_gather(1000);
  queue(900);
  EXPECT_EQ(gathered_from(), "900");
}

TEST_F(LiveGather, BeginsAfterTheLastGatherWhenTheQueuedJobStartedThenOrLater) {
  last_gather(1000);
  queue(1000);
  EXPECT_EQ(gathered_from(), "1001");
  query(db, "DELETE FROM LAST_BACKUP_DATA_CAPTURE");
  last_gather(1000);
  queue(2000);
  EXPECT_EQ(gathered_from(), "1001");
}

TEST_F(LiveGather, WithoutALastGatherGathersNothingButStoresTheTime) {
  EXPECT_EQ(gathered_from(), "");
}

TEST_F(LiveGather, WithoutALastGatherEmptiesTheQueueAllTheSame) {
  queue(900);
  EXPECT_EQ(gathered_from(), "");
}

TEST_F(LiveGather, QueuedJobWithoutStartTimeLeadsBackBeforeTheEpoch) {
  last_gather(1000);
  queue(-1);
  EXPECT_EQ(gathered_from(), "-1");
  EXPECT_NE(fake.requests.at(0).path.find("ge%201969-12-31T23:59:59.000Z"), std::string::npos);
}

TEST_F(LiveGather, QueuedJobOfSecondZeroCountsAsNone) {
  last_gather(1000);
  queue(0);
  EXPECT_EQ(gathered_from(), "1001");
}

TEST_F(LiveGather, QueuedJobOfSecondOneLeavesNothingToGather) {
  last_gather(1000);
  queue(1);
  EXPECT_EQ(gathered_from(), "");
}

TEST_F(LiveGather, EarliestPossibleQueuedJobWrapsRound) {
  last_gather(1000);
  queue(std::numeric_limits<int>::min());
  EXPECT_EQ(gathered_from(), "-2147483648");
}

TEST_F(LiveGather, LastGatherOfMinusOneLeadsToSecondZero) {
  last_gather(-1);
  EXPECT_EQ(gathered_from(), "0");
}

TEST_F(LiveGather, LastGatherASecondAgoGathersOneSecond) {
  last_gather(kNow - 1);
  EXPECT_EQ(gathered_from(), "1700000000");
}

TEST_F(LiveGather, LastGatherOfNowOrLaterGathersNothingAndStoresNow) {
  last_gather(kNow);
  EXPECT_EQ(gathered_from(), "");
  query(db, "UPDATE LAST_BACKUP_DATA_CAPTURE SET LAST_BACKUP_TIME = 2000000000");
  EXPECT_EQ(gathered_from(), "");
}

// --- The steps ---

TEST_F(LiveGather, StepsComeInTheirOrderWithoutATransaction) {
  last_gather(1000);
  queue(900);
  fake.handler = [](const HttpRequest& request) {
    HttpAnswer answer{.result = 0, .status = 200, .body = "{}"};
    if (request.path.starts_with("corvane/admin/jobs")) {
      answer.body = R"({"data": [{"attributes": {"policyType": "X", "jobId": 9,
          "state": "ACTIVE", "startTime": "1970-01-01T00:15:00.000Z"}}]})";
    }
    if (request.path == "corvane/wui/anomalies") {
      answer.body = R"({"data": [{"type": "anomalyFeedback", "id": "A1"}]})";
    }
    return answer;
  };
  SqlRecorder sql(db);
  service().live_gather(gather());
  EXPECT_EQ(sql.expanded,
            (std::vector<std::string>{
                "SELECT LAST_BACKUP_TIME FROM LAST_BACKUP_DATA_CAPTURE;",
                "SELECT COUNT(*) FROM QUEUED_TO_CAPTURE_DATA;",
                "SELECT MIN(START_TIME) FROM QUEUED_TO_CAPTURE_DATA;",
                "DELETE FROM QUEUED_TO_CAPTURE_DATA",
                "INSERT OR REPLACE INTO QUEUED_TO_CAPTURE_DATA  VALUES ( 9, 900 );",
                "DELETE FROM LAST_BACKUP_DATA_CAPTURE",
                "INSERT OR REPLACE INTO LAST_BACKUP_DATA_CAPTURE VALUES(1700000000)",
                "DELETE FROM ANOMALY_DATA WHERE DETECTION_TIME < 1668896000 ;",
                "DELETE FROM ANOMALY_DATA_FEEDBACK WHERE CAPTURE_TIME < 1668896000 ;",
                "DELETE FROM HIST_DATA WHERE BACKUP_TIME < 1668896000 AND USER_IDENTIFIED_CLUSTER "
                "= -1;",
                "DELETE FROM DATA_TO_PROCESS WHERE BACKUP_TIME < 1668896000 ;",
                "INSERT OR REPLACE INTO ANOMALY_DATA_FEEDBACK VALUES ( 'A1', 0, 1700000000 );"}));
  ASSERT_EQ(fake.requests.size(), 3U);
  EXPECT_TRUE(fake.requests[0].path.starts_with("corvane/catalog/images?"));
  EXPECT_TRUE(fake.requests[1].path.starts_with("corvane/admin/jobs?"));
  EXPECT_EQ(fake.requests[2].path, "corvane/wui/anomalies");
}

TEST_F(LiveGather, LogsTheTimeTakenThenThePurge) {
  last_gather(1000);
  fake.handler = [this](const HttpRequest&) {
    fake.now += 30;
    return HttpAnswer{.result = 0, .status = 200, .body = "{}"};
  };
  service().live_gather(gather());
  const auto log = log_of(kProgram);
  ASSERT_GE(log.size(), 2U);
  EXPECT_EQ(log[log.size() - 2], progress("Total time taken for live gather 60."));
  EXPECT_EQ(log[log.size() - 1], progress("Cleaning records before 1668896060"));
  EXPECT_EQ(last_gather_time(), std::to_string(kNow));  // the time of the beginning
}

TEST_F(LiveGather, RunningJobIsQueuedAndSeenAgainByTheNextGather) {
  std::string state = "ACTIVE";
  fake.handler = [&](const HttpRequest& request) {
    HttpAnswer answer{.result = 0, .status = 200, .body = "{}"};
    if (request.path.starts_with("corvane/admin/jobs")) {
      answer.body = R"({"data": [{"attributes": {"policyType": "X", "jobId": 9, "state": ")" +
                    state + R"(", "status": 0, "kilobytesTransferred": 5,
                    "backupTime": "2023-11-14T22:00:00.000Z",
                    "startTime": "2023-11-14T22:00:00.000Z",
                    "endTime": "2023-11-14T22:10:00.000Z"}}]})";
    }
    return answer;
  };
  last_gather(kNow - 900);
  service().live_gather(gather());
  EXPECT_EQ(query(db, "SELECT * FROM QUEUED_TO_CAPTURE_DATA"),
            (std::vector<SqlRow>{{"9", "1699999200"}}));
  state = "DONE";
  fake.now += 900;
  EXPECT_EQ(gathered_from(), "1699999200");
  EXPECT_EQ(query_column(db, "SELECT JOB_ID FROM HIST_DATA"), std::vector<std::string>{"9"});
}

TEST_F(LiveGather, GatherThatFailsStillStoresItsTimeAndIsFollowedByPurgeAndFeedback) {
  last_gather(1000);
  queue(900);
  fake.handler = nullptr;
  EXPECT_EQ(gathered_from(), "900");
  EXPECT_EQ(
      log_of(kProgram),
      (std::vector<LogLine>{
          progress("Capturing data between 900 & 1700000000 "),
          progress("Executing API with path:  " + fake.requests.at(0).path + " "),
          progress("API return value: 7 "),
          {16, kProgram, "JSON parsing failed for jobs data "},
          {16, kProgram, "Could not capture data between 900 & 1700000000 "},
          progress("Total time taken for live gather 0."),
          progress("Cleaning records before 1668896000"),
          {16, kProgram, "Failed to get user feedback response from API. API return code - 7"}}));
}

TEST_F(LiveGather, ErrorsOfTheDatabaseAreLoggedAndDoNotEndIt) {
  query(db, "DROP TABLE LAST_BACKUP_DATA_CAPTURE");
  query(db, "DROP TABLE QUEUED_TO_CAPTURE_DATA");
  query(db, "DROP TABLE ANOMALY_DATA");
  EXPECT_NO_THROW(service().live_gather(gather()));
  EXPECT_EQ(corvane::fake::log_lines(16).size(), 4U);
  EXPECT_EQ(fake.requests.back().path, "corvane/wui/anomalies");
}

}  // namespace
}  // namespace corvane::test
