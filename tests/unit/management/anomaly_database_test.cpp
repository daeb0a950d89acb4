// Gather bookkeeping and purge.
#include <cstring>
#include <limits>

#include "tests/unit/management/service_world.h"

namespace corvane::test {
namespace {

constexpr int kDay = 86400;

class AnomalyDatabase : public ServiceTest {
 protected:
  void queue(int job_id, int start_time) {
    query(db, "INSERT INTO QUEUED_TO_CAPTURE_DATA VALUES (" + std::to_string(job_id) + ", " +
                  std::to_string(start_time) + ")");
  }
};

// --- The last gather time ---

TEST_F(AnomalyDatabase, LastGatherTimeIsReplacedByADeleteAndAnInsert) {
  SqlRecorder sql(db);
  service().store_last_gather_time(1000);
  service().store_last_gather_time(2000);
  EXPECT_EQ(sql.expanded, (std::vector<std::string>{
                              "DELETE FROM LAST_BACKUP_DATA_CAPTURE",
                              "INSERT OR REPLACE INTO LAST_BACKUP_DATA_CAPTURE VALUES(1000)",
                              "DELETE FROM LAST_BACKUP_DATA_CAPTURE",
                              "INSERT OR REPLACE INTO LAST_BACKUP_DATA_CAPTURE VALUES(2000)"}));
  EXPECT_EQ(sql.texts[1], "INSERT OR REPLACE INTO LAST_BACKUP_DATA_CAPTURE VALUES(?)");
  EXPECT_EQ(query(db, "SELECT * FROM LAST_BACKUP_DATA_CAPTURE"), (std::vector<SqlRow>{{"2000"}}));
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(AnomalyDatabase, EarlierTimeReplacesALaterOneToo) {
  service().store_last_gather_time(2000);
  service().store_last_gather_time(-5);
  EXPECT_EQ(service().get_last_gather_time(), -5);
}

TEST_F(AnomalyDatabase, StoreErrorIsLoggedWithItsTextAndNotPassedOn) {
  query(db, "DROP TABLE LAST_BACKUP_DATA_CAPTURE");
  EXPECT_NO_THROW(service().store_last_gather_time(1000));
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{
                {16, kProgram,
                 "Failed to insert last known data gather time to database  Query execution failed "
                 "for  DELETE FROM LAST_BACKUP_DATA_CAPTURE"}}));
}

TEST_F(AnomalyDatabase, InsertThatFailsLeavesNoTimeSoThatHistoryIsGatheredAgain) {
  service().store_last_gather_time(1000);
  query(db,
        "CREATE TRIGGER refuse BEFORE INSERT ON LAST_BACKUP_DATA_CAPTURE "
        "BEGIN SELECT RAISE(ABORT, 'no'); END");
  service().store_last_gather_time(2000);
  EXPECT_EQ(world->rows("LAST_BACKUP_DATA_CAPTURE"), "0");
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{
                {16, kProgram,
                 "Failed to insert last known data gather time to database  sqlite query execution "
                 "failed."}}));
  EXPECT_EQ(service().is_historical_gather_done(), 0);
}

TEST_F(AnomalyDatabase, LastGatherTimeIsReadBackAndIsZeroWhenNoneIsStored) {
  SqlRecorder sql(db);
  EXPECT_EQ(service().get_last_gather_time(), 0);
  EXPECT_EQ(sql.texts,
            std::vector<std::string>{"SELECT LAST_BACKUP_TIME FROM LAST_BACKUP_DATA_CAPTURE;"});
  service().store_last_gather_time(kNow);
  EXPECT_EQ(service().get_last_gather_time(), kNow);
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(AnomalyDatabase, ReadErrorIsLoggedAndGivesZero) {
  query(db, "DROP TABLE LAST_BACKUP_DATA_CAPTURE");
  EXPECT_EQ(service().get_last_gather_time(), 0);
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{
                {16, kProgram,
                 "Failed to get last known data gather time to database Query execution failed for "
                 " SELECT LAST_BACKUP_TIME FROM LAST_BACKUP_DATA_CAPTURE;"}}));
}

// --- The queue ---

TEST_F(AnomalyDatabase, EmptyQueueGivesZeroWithoutLookingForAMinimum) {
  SqlRecorder sql(db);
  EXPECT_EQ(service().get_queued_job_time(), 0);
  EXPECT_EQ(sql.texts, std::vector<std::string>{"SELECT COUNT(*) FROM QUEUED_TO_CAPTURE_DATA;"});
}

