// The detection's own database against what happens to the anomaly database: a historical gather
// that is repeated, crashes between the two commits, lost and damaged files.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "companions/detect/verdict_database.h"
#include "sqlite/sqlite_exception.h"
#include "tests/unit/detect/detector_world.h"

namespace corvane::detect {
namespace {

using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;

class DetectorVerdicts : public DetectorTest {
 protected:
  // A pass of the detector at hand, or of a new one.
  PassCounts pass() {
    if (detector_ == nullptr) {
      detector_ = std::make_unique<Detector>(world_.path(), Settings{}, [] { return false; });
    }
    return detector_->pass();
  }
  void stop() { detector_.reset(); }
  const Stream& stream() {
    for (const auto& one : detector_->model().all()) {
      if (one->key == good_.stream) return *one;
    }
    throw std::logic_error("no such stream");
  }
  std::optional<KnownVerdict> own(const Backup& backup) {
    return open_verdicts_for_reading(world_.own_path())->find(backup.unique_key);
  }
  void change_own(const std::string& sql) {
    Connection(world_.own_path(), Connection::Access::kWrite).execute(sql.c_str());
  }
  // Undoes the detection's last commits to its own database. Nobody has it open.
  void keep_own() { std::filesystem::copy_file(world_.own_path(), world_.own_path() + ".kept"); }
  void restore_own() { std::filesystem::rename(world_.own_path() + ".kept", world_.own_path()); }
  // Of the anomaly database: the row waits again, and nothing was written of it.
  void undo_commit(const Backup& backup) {
    const std::string key = "'" + backup.unique_key + "'";
    world_.run("UPDATE DATA_TO_PROCESS SET PROCESSED_STATUS = 0 WHERE UNIQUE_KEY = " + key);
    world_.run("DELETE FROM HIST_DATA WHERE UNIQUE_KEY = " + key);
    world_.run("DELETE FROM ANOMALY_DATA WHERE ANOMALY_UNIQUE_ID = 'anomaly_' || " + key);
  }
  static std::size_t all(const PassCounts& counts) {
    return counts.normal + counts.learning + counts.anomalous;
  }

  std::unique_ptr<Detector> detector_;
};

class RepeatedGather : public DetectorVerdicts, public testing::WithParamInterface<bool> {
 protected:
  static constexpr int kEncrypted = 20;

