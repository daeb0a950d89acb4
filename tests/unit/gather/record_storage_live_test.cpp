// Which live records are stored, queued or dropped.
#include "tests/unit/gather/gather_world.h"

namespace corvane::test {
namespace {

using Record = DataGather::Record;

const std::string kQueueInsert = "INSERT OR REPLACE INTO QUEUED_TO_CAPTURE_DATA  VALUES ( ?, ? );";

class LiveStorage : public GatherTest {
 protected:
  void SetUp() override {
    GatherTest::SetUp();
    gather.set_detection_state(0);
  }

  void store(const std::string& key, const std::string& value) {
    job[key] = value;
    gather.store_to_database(job, 1);
  }

  void store_without(const std::string& key) {
    job.erase(key);
    gather.store_to_database(job, 1);
  }

  void expect_stored() { EXPECT_EQ(world.rows("DATA_TO_PROCESS"), "1"); }

  // Neither row nor queue entry, and this in the log.
  void expect_dropped(const std::vector<LogLine>& log) {
    EXPECT_EQ(world.rows("DATA_TO_PROCESS"), "0");
    EXPECT_EQ(world.rows("HIST_DATA"), "0");
    EXPECT_EQ(world.rows("QUEUED_TO_CAPTURE_DATA"), "0");
    EXPECT_EQ(fake.log, log);
  }