TEST_F(AnomalyDatabase, QueueGivesItsEarliestTimeAndIsEmptied) {
  queue(1, 500);
  queue(2, 300);
  SqlRecorder sql(db);
  EXPECT_EQ(service().get_queued_job_time(), 300);
  EXPECT_EQ(sql.texts,
            (std::vector<std::string>{"SELECT COUNT(*) FROM QUEUED_TO_CAPTURE_DATA;",
                                      "SELECT MIN(START_TIME) FROM QUEUED_TO_CAPTURE_DATA;",
                                      "DELETE FROM QUEUED_TO_CAPTURE_DATA"}));
  EXPECT_EQ(world->rows("QUEUED_TO_CAPTURE_DATA"), "0");
  EXPECT_EQ(service().get_queued_job_time(), 0);
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(AnomalyDatabase, QueueOfAJobWithoutStartTimeGivesMinusOne) {
  queue(1, 500);
  queue(2, -1);
  EXPECT_EQ(service().get_queued_job_time(), -1);
}

TEST_F(AnomalyDatabase, QueueThatCannotBeCountedIsLoggedAndGivesZero) {
  query(db, "DROP TABLE QUEUED_TO_CAPTURE_DATA");
  EXPECT_EQ(service().get_queued_job_time(), 0);
  EXPECT_EQ(fake.log, (std::vector<LogLine>{
                          {16, kProgram,
                           "Failed to query queued job details Query execution failed for  SELECT "
                           "COUNT(*) FROM QUEUED_TO_CAPTURE_DATA;"}}));
}

int deny_minimum(void*, int action, const char*, const char* name, const char*, const char*) {
  return action == SQLITE_FUNCTION && std::strcmp(name, "min") == 0 ? SQLITE_DENY : SQLITE_OK;
}

TEST_F(AnomalyDatabase, QueueWhoseMinimumFailsIsLoggedGivesZeroAndStays) {
  queue(1, 500);
  sqlite3_set_authorizer(db, deny_minimum, nullptr);
  EXPECT_EQ(service().get_queued_job_time(), 0);
  sqlite3_set_authorizer(db, nullptr, nullptr);
  EXPECT_EQ(fake.log, (std::vector<LogLine>{
                          {16, kProgram,
                           "Failed to query queued job details Query execution failed for  SELECT "
                           "MIN(START_TIME) FROM QUEUED_TO_CAPTURE_DATA;"}}));
  EXPECT_EQ(world->rows("QUEUED_TO_CAPTURE_DATA"), "1");
}

TEST_F(AnomalyDatabase, QueueThatCannotBeEmptiedIsLoggedAndGivesItsMinimum) {
  queue(1, 500);
  query(db,
        "CREATE TRIGGER keep BEFORE DELETE ON QUEUED_TO_CAPTURE_DATA "
        "BEGIN SELECT RAISE(ABORT, 'no'); END");
  EXPECT_EQ(service().get_queued_job_time(), 500);
  EXPECT_EQ(fake.log, (std::vector<LogLine>{
                          {16, kProgram,
                           "Failed to query queued job details Query execution failed for  DELETE "
                           "FROM QUEUED_TO_CAPTURE_DATA"}}));
}

// --- is_historical_gather_done ---

TEST_F(AnomalyDatabase, HistoryIsDoneWhenAGatherTimeIsStored) {
  SqlRecorder sql(db);
  EXPECT_EQ(service().is_historical_gather_done(), 0);
  EXPECT_EQ(sql.texts, std::vector<std::string>{"SELECT COUNT(*) FROM LAST_BACKUP_DATA_CAPTURE;"});
  EXPECT_TRUE(fake.log.empty());
  service().store_last_gather_time(0);
  EXPECT_NE(service().is_historical_gather_done(), 0);
  EXPECT_EQ(fake.log, (std::vector<LogLine>{progress("Historical data captured earlier.")}));
}

// --- Purge ---

class Purge : public ServiceTest {
 protected:
  // One row of that time in each table that has times; its key is the time.
  void add_rows(int time, int cluster = -1) {
    const std::string t = std::to_string(time);
    const std::string backup =
        "(1, " + t + ", '', '', '', '', '', '', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, ";
    query(db, "INSERT INTO ANOMALY_DATA VALUES (" + t + ", '', 0, '', '', " + t + ")");
    query(db, "INSERT INTO ANOMALY_DATA_FEEDBACK VALUES (" + t + ", 0, " + t + ")");
    query(db, "INSERT INTO HIST_DATA VALUES " + backup + std::to_string(cluster) + ", '', 0, '', " +
                  t + ")");
    query(db, "INSERT INTO DATA_TO_PROCESS VALUES " + backup + "0, '', 0, '', " + t + ")");
    query(db, "INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (" + t + ")");
    query(db, "INSERT INTO QUEUED_TO_CAPTURE_DATA VALUES (" + t + ", " + t + ")");
    query(db, "INSERT INTO DBSCAN_MODEL_PARAMS VALUES (" + t + ", '', '', 0, '', '', 0, " + t +
                  ", '', '')");
  }

  // The number of rows left in the four purged tables and in the three others.
  std::vector<std::string> left() {
    std::vector<std::string> counts;
    for (const char* table :
         {"ANOMALY_DATA", "ANOMALY_DATA_FEEDBACK", "HIST_DATA", "DATA_TO_PROCESS",
          "LAST_BACKUP_DATA_CAPTURE", "QUEUED_TO_CAPTURE_DATA", "DBSCAN_MODEL_PARAMS"}) {
      counts.push_back(world->rows(table));
    }
    return counts;
  }
};

TEST_F(Purge, RunsFourDeletesWithTheCutOffOf360Days) {
  SqlRecorder sql(db);
  service().purge_database();
  EXPECT_EQ(sql.texts,
            (std::vector<std::string>{
                "DELETE FROM ANOMALY_DATA WHERE DETECTION_TIME < ? ;",
                "DELETE FROM ANOMALY_DATA_FEEDBACK WHERE CAPTURE_TIME < ? ;",
                "DELETE FROM HIST_DATA WHERE BACKUP_TIME < ? AND USER_IDENTIFIED_CLUSTER = -1;",
                "DELETE FROM DATA_TO_PROCESS WHERE BACKUP_TIME < ? ;"}));
  EXPECT_EQ(sql.expanded[0], "DELETE FROM ANOMALY_DATA WHERE DETECTION_TIME < 1668896000 ;");
  EXPECT_EQ(fake.log, (std::vector<LogLine>{progress("Cleaning records before 1668896000")}));
}

TEST_F(Purge, TwelveMonthsAre360DaysNot365) {
  add_rows(kNow - 361 * kDay);
  add_rows(kNow - 360 * kDay - 1);
  add_rows(kNow - 360 * kDay);
  add_rows(kNow - 359 * kDay);
  service().purge_database();
  EXPECT_EQ(left(), (std::vector<std::string>{"2", "2", "2", "2", "4", "4", "4"}));
}

TEST_F(Purge, RowsThatAUserHasAssignedToAClusterStayForEver) {
  add_rows(1, 0);
  add_rows(2, 7);
  add_rows(3, -1);
  service().purge_database();
  EXPECT_EQ(left(), (std::vector<std::string>{"0", "0", "2", "0", "3", "3", "3"}));
}

TEST_F(Purge, IntervalOfZeroRemovesEverythingBeforeNow) {
  add_rows(kNow - 1);
  add_rows(kNow);
  service().m_purge_interval_in_months = 0;
  service().purge_database();
  EXPECT_EQ(left(), (std::vector<std::string>{"1", "1", "1", "1", "2", "2", "2"}));
  EXPECT_EQ(fake.log, (std::vector<LogLine>{progress("Cleaning records before 1700000000")}));
}

TEST_F(Purge, NegativeIntervalCutsOffInTheFutureAndWrapsRoundIn32Bits) {
  service().m_purge_interval_in_months = -1;
  service().purge_database();
  service().m_purge_interval_in_months = std::numeric_limits<int>::min();
  service().purge_database();
  service().m_purge_interval_in_months = -1000;
  service().purge_database();
  EXPECT_EQ(fake.log, (std::vector<LogLine>{progress("Cleaning records before 1702592000"),
                                            progress("Cleaning records before 1700000000"),
                                            progress("Cleaning records before -2967296")}));
}

TEST_F(Purge, ErrorStopsTheSequenceAndIsLoggedAndNotPassedOn) {
  add_rows(1);
  query(db, "DROP TABLE ANOMALY_DATA_FEEDBACK");
  EXPECT_NO_THROW(service().purge_database());
  EXPECT_EQ(fake.log, (std::vector<LogLine>{progress("Cleaning records before 1668896000"),
                                            {16, kProgram, "Failed to purge database."}}));
  EXPECT_EQ(world->rows("ANOMALY_DATA"), "0");
  EXPECT_EQ(world->rows("HIST_DATA"), "1");
  EXPECT_EQ(world->rows("DATA_TO_PROCESS"), "1");
}

}  // namespace
}  // namespace corvane::test