  // Twenty encrypted nights were reported; then the whole history is gathered again.
  void SetUp() override {
    DetectorVerdicts::SetUp();
    for (int day = 40; day < 40 + kEncrypted; ++day) gather(encrypted(day));
    ASSERT_EQ(pass().anomalous, std::size_t{kEncrypted});
    if (restarts()) stop();
    for (int day = 0; day < 40; ++day) world_.gather_history(daily(day));
    for (int day = 40; day < 40 + kEncrypted; ++day) world_.gather_history(encrypted(day));
  }
  static bool restarts() { return GetParam(); }
  static Backup encrypted(int day) { return daily(day, 1000, 1e6, 9e5); }
};

TEST_P(RepeatedGather, MakesNoHistoryOfWhatWasReported) {
  EXPECT_EQ(all(pass()), 0U);
  EXPECT_EQ(detector_->model().streams(), 1U);
  EXPECT_EQ(stream().history.size(), 40U);
  EXPECT_EQ(stream().held.size() + stream().older_held.size(), std::size_t{kEncrypted});
  EXPECT_EQ(test::count(world_.db(), "ANOMALY_DATA"), std::to_string(kEncrypted));
  const Backup next = encrypted(40 + kEncrypted);
  gather(next);
  EXPECT_EQ(pass().anomalous, 1U);
  EXPECT_EQ(incident_of_record(next), incident_name(encrypted(40).unique_key));
}

TEST_P(RepeatedGather, TakesNoFiguresFromTheHistory) {
  pass();
  for (const Observation& one : stream().history) {
    const int day = (one.time() - kFirstDay) / kDay;
    const Figures expected = Observation(daily(day)).figures();
    EXPECT_EQ(one.figures().transferred_kb, expected.transferred_kb) << day;
    EXPECT_EQ(one.figures().seconds, expected.seconds) << day;
  }
  for (const Held& one : stream().held) EXPECT_GT(one.observation.figures().transferred_kb, 8e5);
}

TEST_P(RepeatedGather, HidesNoFalsePositive) {
  const Backup one = encrypted(45);
  feedback(one, 1);
  EXPECT_EQ(all(pass()), 0U);
  EXPECT_EQ(cluster(one), "1") << "in place of the row that the gather wrote";
  EXPECT_EQ(own(one)->cluster, 1);
  stop();
  world_.gather_history(one);
  pass();
  EXPECT_EQ(stream().by_people.size(), 1U);
  EXPECT_EQ(stream().history.size(), 40U);
  EXPECT_EQ(cluster(one), "1") << "put back";
  world_.gather_history(one);
  feedback(one, 0);
  pass();
  EXPECT_EQ(cluster(one), "-1") << "the gather's row stays";
  EXPECT_EQ(own(one)->cluster, -1);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(stream().by_people.size(), 0U) << round;
    EXPECT_EQ(stream().history.size(), 40U) << round;
    stop();
    pass();
  }
}

// The anomalies are known from the anomaly database; the figures of the others are lost.
TEST_P(RepeatedGather, IsHarmlessEvenWithoutTheOwnDatabase) {
  stop();
  std::filesystem::remove(world_.own_path());
  EXPECT_EQ(all(pass()), 0U);
  EXPECT_EQ(own(encrypted(47))->incident, incident_name(encrypted(40).unique_key));
  const Backup next = encrypted(40 + kEncrypted);
  gather(next);
  EXPECT_EQ(detector_->model().streams(), 2U) << "the gather does not know the whole stream";
  EXPECT_EQ(stream().held.size() + stream().older_held.size(), std::size_t{kEncrypted});
  const Backup deleted = daily(41 + kEncrypted, 300, 3e5);
  gather(deleted);
  pass();
  EXPECT_EQ(status(deleted), "2");
}

// Without the anomaly, too: it was deleted, or the whole anomaly database was.
TEST_P(RepeatedGather, HoldsWhatIsKnownFromTheOwnDatabaseAlone) {
  stop();
  world_.run("DELETE FROM ANOMALY_DATA");
  world_.run("DELETE FROM DATA_TO_PROCESS");
  pass();
  EXPECT_EQ(stream().held.size() + stream().older_held.size(), std::size_t{kEncrypted});
  const Backup next = encrypted(40 + kEncrypted);
  gather(next);
  pass();
  EXPECT_EQ(incident_of_record(next), incident_name(encrypted(40).unique_key));
}

// The service stored them while the detection was disabled.
TEST_P(RepeatedGather, HoldsLiveRowsThatAreKnownFromTheOwnDatabaseAlone) {
  stop();
  world_.run("DELETE FROM ANOMALY_DATA");
  world_.run("DELETE FROM DATA_TO_PROCESS");
  for (int day = 40; day < 40 + kEncrypted; ++day) world_.insert("HIST_DATA", encrypted(day), -1);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(all(pass()), 0U);
    EXPECT_EQ(stream().history.size(), 40U);
    EXPECT_EQ(stream().held.size() + stream().older_held.size(), std::size_t{kEncrypted});
    EXPECT_EQ(own(encrypted(45))->judged_as, JudgedAs::kAnomalous);
    stop();
  }
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutARestart, RepeatedGather, testing::Bool());

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

// --- A database that was lost, emptied, or replaced by an older copy; its rows are healed ---

class Healed : public DetectorVerdicts, public testing::WithParamInterface<bool> {
 protected:
  static constexpr int kWeeks = 40;
  static constexpr int kHealed = 27;  // from here on