  // A job that has ended well.
  Record job{{"backupId", "web01_1"},
             {"backupTime", "2023-05-01T10:20:30.000Z"},
             {"destinationStorageUnitName", "disk"},
             {"endTime", "2023-05-01T10:21:30.000Z"},
             {"jobId", "7"},
             {"kilobytesTransferred", "100"},
             {"numFiles", "10"},
             {"scheduleName", "weekly"},
             {"startTime", "2023-05-01T10:20:30.000Z"},
             {"state", "DONE"},
             {"status", "0"}};
};

const std::vector<LogLine> kSilently{};
const std::vector<LogLine> kAsFailed{{2, kProgram, "JobId 7 may be suspended or failed"}};
const std::vector<LogLine> kForItsTimes{
    {2, kProgram, "startTime or endTime may not correct for 7"}};

// --- Where a good job goes ---

TEST_F(LiveStorage, GoodJobWaitsForDetectionWhenDetectionIsOn) {
  SqlRecorder sql(db);
  gather.store_to_database(job, 1);
  EXPECT_EQ(sql.texts,
            std::vector<std::string>{"INSERT OR REPLACE INTO DATA_TO_PROCESS  VALUES ( ?, ?, ?, ?, "
                                     "?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ? );"});
  EXPECT_EQ(query(db, "SELECT UNIQUE_KEY, MODE, PROCESSED_STATUS, TOTAL_TIME FROM DATA_TO_PROCESS"),
            (std::vector<SqlRow>{{"data_7_web01_1", "1", "0", "60"}}));
  EXPECT_EQ(world.rows("HIST_DATA"), "0");
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(LiveStorage, GoodJobIsHistoryWhenDetectionIsOff) {
  gather.set_detection_state(1);
  gather.store_to_database(job, 1);
  EXPECT_EQ(
      query(db, "SELECT UNIQUE_KEY, MODE, USER_IDENTIFIED_CLUSTER, TOTAL_TIME FROM HIST_DATA"),
      (std::vector<SqlRow>{{"data_7_web01_1", "1", "-1", "60"}}));
  EXPECT_EQ(world.rows("DATA_TO_PROCESS"), "0");
}

TEST_F(LiveStorage, DetectionIsTakenAsOffUntilTheStateIsSet) {
  DataGather fresh(&world.db(), world.location, kMaster);
  fresh.store_to_database(job, 1);
  EXPECT_EQ(world.rows("HIST_DATA"), "1");
}

TEST_F(LiveStorage, SameJobStoredAgainWaitsForDetectionAgain) {
  gather.store_to_database(job, 1);
  query(db, "UPDATE DATA_TO_PROCESS SET PROCESSED_STATUS = 1");
  gather.store_to_database(job, 1);
  EXPECT_EQ(query(db, "SELECT JOB_ID, PROCESSED_STATUS FROM DATA_TO_PROCESS"),
            (std::vector<SqlRow>{{"7", "0"}}));
}

// --- Running jobs ---

TEST_F(LiveStorage, ActiveJobIsQueuedWithItsStartTimeAndNothingElse) {
  SqlRecorder sql(db);
  store("state", "ACTIVE");
  EXPECT_EQ(sql.texts, std::vector<std::string>{kQueueInsert});
  EXPECT_EQ(query(db, "SELECT * FROM QUEUED_TO_CAPTURE_DATA"),
            (std::vector<SqlRow>{{"7", "1682936430"}}));
  EXPECT_EQ(world.rows("DATA_TO_PROCESS"), "0");
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(LiveStorage, JobWithoutStateOrWithAnyOtherStateIsQueued) {
  store_without("state");
  store("state", "done");
  EXPECT_EQ(world.rows("QUEUED_TO_CAPTURE_DATA"), "1");  // of one job there is one entry
  EXPECT_EQ(world.rows("DATA_TO_PROCESS"), "0");
}

TEST_F(LiveStorage, RunningJobOfTheServersFormIsQueuedAlthoughItsEndIsInThePast) {
  job["endTime"] = "1970-01-01T00:00:00.000Z";
  job.erase("backupTime");
  store("state", "ACTIVE");
  EXPECT_EQ(world.rows("QUEUED_TO_CAPTURE_DATA"), "1");
}

TEST_F(LiveStorage, ActiveJobWithoutStartTimeOrJobIdIsQueuedWithMinusOne) {
  job.erase("startTime");
  store("state", "ACTIVE");
  store_without("jobId");
  EXPECT_EQ(query(db, "SELECT * FROM QUEUED_TO_CAPTURE_DATA ORDER BY JOB_ID"),
            (std::vector<SqlRow>{{"-1", "-1"}, {"7", "-1"}}));
}

TEST_F(LiveStorage, ActiveJobIsQueuedBeforeAnyFilterIsAsked) {
  job["destinationStorageUnitName"] = "";
  job["scheduleName"] = "-";
  store("state", "ACTIVE");
  EXPECT_EQ(world.rows("QUEUED_TO_CAPTURE_DATA"), "1");
}

TEST_F(LiveStorage, QueueErrorIsLoggedWithItsOwnTextAndNotThrown) {
  query(db, "DROP TABLE QUEUED_TO_CAPTURE_DATA");
  EXPECT_NO_THROW(store("state", "ACTIVE"));
  EXPECT_EQ(fake.log, (std::vector<LogLine>{
                          {16, kProgram,
                           "Error inserting data in sqlite prepare statement failed for query - " +
                               kQueueInsert + " "}}));
}

TEST_F(LiveStorage, QueueKeepsTheLatestStartTimeOfAJob) {
  gather.store_to_queue_db(5, 100);
  gather.store_to_queue_db(5, 200);
  EXPECT_EQ(query(db, "SELECT * FROM QUEUED_TO_CAPTURE_DATA"), (std::vector<SqlRow>{{"5", "200"}}));
}

// --- Filters that drop a job without a word ---

TEST_F(LiveStorage, JobWithoutBackupTimeIsDroppedSilently) {
  store_without("backupTime");
  expect_dropped(kSilently);
}

TEST_F(LiveStorage, JobWithoutBackupTimeButWithAStatusIsSaidToHaveFailed) {
  job.erase("backupTime");
  store("status", "1");
  expect_dropped(kAsFailed);
}

TEST_F(LiveStorage, JobWithAnEmptyDestinationIsDroppedSilently) {
  store("destinationStorageUnitName", "");
  expect_dropped(kSilently);
}

TEST_F(LiveStorage, JobWithABlankAsDestinationIsDroppedSilently) {
  store("destinationStorageUnitName", " ");
  expect_dropped(kSilently);
}

TEST_F(LiveStorage, JobWithTwoBlanksAsDestinationOrWithoutOneIsStored) {
  store("destinationStorageUnitName", "  ");
  expect_stored();
  store_without("destinationStorageUnitName");
  EXPECT_EQ(query_one(db, "SELECT DESTINATION_STORAGE_NAME FROM DATA_TO_PROCESS"), "NA");
}

TEST_F(LiveStorage, JobThatMovedNoDataAndHasNoFilesIsDroppedSilently) {
  job["kilobytesTransferred"] = "0";
  store("numFiles", "0");
  expect_dropped(kSilently);
}

TEST_F(LiveStorage, JobThatMovedNoDataButHasFilesIsStored) {
  store("kilobytesTransferred", "0");
  expect_stored();
}

TEST_F(LiveStorage, JobWithoutFilesThatMovedDataIsStored) {
  store("numFiles", "0");
  expect_stored();
}

TEST_F(LiveStorage, JobWhoseFiguresAreMissingIsStored) {
  job.erase("numFiles");
  store_without("kilobytesTransferred");
  expect_stored();
}

TEST_F(LiveStorage, JobOfTheScheduleDashIsDroppedSilently) {
  store("scheduleName", "-");
  expect_dropped(kSilently);
}

TEST_F(LiveStorage, JobOfAScheduleThatBeginsWithADashOrOfNoneIsStored) {
  store("scheduleName", "--");
  expect_stored();
  store_without("scheduleName");
  expect_stored();
}

// --- Failed and suspended jobs, jobs without times ---

TEST_F(LiveStorage, FailedJobThatPassesTheFiltersIsLogged) {
  store("status", "150");
  expect_dropped(kAsFailed);
}

TEST_F(LiveStorage, FailedJobThatAFilterDropsIsNotLogged) {
  job["scheduleName"] = "-";
  store("status", "150");
  expect_dropped(kSilently);
}

TEST_F(LiveStorage, JobWithoutStatusCountsAsFailed) {
  store_without("status");
  expect_dropped(kAsFailed);
}

TEST_F(LiveStorage, SuspendedJobIsLoggedAndNotQueued) {
  store("state", "SUSPENDED");
  expect_dropped(kAsFailed);
}

TEST_F(LiveStorage, JobThatEndedAtTheEpochIsLogged) {
  store("endTime", "1970-01-01T00:00:00.000Z");
  expect_dropped(kForItsTimes);
}

TEST_F(LiveStorage, JobWithoutEndTimeIsLogged) {
  store_without("endTime");
  expect_dropped(kForItsTimes);
}

TEST_F(LiveStorage, JobWithoutStartTimeIsLogged) {
  store_without("startTime");
  expect_dropped(kForItsTimes);
}

TEST_F(LiveStorage, FailedJobWithoutTimesIsLoggedAsFailedOnly) {
  job.erase("endTime");
  store("status", "1");
  expect_dropped(kAsFailed);
}

TEST_F(LiveStorage, JobThatStartedAtTheEpochOrEndedBeforeItStartedIsStored) {
  store("startTime", "1970-01-01T00:00:00.000Z");
  expect_stored();
  store("startTime", "2023-05-01T10:21:40.000Z");
  EXPECT_EQ(query_one(db, "SELECT TOTAL_TIME FROM DATA_TO_PROCESS"), "-10");
}

TEST_F(LiveStorage, JobLongerThan31BitsOfSecondsWrapsRound) {
  job["startTime"] = "1901-12-13T20:45:52.000Z";
  store("endTime", "2038-01-19T03:14:07.000Z");
  EXPECT_EQ(query_one(db, "SELECT TOTAL_TIME FROM DATA_TO_PROCESS"), "-1");
}

TEST_F(LiveStorage, StorageErrorIsLoggedWithTheWholeStatement) {
  query(db, "DROP TABLE DATA_TO_PROCESS");
  EXPECT_NO_THROW(gather.store_to_database(job, 1));
  EXPECT_EQ(fake.log, (std::vector<LogLine>{
                          {16, kProgram,
                           "Error inserting data: sqlite prepare statement failed for query - "
                           "INSERT OR REPLACE INTO DATA_TO_PROCESS  VALUES ( ?, ?, ?, ?, ?, ?, ?, "
                           "?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ? ); "}}));
}

}  // namespace
}  // namespace corvane::test
