#include "companions/detect/daemon.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "companions/detect/replay.h"
#include "tests/unit/detect/detector_world.h"
#include "util/json.h"

namespace corvane::detect {
namespace {

class DaemonTest : public DetectorTest {
 protected:
  Options options() const {
    const std::filesystem::path database = world_.path();
    Options made;
    made.database_location = database.parent_path();
    made.database_file_name = database.filename();
    made.config_file = config();
    return made;
  }
  std::string config() const { return world_.path() + ".conf"; }
  void configure(int sensitivity) {
    test::write_file(config(), "[ANOMALY_DETECTION_SENSITIVITY]\nSENSITIVITY_PERCENTAGE=" +
                                   std::to_string(sensitivity) + "\n");
  }
  std::vector<std::string> radii() {
    return test::query_column(world_.db(), "SELECT EPS FROM DBSCAN_MODEL_PARAMS");
  }
  // The log since the last call.
  std::vector<fake::LogLine> new_lines() {
    auto lines = fake::log_lines();
    fake.log.clear();
    return lines;
  }
  static fake::LogLine line(int level, const std::string& text) {
    return {level, "cvanomalydetect", text};
  }
};

TEST_F(DaemonTest, JudgesWhatIsNewAndSaysHowMuch) {
  Backup fresh = weekly(39);
  fresh.stream.client = "fresh";
  for (const Backup& backup : {bad_, good_, daily(42), fresh}) gather(backup);
  Daemon daemon(options(), [] { return false; });
  EXPECT_EQ(daemon.step(), 2);
  const auto lines = new_lines();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[2].level, 2);
  EXPECT_THAT(lines[2].text, testing::MatchesRegex(
                                 "Judged 2 normal, 1 learning, 1 anomalous in [0-9]+\\.[0-9]+ s"));
  EXPECT_EQ(daemon.step(), 2);
  EXPECT_TRUE(new_lines().empty());
}

TEST_F(DaemonTest, NotesEveryMinuteThatItWorks) {
  Daemon daemon(options(), [] { return false; });
  const auto noted = [&] {
    daemon.step();
    Connection database(world_.path(), Connection::Access::kRead);
    return open_verdicts_for_reading(verdict_database_path(database))->last_pass().ended;
  };
  const std::time_t first = fake.now;
  EXPECT_EQ(noted(), first);
  fake.now = first + 59;
  EXPECT_EQ(noted(), first);
  fake.now = first + 60;
  EXPECT_EQ(noted(), first + 60);
  fake.now = first + 59;  // set back
  EXPECT_EQ(noted(), first + 59);
}

// 256 rows are four transactions.
TEST_F(DaemonTest, NotesThatALongPassGoesOn) {
  for (int n = 0; n < 256; ++n) {
    Backup backup = daily(40);
    backup.stream.client = backup.unique_key = "client" + std::to_string(n);
    gather(backup);
  }
  const std::time_t first = fake.now;
  std::vector<std::time_t> noted;
  int seconds = 59;
  Daemon daemon(options(), [&] {
    const auto own = open_verdicts_for_reading(world_.own_path());
    if (const std::time_t ended = own->last_pass().ended; ended != 0)
      noted.push_back(ended - first);
    fake.now += seconds;
    return false;
  });
  daemon.step();
  // Asked at 0, 59, ... seconds; at most once a minute.
  EXPECT_EQ(noted, (std::vector<std::time_t>{118, 118, 236}));
  noted.clear();
  seconds = 0;
  fake.now += 1000;
  gather(good_);
  daemon.step();
  EXPECT_EQ(noted, std::vector<std::time_t>(2, 295)) << "a pass that has just begun";
}

// It would never be found to hang.
TEST_F(DaemonTest, APassThatFailsAgainIsNoProgress) {
  gather(bad_);
  world_.run(
      "CREATE TRIGGER no BEFORE INSERT ON ANOMALY_DATA BEGIN SELECT RAISE(ABORT, 'no'); END");
  Daemon daemon(options(), [&] {
    fake.now += 61;
    return false;
  });
  const auto noted = [&] {
    return open_verdicts_for_reading(world_.own_path())->last_pass().ended;
  };
  EXPECT_EQ(daemon.step(), 5);
  const std::time_t first = noted();
  EXPECT_GT(first, 0);
  EXPECT_EQ(daemon.step(), 5);
  const std::time_t second = noted();
  EXPECT_GT(second, first) << "it may be the last failure";
  EXPECT_EQ(daemon.step(), 5);
  EXPECT_EQ(noted(), second);
  world_.run("DROP TRIGGER no");
  EXPECT_EQ(daemon.step(), 2);
  EXPECT_GT(noted(), second);
}

TEST_F(DaemonTest, SaysWhichKindsItJudged) {
  Daemon daemon(options(), [] { return false; });
  const auto judged = [&](const Backup& backup) {
    gather(backup);
    daemon.step();
    const std::string text = new_lines().back().text;
    return text.substr(0, text.find(" in "));
  };
  Backup fresh = weekly(39);
  fresh.stream.client = "fresh";
  EXPECT_EQ(judged(good_), "Judged 1 normal, 0 learning, 0 anomalous");
  EXPECT_EQ(judged(fresh), "Judged 0 normal, 1 learning, 0 anomalous");
  EXPECT_EQ(judged(bad_), "Judged 0 normal, 0 learning, 1 anomalous");
}

TEST_F(DaemonTest, StopsWhenItIsAskedTo) {
  gather(good_);
  Daemon daemon(options(), [] { return true; });
  EXPECT_EQ(daemon.step(), 2);
  EXPECT_EQ(status(good_), "0");
}

TEST_F(DaemonTest, SaysEachReasonOnceUntilTheDatabaseCanBeUsed) {
  gather(good_);
  world_.run("PRAGMA journal_mode=DELETE");  // one file
  const std::string aside = world_.path() + ".aside";
  std::filesystem::rename(world_.path(), aside);
  Daemon daemon(options(), [] { return false; });
  for (int i = 0; i < 2; ++i) EXPECT_EQ(daemon.step(), 5);
  const auto missing = new_lines();
  ASSERT_EQ(missing.size(), 1U);
  EXPECT_EQ(missing[0].level, 16);
  EXPECT_EQ(missing[0].text, "Cannot use the database, trying again: Could not open database " +
                                 world_.path() + " (unable to open database file)");
  test::write_file(world_.path(), std::string(5000, 'x'));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(daemon.step(), 5);
  const auto damaged = new_lines();
  ASSERT_EQ(damaged.size(), 1U);
  EXPECT_NE(damaged[0].text, missing[0].text);
  std::filesystem::rename(aside, world_.path());
  EXPECT_EQ(daemon.step(), 2);
  const auto usable = new_lines();
  EXPECT_EQ(usable.back(), line(4, "The database can be used again"));
  EXPECT_EQ(status(good_), "1");
  EXPECT_EQ(daemon.step(), 2);
  EXPECT_TRUE(new_lines().empty());
  std::filesystem::rename(world_.path(), aside);
  EXPECT_EQ(daemon.step(), 5);
  EXPECT_EQ(new_lines(), missing) << "said anew";
}

// After an error the detection must not go on with what it has in memory.
TEST_F(DaemonTest, ReadsTheHistoryAnewAfterAnError) {
  Daemon daemon(options(), [] { return false; });
  daemon.step();
  gather(bad_);
  world_.run(
      "CREATE TRIGGER refuse BEFORE INSERT ON ANOMALY_DATA BEGIN "
      "SELECT RAISE(ABORT, 'disk full'); END");
  EXPECT_EQ(daemon.step(), 5);
  EXPECT_EQ(
      new_lines(),
      std::vector{line(16, "Cannot use the database, trying again: Query failed: disk full")});
  world_.run("DROP TRIGGER refuse");
  EXPECT_EQ(daemon.step(), 2);
  EXPECT_EQ(status(bad_), "2");
  EXPECT_EQ(test::count(world_.db(), "ANOMALY_DATA"), "1");
}

TEST_F(DaemonTest, FollowsTheConfiguration) {
  configure(-100);
  gather(good_);
  Daemon daemon(options(), [] { return false; });
  daemon.step();
  EXPECT_EQ(radii(), std::vector<std::string>{"5.0"});
  new_lines();
  daemon.step();
  EXPECT_TRUE(new_lines().empty());
  configure(100);
  daemon.step();
  EXPECT_EQ(new_lines(), std::vector{line(4, "Configuration reloaded")});
  gather(daily(42));
  daemon.step();
  EXPECT_EQ(radii(), std::vector<std::string>{"1.25"});
}

TEST_F(DaemonTest, AChangeOfTheConfigurationBeforeTheFirstStepCounts) {
  Daemon daemon(options(), [] { return false; });
  configure(100);
  gather(good_);
  daemon.step();
  EXPECT_EQ(new_lines().front(), line(4, "Configuration reloaded"));
  EXPECT_EQ(radii(), std::vector<std::string>{"1.25"});
}

TEST_F(DaemonTest, LogsWhatIsNoSetting) {
  configure(101);
  Options made = options();
  made.eps = 3;
  made.min_samples = 50;  // no core point, all is noise
  gather(bad_);
  Daemon daemon(made, [] { return false; });
  EXPECT_EQ(new_lines(), std::vector{line(8,
                                          "Invalid value received for configuration key "
                                          "SENSITIVITY_PERCENTAGE:[101], using 0")});
  daemon.step();
  EXPECT_EQ(radii(), std::vector<std::string>{"3.0"});
  EXPECT_EQ(status(bad_), "1") << "inconclusive";
}

TEST_F(DaemonTest, OpensADatabaseThatWasReplaced) {
  Daemon daemon(options(), [] { return false; });
  daemon.step();
  AnomalyDb other;
  for (int day = 0; day < 40; ++day) other.insert("HIST_DATA", daily(day), -1);
  other.insert("DATA_TO_PROCESS", bad_, 0);
  other.run("PRAGMA wal_checkpoint(TRUNCATE)");
  for (const char* part : {"-wal", "-shm"}) std::filesystem::remove(world_.path() + part);
  std::filesystem::copy_file(other.path(), world_.path() + ".new");
  std::filesystem::rename(world_.path() + ".new", world_.path());
  EXPECT_EQ(daemon.step(), 2);
  Connection replaced = open_for_reading(world_.path());
  EXPECT_EQ(replaced.number("SELECT PROCESSED_STATUS FROM DATA_TO_PROCESS"), 2);
}

TEST_F(DaemonTest, MakesItsOwnDatabaseAgain) {
  Daemon daemon(options(), [] { return false; });
  daemon.step();
  for (const char* suffix : {"", "-wal", "-shm"}) {
    std::filesystem::remove(world_.own_path() + suffix);
  }
  gather(bad_);
  EXPECT_EQ(daemon.step(), 2);
  EXPECT_TRUE(std::filesystem::exists(world_.own_path()));
  EXPECT_EQ(status(bad_), "2");
  EXPECT_EQ(open_verdicts_for_reading(world_.own_path())->last_pass().ended, fake.now);
}

class RunTest : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    pthread_sigmask(SIG_SETMASK, nullptr, &mask_);
  }
  void TearDown() override {
    pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
    DaemonTest::TearDown();
  }
  void run(int (*mode)(const Options&), const Options& made) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    exit_status_ = mode(made);
    output_ = testing::internal::GetCapturedStdout();
    errors_ = testing::internal::GetCapturedStderr();
  }
  void expect_failure(int (*mode)(const Options&)) {
    Options missing = options();
    missing.database_file_name = "missing.db";
    run(mode, missing);
    EXPECT_EQ(exit_status_, 1);
    EXPECT_EQ(output_, "");
    const std::string reason = "cvanomalydetect: Could not open database " +
                               missing.database_path() + " (unable to open database file)";
    EXPECT_EQ(errors_, reason + "\n");
    EXPECT_EQ(fake::log_lines(), std::vector{line(16, reason)});
  }

  sigset_t mask_{};
  int exit_status_ = -1;
  std::string output_;
  std::string errors_;
};

