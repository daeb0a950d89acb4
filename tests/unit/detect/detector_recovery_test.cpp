// The detection after a stop, a restart, a failure, or a table that somebody has emptied.
#include <gtest/gtest.h>

#include "companions/detect/detector.h"
#include "sqlite/sqlite_exception.h"
#include "tests/unit/detect/detector_world.h"

namespace corvane::detect {
namespace {

using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;
using DetectorRecovery = DetectorTest;

TEST_F(DetectorRecovery, AFailedWriteLeavesTheRowWaiting) {
  gather(bad_);
  world_.run(
      "CREATE TRIGGER refuse BEFORE INSERT ON ANOMALY_DATA BEGIN "
      "SELECT RAISE(ABORT, 'disk full'); END");
  {
    Detector detector = make();
    EXPECT_THROW(detector.pass(), sqlite_exception);
  }
  EXPECT_EQ(status(bad_), "0");
  world_.run("DROP TRIGGER refuse");
  make().pass();
  EXPECT_EQ(status(bad_), "2");
  EXPECT_EQ(test::count(world_.db(), "ANOMALY_DATA"), "1");
}

TEST_F(DetectorRecovery, AnEmptiedTableIsReadFromItsBegin) {
  gather(good_);
  Detector detector = make();
  detector.pass();
  world_.run("DELETE FROM HIST_DATA");
  world_.run("DELETE FROM DATA_TO_PROCESS");
  const Backup next = daily(41, 10, 10);
  gather(next);
  detector.pass();
  EXPECT_EQ(status(next), "1");
  EXPECT_EQ(detector.model().streams(), 1U);
  EXPECT_EQ(fake::log_lines(2).back().text, next.stream.text() + ": learning 0 of 30");
}

TEST_F(DetectorRecovery, AStopBetweenRowsLosesNothing) {
  for (int day = 40; day < 300; ++day) gather(daily(day));
  int asked = 0;
  Detector detector(world_.path(), Settings{}, [&] { return ++asked > 3; });
  detector.pass();
  const std::string judged =
      world_.one("SELECT COUNT(*) FROM DATA_TO_PROCESS WHERE PROCESSED_STATUS = 1");
  EXPECT_EQ(test::count(world_.db(), "HIST_DATA"), std::to_string(40 + std::stoi(judged)));
  EXPECT_LT(std::stoi(judged), 260);
  make().pass();
  EXPECT_EQ(test::count(world_.db(), "HIST_DATA"), "300");
}

TEST_F(DetectorRecovery, AStopEndsTheFirstReadEarly) {
  constexpr int kRows = 3 * 4096;
  world_.run("BEGIN");
  for (int i = 0; i < kRows; ++i) {
    Backup backup = daily(40);
    backup.stream.client = "client" + std::to_string(i);
    backup.unique_key = backup.stream.client;
    world_.insert("HIST_DATA", backup, -1);
  }
  world_.run("COMMIT");
  bool stopped = true;
  Detector detector(world_.path(), Settings{}, [&] { return stopped; });
  gather(bad_);
  detector.pass();
  EXPECT_LT(detector.model().streams(), kRows / 2);
  EXPECT_EQ(status(bad_), "0");
  stopped = false;
  detector.pass();
  EXPECT_EQ(detector.model().streams(), kRows + 1U);
  EXPECT_EQ(status(bad_), "2");
}

TEST_F(DetectorRecovery, AfterAStopThereIsNewsUntilAWholePass) {
  bool stopped = false;
  Detector detector(world_.path(), Settings{}, [&] { return stopped; });
  for (const bool stops : {false, true, true, false}) {
    stopped = stops;
    detector.has_news();
    detector.pass();
    EXPECT_EQ(detector.has_news(), stops);
  }
}

TEST_F(DetectorRecovery, ADatabaseThatIsNotThereIsAnError) {
  EXPECT_THROW(Detector("/nonexistent/CV_Anomaly.db", Settings{}, [] { return false; }),
               sqlite_exception);
}

TEST_F(DetectorRecovery, CommitsAfter64Rows) {
  for (int i = 0; i < 100; ++i) {
    Backup backup = daily(40);
    backup.stream.client = "client" + std::to_string(i);
    backup.unique_key = backup.stream.client;
    backup.time += i;
    gather(backup);
  }
  int asked = 0;
  int most = 2;  // after reading, and before the first transaction
  Detector detector(world_.path(), Settings{}, [&] { return ++asked > most; });
  EXPECT_EQ(detector.pass().learning, 64U);
  EXPECT_EQ(world_.one("SELECT MAX(JOB_ID || '-' || BACKUP_TIME) FROM DATA_TO_PROCESS "
                       "WHERE PROCESSED_STATUS = 1"),
            "1040-" + std::to_string(daily(40).time + 63));
  EXPECT_EQ(fake::log_lines().size(), 64U);
  most = 1000;
  EXPECT_EQ(detector.pass().learning, 36U);
  EXPECT_EQ(fake::log_lines().size(), 100U);
  EXPECT_EQ(detector.pass().learning, 0U);
}

// INSERT OR REPLACE gives it another rowid. Its new self is judged by the next pass.
TEST_F(DetectorRecovery, ARowThatIsGatheredAgainWhileItIsJudgedIsLeftAlone) {
  for (const Backup& backup : {good_, bad_}) gather(backup);
  int asked = 0;
  Detector detector(world_.path(), Settings{}, [&] {
    if (++asked == 2) {
      for (const Backup& backup : {good_, bad_}) gather(backup);
    }
    return false;
  });
  PassCounts counts = detector.pass();
  EXPECT_EQ(counts.normal + counts.learning + counts.anomalous, 0U);
  EXPECT_EQ(status(good_) + status(bad_), "00");
  EXPECT_EQ(cluster(good_), "");
  EXPECT_EQ(test::count(world_.db(), "ANOMALY_DATA"), "0");
  counts = detector.pass();
  EXPECT_EQ(counts.normal, 1U);
  EXPECT_EQ(counts.anomalous, 1U);
  EXPECT_EQ(status(good_) + status(bad_), "12");
}

TEST_F(DetectorRecovery, HoldsAnomalousRowsAfterARestartButNoFalsePositives) {
  const Backup deleted = daily(42, 300, 3e5);
  for (const Backup& backup : {bad_, deleted}) gather(backup);
  Detector first = make();
  first.pass();
  feedback(bad_, 1);
  first.pass();
  Detector restarted = make();
  restarted.pass();
  for (const Detector* detector : {&first, &restarted}) {
    ASSERT_EQ(detector->model().streams(), 1U);
    const Stream& stream = *detector->model().all().front();
    ASSERT_EQ(stream.held.size(), 1U);
    EXPECT_EQ(stream.held[0].unique_key, deleted.unique_key);
    EXPECT_EQ(stream.by_people.size(), 1U);
    EXPECT_EQ(stream.history.size(), 40U);
    EXPECT_EQ(stream.last_cluster, 1);
  }
}

TEST_F(DetectorRecovery, FollowsEitherTableThatWasEmptied) {
  Detector detector = make();
  detector.pass();
  world_.run("DELETE FROM HIST_DATA");
  detector.pass();
  EXPECT_EQ(detector.model().streams(), 0U);
  gather(good_);
  gather(bad_);
  detector.pass();
  EXPECT_EQ(detector.model().streams(), 1U);
  feedback(bad_, 0);
  world_.run("DELETE FROM DATA_TO_PROCESS");
  world_.run("UPDATE HIST_DATA SET CLIENT = 'renamed'");
  detector.pass();
  EXPECT_EQ(detector.model().all().front()->key.client, "renamed") << "read anew";
}

TEST_F(DetectorRecovery, LogsNothingOfWhatItCouldNotStore) {
  gather(bad_);
  world_.run(
      "CREATE TRIGGER refuse BEFORE INSERT ON ANOMALY_DATA BEGIN "
      "SELECT RAISE(ABORT, 'disk full'); END");
  EXPECT_THROW(make().pass(), sqlite_exception);
  EXPECT_TRUE(fake::log_lines().empty());
}

}  // namespace
}  // namespace corvane::detect