  static Backup week(int number) {
    if (number == kWeeks) return weekly(7 * number, 10, 1e4);
    if (number == kWeeks + 1) return weekly(7 * number, 400, 4e5);
    return weekly(7 * number);
  }
  void SetUp() override {
    DetectorVerdicts::SetUp();
    for (int number = 0; number < kWeeks; ++number) world_.insert("HIST_DATA", week(number), -1);
    gather(reported_);
    gather(false_positive_);
    ASSERT_EQ(pass().anomalous, 2U);
    feedback(false_positive_, 1);
    pass();
    ASSERT_EQ(cluster(false_positive_), "1");
  }
  void lose(const char* tables) { world_.run(std::string("DELETE FROM ") + tables); }
  void lose_everything() {
    for (const char* table :
         {"HIST_DATA", "DATA_TO_PROCESS", "ANOMALY_DATA", "ANOMALY_DATA_FEEDBACK"}) {
      lose(table);
    }
    if (GetParam()) stop();
  }
  const Stream& weekly_stream() {
    for (const auto& one : detector_->model().all()) {
      if (one->key == reported_.stream) return *one;
    }
    throw std::logic_error("no such stream");
  }
  void expect_nothing_learnt() {
    for (int round = 0; round < 2; ++round) {
      EXPECT_EQ(weekly_stream().history.size(), std::size_t{kWeeks - kHealed});
      EXPECT_EQ(weekly_stream().held.size(), 1U);
      EXPECT_EQ(weekly_stream().by_people.size(), 1U);
      EXPECT_EQ(own(reported_)->judged_as, JudgedAs::kAnomalous);
      EXPECT_EQ(own(reported_)->incident, incident_name(reported_.unique_key));
      EXPECT_EQ(own(false_positive_)->judged_as, JudgedAs::kAnomalous);
      EXPECT_EQ(own(false_positive_)->cluster, 1);
      stop();
      EXPECT_EQ(all(pass()), 0U);
    }
  }

  const Backup reported_ = week(kWeeks);
  const Backup false_positive_ = week(kWeeks + 1);
};

TEST_P(Healed, RowsOfAStreamThatLearnsAgainKeepTheirVerdicts) {
  lose_everything();
  for (int number = kHealed; number < kWeeks + 2; ++number) gather(week(number));
  EXPECT_EQ(all(pass()), 0U);
  EXPECT_EQ(status(reported_) + status(false_positive_) + status(week(kHealed)), "211");
  EXPECT_EQ(cluster(reported_), "");
  EXPECT_EQ(cluster(false_positive_), "1");
  EXPECT_EQ(test::count(world_.db(), "ANOMALY_DATA"), "0") << "too little to compare it with";
  expect_nothing_learnt();
}

TEST_P(Healed, RowsThatAreStillUnusualAreReportedAgain) {
  lose_everything();
  for (int number = 0; number < kWeeks + 2; ++number) gather(week(number));
  EXPECT_EQ(pass().anomalous, 1U);
  EXPECT_EQ(test::query_column(world_.db(), "SELECT ANOMALY_UNIQUE_ID FROM ANOMALY_DATA"),
            std::vector{anomaly_id(reported_.unique_key)});
  EXPECT_EQ(weekly_stream().held.size(), 1U);
  EXPECT_EQ(weekly_stream().history.size(), std::size_t{kWeeks});
}

TEST_P(Healed, RowsOfTheHistoryKeepTheirVerdicts) {
  lose_everything();
  for (int number = kHealed; number < kWeeks + 2; ++number) {
    world_.insert("HIST_DATA", week(number), -1);
  }
  EXPECT_EQ(all(pass()), 0U);
  expect_nothing_learnt();
}

// The copy is from before the feedback. The row was gathered again, or not.
TEST_P(Healed, AFalsePositiveThatAnOlderCopyDoesNotKnowIsPutBack) {
  for (const int waits : {0, 1}) {
    lose("HIST_DATA WHERE USER_IDENTIFIED_CLUSTER = 1");
    lose("ANOMALY_DATA_FEEDBACK");
    stop();
    if (!GetParam()) pass();
    if (waits == 1) gather(false_positive_);
    EXPECT_EQ(all(pass()), 0U);
    EXPECT_EQ(cluster(false_positive_), "1");
    EXPECT_EQ(status(false_positive_), "2");
    EXPECT_EQ(own(false_positive_)->cluster, 1);
    EXPECT_EQ(weekly_stream().by_people.size(), 1U);
    EXPECT_EQ(weekly_stream().held.size(), 1U);
    EXPECT_EQ(weekly_stream().history.size(), std::size_t{kWeeks});
  }
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutARestart, Healed, testing::Bool());

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