void block_stop_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

TEST_F(RunTest, OnceJudgesAndPrintsTheCounts) {
  Backup fresh = weekly(39);
  fresh.stream.client = "fresh";
  Backup fresher = fresh;
  fresher.unique_key = "fresher";
  fresher.time += 1;
  Backup third = fresher;
  third.unique_key = "third";
  for (const Backup& backup : {bad_, good_, daily(42), fresh, fresher, third}) gather(backup);
  run(run_once, options());
  EXPECT_EQ(exit_status_, 0);
  EXPECT_EQ(output_, "2 normal, 3 learning, 1 anomalous\n");
  EXPECT_EQ(errors_, "");
}

TEST_F(RunTest, OnceStopsOnASignal) {
  gather(good_);
  block_stop_signals();
  raise(SIGTERM);
  run(run_once, options());
  EXPECT_EQ(exit_status_, 0);
  EXPECT_EQ(output_, "0 normal, 0 learning, 0 anomalous\n");
  EXPECT_EQ(status(good_), "0");
}

TEST_F(RunTest, OnceSaysWhyItCannot) { expect_failure(run_once); }
TEST_F(RunTest, BacktestSaysWhyItCannot) { expect_failure(run_backtest); }
TEST_F(RunTest, ExplainSaysWhyItCannot) { expect_failure(run_explain); }

