// The detection's own database against what happens to the anomaly database: crashes between the
// two commits, lost and damaged files.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "companions/detect/verdict_database.h"
#include "sqlite/sqlite_exception.h"
#include "tests/unit/detect/detector_verdicts_world.h"

namespace corvane::detect {
namespace {

using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;

TEST_F(DetectorVerdicts, AreStoredWithFiguresAndIncident) {
  gather(good_);
  gather(bad_);
  pass();
  EXPECT_EQ(own(good_)->judged_as, JudgedAs::kAccepted);
  EXPECT_EQ(own(good_)->incident, "");
  EXPECT_EQ(own(good_)->backup.figures.files, good_.figures.files);
  EXPECT_EQ(own(bad_)->judged_as, JudgedAs::kAnomalous);
  EXPECT_EQ(own(bad_)->cluster, -1);
  EXPECT_EQ(own(bad_)->incident, incident_name(bad_.unique_key));
  EXPECT_EQ(own(bad_)->backup.stream, bad_.stream);
}

TEST_F(DetectorVerdicts, AreFoundAgainInTheAnomalyDatabase) {
  const Backup false_positive = daily(42, 300, 3e5);
  for (const Backup& backup : {good_, bad_, false_positive}) gather(backup);
  feedback(false_positive, 1);
  pass();
  pass();
  stop();
  std::filesystem::remove(world_.own_path());
  world_.gather_history(daily(5));
  EXPECT_EQ(all(pass()), 0U);
  EXPECT_EQ(own(good_)->judged_as, JudgedAs::kAccepted);
  EXPECT_EQ(own(daily(3))->judged_as, JudgedAs::kAccepted);
  EXPECT_FALSE(own(daily(5))) << "gathered as history";
  EXPECT_EQ(own(bad_)->judged_as, JudgedAs::kAnomalous);
  EXPECT_EQ(own(bad_)->cluster, -1);
  EXPECT_EQ(own(bad_)->incident, incident_name(bad_.unique_key));
  EXPECT_EQ(own(false_positive)->judged_as, JudgedAs::kAnomalous);
  EXPECT_EQ(own(false_positive)->cluster, 1);
}

// A row that waits again was reported nevertheless, and a gather may have written over it.
TEST_F(DetectorVerdicts, OfReportedRowsThatWaitAgainAreFoundToo) {
  gather(bad_);
  pass();
  stop();
  std::filesystem::remove(world_.own_path());
  gather(bad_);
  world_.gather_history(bad_);
  pass();
  EXPECT_EQ(status(bad_), "2");
  EXPECT_EQ(own(bad_)->judged_as, JudgedAs::kAnomalous);
  EXPECT_EQ(detector_->model().streams(), 1U) << "it was not learnt";
}

TEST_F(DetectorVerdicts, SurviveACrashAfterTheCommitOfTheAnomalyDatabase) {
  pass();
  stop();
  keep_own();
  gather(good_);
  gather(bad_);
  pass();
  feedback(bad_, 1);
  pass();
  stop();
  restore_own();
  ASSERT_FALSE(own(good_));
  EXPECT_EQ(all(pass()), 0U);
  EXPECT_EQ(own(good_)->judged_as, JudgedAs::kAccepted);
  EXPECT_EQ(own(bad_)->judged_as, JudgedAs::kAnomalous);
  EXPECT_EQ(own(bad_)->cluster, 1);
  EXPECT_EQ(stream().by_people.size(), 1U);
}

TEST_F(DetectorVerdicts, SurviveACrashThatUndoesTheCommitOfTheAnomalyDatabase) {
  for (const Backup& backup : {good_, bad_}) gather(backup);
  pass();
  stop();
  for (const Backup& backup : {good_, bad_}) undo_commit(backup);
  const PassCounts counts = pass();
  EXPECT_EQ(counts.normal, 0U) << "accepted again, without a verdict";
  EXPECT_EQ(counts.anomalous, 1U) << "judged again";
  EXPECT_EQ(status(good_) + status(bad_), "12");
  EXPECT_EQ(cluster(good_), "-1");
  EXPECT_EQ(test::count(world_.db(), "ANOMALY_DATA"), "1");
  EXPECT_EQ(incident_of_record(bad_), incident_name(bad_.unique_key));
  EXPECT_EQ(stream().history.size(), 41U);
  EXPECT_EQ(stream().held.size(), 1U);
}

// Crash between the commits of a feedback.
TEST_F(DetectorVerdicts, FollowTheAnomalyDatabaseInWhatIsAFalsePositive) {
  gather(bad_);
  pass();
  feedback(bad_, 1);
  pass();
  stop();
  change_own("UPDATE verdict SET CLUSTER = -1");
  pass();
  EXPECT_EQ(own(bad_)->cluster, 1);
  stop();
  change_own("UPDATE verdict SET CLUSTER = 7");
  pass();
  EXPECT_EQ(own(bad_)->cluster, 1);
  stop();
  world_.run("DELETE FROM HIST_DATA WHERE USER_IDENTIFIED_CLUSTER = 1");
  feedback(bad_, 0);
  pass();
  EXPECT_EQ(own(bad_)->cluster, -1);
  EXPECT_EQ(stream().held.size(), 1U);
}

TEST_F(DetectorVerdicts, ThatCannotBeStoredFailThePassAndAreFoundAgain) {
  pass();
  change_own(
      "CREATE TRIGGER refuse BEFORE INSERT ON verdict BEGIN SELECT RAISE(ABORT, 'disk full'); END");
  for (const Backup& backup : {good_, bad_}) gather(backup);
  EXPECT_THROW(pass(), sqlite_exception);
  EXPECT_EQ(status(good_) + status(bad_), "12");
  stop();
  EXPECT_THROW(pass(), sqlite_exception) << "they are still to be stored";
  change_own("DROP TRIGGER refuse");
  stop();
  fake.log.clear();
  EXPECT_EQ(all(pass()), 0U);
  EXPECT_EQ(own(good_)->judged_as, JudgedAs::kAccepted);
  EXPECT_EQ(own(bad_)->judged_as, JudgedAs::kAnomalous);
  EXPECT_TRUE(fake::log_lines().empty());
}

TEST_F(DetectorVerdicts, OfADamagedDatabaseAreFoundAgain) {
  for (const Backup& backup : {good_, bad_}) gather(backup);
  pass();
  stop();
  fake.log.clear();
  test::write_file(world_.own_path(), std::string(5000, 'x'));
  EXPECT_EQ(all(pass()), 0U);
  EXPECT_EQ(fake::log_lines(),
            (std::vector<fake::LogLine>{
                {16, "cvanomalydetect",
                 world_.own_path() + " is damaged. It was moved to " + world_.own_path() +
                     ".damaged and is made again from the anomaly database"}}));
  EXPECT_EQ(std::filesystem::file_size(world_.own_path() + ".damaged"), 5000U);
  EXPECT_EQ(own(good_)->judged_as, JudgedAs::kAccepted);
  EXPECT_EQ(own(bad_)->judged_as, JudgedAs::kAnomalous);
}

TEST_F(DetectorVerdicts, OfALaterVersionAreNotTouched) {
  pass();
  stop();
  change_own("PRAGMA user_version = 2");
  try {
    pass();
    FAIL() << "accepted";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(error.what(), world_.own_path() + " is version 2, newer than this program supports");
  }
}

// --- Rows that wait ---

TEST_F(DetectorVerdicts, ARowThatOnlyAHistoricalGatherKnowsIsJudged) {
  const Backup deleted = daily(42, 300, 3e5);
  for (const bool restarts : {false, true}) {
    for (const Backup& backup : {good_, bad_, deleted}) {
      undo_commit(backup);
      world_.gather_history(backup);
    }
    stop();
    std::filesystem::remove(world_.own_path());
    if (!restarts) pass();
    for (const Backup& backup : {good_, bad_, deleted}) gather(backup);
    const PassCounts counts = pass();
    EXPECT_EQ(counts.normal, 1U);
    EXPECT_EQ(counts.anomalous, 2U);
    EXPECT_EQ(status(good_) + status(bad_) + status(deleted), "122");
    EXPECT_EQ(
        world_.one("SELECT MODE FROM HIST_DATA WHERE UNIQUE_KEY = '" + good_.unique_key + "'"),
        "1");
    EXPECT_EQ(stream().history.size(), 41U);
    Connection database = open_for_reading(world_.path());
    const auto row = find_anomaly_row(database, anomaly_id(deleted.unique_key));
    EXPECT_EQ(read_anomaly(*row).finding.last_good.backup_id, good_.backup_id)
        << "not one of themselves";
    EXPECT_EQ(read_anomaly(*row).finding.observations, 41U);
  }
}

TEST_F(DetectorVerdicts, ARowThatTheServiceAcceptedIsMarked) {
  pass();
  world_.insert("HIST_DATA", bad_, -1);
  gather(bad_);
  EXPECT_EQ(all(pass()), 0U);
  EXPECT_EQ(status(bad_), "1");
  EXPECT_EQ(own(bad_)->judged_as, JudgedAs::kAccepted);
}

TEST_F(DetectorVerdicts, AnAcceptedRowIsAcceptedAgainWhateverItNowHolds) {
  gather(good_);
  pass();
  Backup changed = good_;
  changed.figures.files = 10;
  const std::string row = "HIST_DATA WHERE UNIQUE_KEY = '" + good_.unique_key + "'";
  for (const bool restarts : {false, true}) {
    for (const bool is_gathered : {false, true}) {
      world_.run("DELETE FROM " + row);
      if (is_gathered) world_.gather_history(good_);
      gather(changed);
      if (restarts) stop();
      EXPECT_EQ(all(pass()), 0U);
      EXPECT_EQ(status(good_), "1");
      EXPECT_EQ(world_.one("SELECT MODE || ' ' || USER_IDENTIFIED_CLUSTER FROM " + row), "1 -1");
      EXPECT_EQ(stream().history.size(), 41U);
      EXPECT_EQ(own(good_)->backup.figures.files, good_.figures.files);
    }
  }
}

TEST_F(DetectorVerdicts, AnAnomalousRowIsHeldWhateverItNowHolds) {
  gather(bad_);
  pass();
  const Backup changed = daily(41);
  for (const bool has_anomaly : {true, false}) {
    if (!has_anomaly) world_.run("DELETE FROM ANOMALY_DATA");
    for (const bool restarts : {false, true}) {
      gather(changed);
      world_.gather_history(changed);
      if (restarts) stop();
      EXPECT_EQ(all(pass()), 0U);
      EXPECT_EQ(status(bad_), "2");
      EXPECT_EQ(own(bad_)->judged_as, JudgedAs::kAnomalous);
      EXPECT_EQ(own(bad_)->backup.figures.transferred_kb, bad_.figures.transferred_kb);
      ASSERT_EQ(stream().held.size(), 1U);
      EXPECT_EQ(stream().held[0].observation.figures().transferred_kb, bad_.figures.transferred_kb);
      EXPECT_EQ(stream().history.size(), 40U);
      EXPECT_EQ(test::count(world_.db(), "ANOMALY_DATA"), has_anomaly ? "1" : "0");
    }
  }
}

// It waits in both tables: the healer had added it while the detection was disabled.
TEST_F(DetectorVerdicts, AnAnomalousRowIsNoHistoryByALiveRow) {
  gather(bad_);
  pass();
  world_.run("DELETE FROM ANOMALY_DATA");
  world_.insert("HIST_DATA", bad_, -1);
  for (const int files : {1000, 10}) {
    Backup again = daily(41, files);
    gather(again);
    EXPECT_EQ(pass().anomalous, files == 10 ? 1U : 0U);
    EXPECT_EQ(status(bad_), "2");
    EXPECT_EQ(stream().held.size(), 1U);
    EXPECT_EQ(stream().history.size(), 40U);
  }
}

// After a restart, too, when nothing is known of it from the pass that reported it.
TEST_F(DetectorVerdicts, AnAnomalousRowThatWaitsAgainIsHeld) {
  gather(bad_);
  pass();
  world_.run("UPDATE DATA_TO_PROCESS SET PROCESSED_STATUS = 0, NUM_FILES = 5");
  stop();
  EXPECT_EQ(all(pass()), 0U);
  EXPECT_EQ(status(bad_), "2");
  ASSERT_EQ(stream().held.size(), 1U);
  EXPECT_EQ(stream().held[0].observation.figures().files, bad_.figures.files);
}

TEST_F(DetectorVerdicts, OfAcceptedRowsAreNotFollowedByFeedback) {
  gather(good_);
  pass();
  world_.run("DELETE FROM HIST_DATA WHERE UNIQUE_KEY = '" + good_.unique_key + "'");
  feedback(good_, 1);
  pass();
  EXPECT_EQ(cluster(good_), "");
  EXPECT_EQ(own(good_)->cluster, -1);
}

TEST_F(DetectorVerdicts, AnAnomalousRowWithoutItsAnomalyMayStillBeAFalsePositive) {
  for (const bool is_gathered : {true, false}) {
    gather(bad_);
    pass();
    world_.run("DELETE FROM ANOMALY_DATA");
    if (!is_gathered) {
      world_.run("DELETE FROM DATA_TO_PROCESS");
      world_.insert("HIST_DATA", bad_, -1);
    }
    feedback(bad_, 1);
    for (int round = 0; round < 2; ++round) {
      EXPECT_EQ(all(pass()), 0U);
      EXPECT_EQ(own(bad_)->cluster, 1);
      EXPECT_EQ(stream().by_people.size(), 1U);
      EXPECT_EQ(stream().held.size(), 0U);
      EXPECT_EQ(stream().history.size(), 40U);
      stop();
    }
    feedback(bad_, 0);
    pass();
    EXPECT_EQ(own(bad_)->cluster, -1);
    EXPECT_EQ(stream().held.size(), 1U);
  }
}

// Whoever put the row there: it counts with the figures that it was judged by.
TEST_F(DetectorVerdicts, AFalsePositiveStaysOneWhoeverWroteItsRow) {
  gather(bad_);
  pass();
  feedback(bad_, 1);
  pass();
  stop();
  for (const char* sql : {"DELETE FROM HIST_DATA", "DELETE FROM DATA_TO_PROCESS"}) world_.run(sql);
  Backup again = bad_;
  again.figures.files = 5;
  world_.insert("HIST_DATA", again, -1);
  pass();
  EXPECT_EQ(cluster(bad_), "1");
  EXPECT_EQ(own(bad_)->cluster, 1);
  ASSERT_EQ(stream().by_people.size(), 1U);
  EXPECT_EQ(stream().by_people.front().figures().files, bad_.figures.files);
  stop();
  const std::size_t lines = fake::log_lines().size();
  pass();
  EXPECT_EQ(fake::log_lines().size(), lines) << "marked once";
  ASSERT_EQ(stream().by_people.size(), 1U);
  EXPECT_EQ(stream().by_people.front().figures().files, bad_.figures.files);
}

// A gather of the history does not know the whole stream.
TEST_F(DetectorVerdicts, AFalsePositiveOfTheHistoryIsOfTheStreamThatItWasJudgedIn) {
  gather(bad_);
  pass();
  for (const char* sql :
       {"DELETE FROM HIST_DATA WHERE BACKUP_TIME < 0", "DELETE FROM DATA_TO_PROCESS"}) {
    world_.run(sql);
  }
  world_.gather_history(bad_);
  world_.run("UPDATE HIST_DATA SET DESTINATION_STORAGE_NAME = 'NA' WHERE UNIQUE_KEY = '" +
             bad_.unique_key + "'");
  feedback(bad_, 1);
  for (int round = 0; round < 2; ++round) {
    pass();
    EXPECT_EQ(detector_->model().streams(), 1U);
    EXPECT_EQ(stream().by_people.size(), 1U);
    EXPECT_EQ(cluster(bad_), "1");
    stop();
  }
  pass();
  feedback(bad_, 0);
  for (int round = 0; round < 2; ++round) {
    pass();
    EXPECT_EQ(stream().by_people.size(), 0U);
    EXPECT_EQ(stream().held.size(), 1U);
    EXPECT_EQ(stream().history.size(), 40U);
    EXPECT_EQ(cluster(bad_), "-1") << "its only row stays";
    stop();
  }
}

TEST_F(DetectorVerdicts, WhatIsReportedAgainKeepsItsFirstFigures) {
  gather(bad_);
  pass();
  world_.run("DELETE FROM ANOMALY_DATA");
  Backup again = bad_;
  again.figures.files = 5;
  gather(again);
  EXPECT_EQ(pass().anomalous, 1U);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(own(bad_)->backup.figures.files, bad_.figures.files);
    ASSERT_EQ(stream().held.size(), 1U);
    EXPECT_EQ(stream().held[0].observation.figures().files, bad_.figures.files);
    stop();
    pass();
  }
}

// A program of the operator's may write rows with MODE 0.
TEST_F(DetectorVerdicts, AFalsePositiveOfAnyModeIsMarked) {
  world_.insert("HIST_DATA", bad_, 2, GatherMode::kHistorical);
  gather(bad_);
  EXPECT_EQ(all(pass()), 0U);
  EXPECT_EQ(status(bad_) + cluster(bad_), "12");
}

TEST_F(DetectorVerdicts, AnAnomalyIsHeldWithTheFiguresItWasJudgedBy) {
  gather(bad_);
  pass();
  world_.run("UPDATE DATA_TO_PROCESS SET NUM_FILES = 5");
  const auto files = [&] { return stream().held.at(0).observation.figures().files; };
  stop();
  pass();
  EXPECT_EQ(files(), bad_.figures.files);
  for (const int value : {1, 0}) {
    feedback(bad_, value);
    pass();
  }
  EXPECT_EQ(files(), bad_.figures.files);
}

// The service has gathered it live while the detection was disabled.
TEST_F(DetectorVerdicts, ALiveRowOverAReportedOneIsHeldToo) {
  gather(bad_);
  pass();
  world_.insert("HIST_DATA", bad_, -1);
  for (int round = 0; round < 2; ++round) {
    pass();
    EXPECT_EQ(stream().history.size(), 40U);
    EXPECT_EQ(stream().held.size(), 1U);
    EXPECT_EQ(own(bad_)->judged_as, JudgedAs::kAnomalous);
    stop();
  }
}

TEST_F(DetectorVerdicts, OfAnotherHistoryAreFoundFromItsBegin) {
  pass();
  stop();
  for (const char* sql : {"DELETE FROM HIST_DATA", "DELETE FROM DATA_TO_PROCESS"}) world_.run(sql);
  world_.insert("HIST_DATA", bad_, -1);
  world_.insert("HIST_DATA", good_, -1);
  pass();
  EXPECT_TRUE(own(bad_));
  EXPECT_TRUE(own(good_));
}

}  // namespace
}  // namespace corvane::detect