TEST_F(RunTest, BacktestPrintsLinesOrADocument) {
  world_.insert("DATA_TO_PROCESS", bad_, 2);
  Options made = options();
  made.backtest_days = 4;
  Connection database = open_for_reading(world_.path());
  const Backtest expected = backtest(database, Settings{}, 4);
  EXPECT_EQ(expected.findings.size(), 1U);
  run(run_backtest, made);
  EXPECT_EQ(exit_status_, 0);
  EXPECT_EQ(output_, text_of(expected));
  made.json = true;
  run(run_backtest, made);
  EXPECT_EQ(output_, json_text(to_json(expected).get(), JSON_INDENT(1)) + "\n");
  configure(-100);
  made.eps = 400;
  run(run_backtest, made);
  EXPECT_THAT(output_, testing::HasSubstr("\"anomalies\": []"));
}

TEST_F(RunTest, ExplainPrintsADocument) {
  gather(bad_);
  Options made = options();
  made.unique_key = bad_.unique_key;
  Connection database = open_for_reading(world_.path());
  const auto expected = explain(database, Settings{}, bad_.unique_key);
  run(run_explain, made);
  EXPECT_EQ(exit_status_, 0);
  EXPECT_EQ(output_, json_text(to_json(*expected).get(), JSON_INDENT(1)) + "\n");
  EXPECT_EQ(errors_, "");
}

TEST_F(RunTest, ExplainKnowsNoOtherBackup) {
  Options made = options();
  made.unique_key = "other";
  run(run_explain, made);
  EXPECT_EQ(exit_status_, 1);
  EXPECT_EQ(output_, "");
  EXPECT_EQ(errors_,
            "No backup has the UNIQUE_KEY other. It is an anomaly's id without \"anomaly_\".\n");
}

TEST_F(RunTest, TheDaemonEndsOnASignalBeforeItsFirstStep) {
  gather(good_);
  block_stop_signals();
  raise(SIGTERM);
  EXPECT_EQ(run_daemon(options()), 0);
  EXPECT_EQ(fake::log_lines(),
            (std::vector{line(4, "Started"), line(4, "Signal received, stopping")}));
  EXPECT_EQ(status(good_), "0");
}

// The signal comes while the daemon opens the database.
TEST_F(RunTest, TheDaemonStepsUntilASignalComes) {
  world_.run("PRAGMA wal_checkpoint(TRUNCATE)");
  block_stop_signals();
  constexpr auto kRaise = +[](sqlite3*, const char**, const sqlite3_api_routines*) -> int {
    raise(SIGTERM);
    return SQLITE_OK;
  };
  const auto entry = reinterpret_cast<void (*)()>(kRaise);
  sqlite3_auto_extension(entry);
  gather(good_);
  EXPECT_EQ(run_daemon(options()), 0);
  sqlite3_cancel_auto_extension(entry);
  EXPECT_EQ(fake::log_lines().size(), 2U);
  EXPECT_EQ(status(good_), "0");
}

}  // namespace
}  // namespace corvane::detect
