#include "health/health.h"

#include "companions/detect/verdict_database.h"
#include "platform/program_names.h"
#include "tests/support/child_process.h"
#include "tests/support/ordinary_user.h"
#include "tests/unit/health/health_world.h"

namespace corvane::health {
namespace {

TEST_F(HealthTest, WithoutAFileOrKeysTheServiceAloneIsWanted) {
  for (const Configured& found :
       {read_configuration(directory_("none.conf")),
        configured("[ANOMALY_DETECTION_FUNCTIONALITY]\n"), configured("no section\n")}) {
    EXPECT_TRUE(found.service);
    EXPECT_FALSE(found.detection);
    EXPECT_FALSE(found.alerts);
    EXPECT_EQ(found.interval_minutes, 15);
  }
}

TEST_F(HealthTest, EmptySwitchesAreAsMissingOnes) {
  const Configured all = with_switches("", "", "");
  EXPECT_TRUE(all.service);
  EXPECT_FALSE(all.detection);
  EXPECT_FALSE(with_switches("0", "0", "").alerts);
  EXPECT_TRUE(with_switches("0", "0", "").detection);
}

TEST_F(HealthTest, SwitchesAreReadAsNumbers) {
  for (const char* set : {"1", "01", " 1", "+1", "1abc", "4294967297"}) {
    EXPECT_FALSE(with_switches(set, "0", "0").service) << set;
    EXPECT_FALSE(with_switches("0", set, "0").detection) << set;
    EXPECT_FALSE(with_switches("0", "0", set).alerts) << set;
  }
  for (const char* not_set : {"0", "00", "abc", "4294967296"}) {
    EXPECT_TRUE(with_switches(not_set, not_set, not_set).service) << not_set;
    EXPECT_TRUE(with_switches(not_set, not_set, not_set).alerts) << not_set;
  }
}

// The service does not start with these, and nothing must hide that.
TEST_F(HealthTest, InvalidSwitchesSwitchNothingOff) {
  for (const char* invalid : {"2", "-1", "10"}) {
    EXPECT_TRUE(with_switches(invalid, invalid, invalid).service) << invalid;
    EXPECT_TRUE(with_switches(invalid, invalid, invalid).alerts) << invalid;
  }
}

TEST_F(HealthTest, CompanionsAreNotWantedWithoutWhatTheyLiveOn) {
  EXPECT_FALSE(with_switches("1", "0", "0").detection);
  EXPECT_FALSE(with_switches("0", "1", "0").alerts);
}

TEST_F(HealthTest, TheIntervalIsTheServices) {
  EXPECT_EQ(interval("20"), 20);
  EXPECT_EQ(interval("15"), 15);
  EXPECT_EQ(interval("14"), 15);
  EXPECT_EQ(interval("-5"), 15);
  EXPECT_EQ(interval(""), 15);
  EXPECT_EQ(interval("soon"), 15);
  EXPECT_EQ(interval("4294967297"), 15);
  EXPECT_EQ(interval("2000000000"), 1000000);
}

// Whatever the service would log of the same file is not said twice.
TEST_F(HealthTest, ReadingTheConfigurationLogsNothing) {
  with_switches("", "2", "");
  interval("");
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(HealthTest, AProcessThatIsGoneIsNoneThatRuns) {
  fake.processes[kManagementProgram] = {getpid(), kGone};
  EXPECT_EQ(service().process, getpid());
  EXPECT_GT(service().since, 0);
  fake.processes[kManagementProgram] = {kGone, getpid()};
  EXPECT_EQ(service().process, getpid());
  fake.processes[kManagementProgram] = {kGone};
  EXPECT_EQ(service().process, 0);
}

TEST_F(HealthTest, AProcessWithAnotherRootIsOfAnotherSystem) {
  if (getuid() != 0) GTEST_SKIP() << "only root can change a root directory";
  std::filesystem::create_directory(directory_("root"));
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = test::start_child([&]() -> int {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (chroot(directory_("root").c_str()) != 0 || write(ready[1], "x", 1) != 1) return 1;
    for (;;) pause();
  });
  char byte = 0;
  EXPECT_EQ(read(ready[0], &byte, 1), 1);
  fake.processes[kManagementProgram] = {child};
  EXPECT_EQ(service().process, 0);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(ready[0]);
  close(ready[1]);
}

TEST_F(HealthTest, OfSeveralTheOldestIsTold) {
  fake.processes[kManagementProgram] = {getpid(), 1};
  const std::int64_t own = started_at(getpid());
  const std::int64_t first = started_at(1);
  ASSERT_GT(first, 0);
  EXPECT_EQ(service().process, first < own ? 1 : getpid());
  EXPECT_EQ(service().since, std::min(first, own));
}

TEST_F(HealthTest, EachProgramIsLookedForByItsOwnNameAndLog) {
  switch_everything_on();
  int bytes = 10;
  for (const char* program : {kManagementProgram, kDetectionProgram, kAlertProgram}) {
    test::write_file(directory_(program), std::string(static_cast<std::size_t>(++bytes), 'x'));
    fake.processes.clear();
    running(program);
    const Health found = health();
    ASSERT_EQ(found.daemons.size(), 3U);
    for (const Daemon& daemon : found.daemons) {
      EXPECT_EQ(daemon.process, daemon.name == program ? getpid() : 0);
      EXPECT_TRUE(daemon.is_wanted);
      if (daemon.name == program) {
        EXPECT_EQ(daemon.since, started_at(getpid()));
        EXPECT_EQ(daemon.log_bytes, bytes);
      }
    }
  }
  EXPECT_EQ(health().daemons[0].name, kManagementProgram);
  EXPECT_EQ(health().daemons[1].name, kDetectionProgram);
  EXPECT_EQ(health().daemons[2].name, kAlertProgram);
  with_switches("0", "1", "0");
  EXPECT_TRUE(health().daemons[0].is_wanted);
  EXPECT_FALSE(health().daemons[1].is_wanted);
  with_switches("0", "0", "1");
  EXPECT_TRUE(health().daemons[1].is_wanted);
  EXPECT_FALSE(health().daemons[2].is_wanted);
  with_switches("1", "0", "0");
  EXPECT_FALSE(health().daemons[0].is_wanted);
}

TEST_F(HealthTest, SizesAndMarksAreThoseOfTheDatabase) {
  gathered(500);
  sql("INSERT INTO QUEUED_TO_CAPTURE_DATA VALUES (5, 6), (7, 8)");
  sql("PRAGMA wal_checkpoint(TRUNCATE)");
  const Health before = health();
  EXPECT_EQ(before.now, kNow);
  EXPECT_EQ(before.gather.last, 500);
  EXPECT_EQ(before.gather.queued, 2);
  EXPECT_EQ(before.database_bytes, file_bytes(database()));
  EXPECT_EQ(before.disk.total, disk_space(database()).total);
  sql("INSERT INTO QUEUED_TO_CAPTURE_DATA VALUES (9, 9)");
  EXPECT_GT(file_bytes(database() + "-wal"), 0);
  EXPECT_EQ(health().database_bytes, file_bytes(database()) + file_bytes(database() + "-wal"));
}

TEST_F(HealthTest, GathersAreThoseOfADay) {
  gathered_until(kNow - kDay - 1);
  EXPECT_EQ(health().gather.log.gathers, 0);
  EXPECT_EQ(health().gather.log.last_end, kNow - kDay - 1);
  gathered_until(kNow - kDay);
  EXPECT_EQ(health().gather.log.gathers, 1);
}

TEST_F(HealthTest, TheNextGatherIsAnIntervalAfterTheEndOfTheLast) {
  interval("20");
  EXPECT_EQ(health().gather.next, 0);  // the service is not running
  running(kManagementProgram);
  EXPECT_EQ(health().gather.next, started_at(getpid()) + 20 * 60);  // none since it began
  gathered(later());
  EXPECT_EQ(health().gather.next, later() + 20 * 60);
  gathered_until(later());
  EXPECT_EQ(health().gather.next, later() + 7 + 20 * 60);
  gathered(0);
  EXPECT_EQ(health().gather.next, started_at(getpid()) + 20 * 60);
}

TEST_F(HealthTest, TheIntervalIsTheOneThatTheServiceHasSaid) {
  interval("20");
  running(kManagementProgram);
  const auto waits = [&](std::int64_t said) {
    looked().set_number(coverage::kInterval, said);
    EXPECT_EQ(health().interval(), health().gather.next - started_at(getpid()));
    return health().interval();
  };
  EXPECT_EQ(waits(0), 20 * 60);
  EXPECT_EQ(waits(-1), 20 * 60);
  EXPECT_EQ(waits(30), 30 * 60);
  EXPECT_EQ(waits(1'000'001), 60'000'000);
}

TEST_F(HealthTest, TheDetectionsDatabaseMayBeDamaged) {
  EXPECT_EQ(health().detection_trouble, "");
  test::write_file(directory_("CV_Anomaly_Detection.db"), std::string(5000, 'x'));
  EXPECT_EQ(health().detection_trouble,
            directory_("CV_Anomaly_Detection.db") + " is damaged or is not a database.");
}

// The time that is stored of a history is that of its begin.
TEST_F(HealthTest, AfterAHistoryTheNextIsExpectedFromItsEnd) {
  running(kManagementProgram);
  gathered(1000);
  const std::int64_t end = started_at(getpid()) + kHour;
  fake.now = end;
  {
    coverage::Ledger ledger = looked();
    coverage::Gathers(ledger).add(
        {.is_live = false, .start = 1, .end = 2, .began = 900, .ended = end});
  }
  EXPECT_EQ(health().gather.next, end + 15 * 60);
}

TEST_F(HealthTest, OfAGatherThatTookUnknownTimeTheNextIsExpectedFromItsBegin) {
  running(kManagementProgram);
  gathered(later());
  EXPECT_EQ(health().gather.log.last_seconds, -1);
  EXPECT_EQ(health().gather.next, later() + 15 * 60);
}

TEST_F(HealthTest, SettingsOfTheDetectionAreRead) {
  EXPECT_EQ(configured("[ANOMALY_MODEL_SETTINGS]\nMIN_OBSERVATIONS_FOR_TRAINING=17\n")
                .detect.stream.min_observations,
            17U);
}

TEST_F(HealthTest, TheLedgerIsRead) {
  EXPECT_EQ(health().ledger.last_look, 0);
  EXPECT_EQ(health().ledger.trouble, "");
  {
    coverage::Ledger ledger = looked(kNow - 5);
    coverage::Gathers gathers(ledger);
    coverage::Holes holes(ledger);
    coverage::MissingBackups missing(ledger);
    gathers.add({.start = 10, .end = 19, .began = 20, .ended = 21});
    holes.cover({10, 19});
    gathers.add({.start = 20,
                 .end = 29,
                 .began = 30,
                 .ended = 31,
                 .outcome = coverage::Outcome::kFailed,
                 .reason = "why"});
    holes.find({10, 34}, 40);
    holes.lose({6, 7}, "gone", 8);
    missing.add({"key", {1, 2}, 3, 4, 5});
    missing.add({"given up", {1, 2}, 3});
    missing.give_up("given up");
    ledger.set_number(coverage::kUnauditedSince, 72);
    ledger.set_text(coverage::kAuditReason, "refused");
    for (int i = 1; i <= 6; ++i) ledger.note(i, "act " + std::to_string(i));
    ledger.set_number(coverage::kUnjudgedSince, 9);
    ledger.set_number(coverage::kPurgedBefore, 70);
    ledger.set_number(coverage::kPurgedAt, 71);
    gathers.add({.is_live = false, .start = 1, .end = 2, .began = 60, .ended = 61});
  }
  const LedgerHealth ledger = health().ledger;
  EXPECT_EQ(ledger.last_look, kNow - 5);
  EXPECT_EQ(ledger.gathers.failed_in_a_row, 1);
  ASSERT_EQ(ledger.holes.size(), 1U);
  EXPECT_EQ(ledger.holes[0].range, (coverage::TimeRange{20, 34}));
  EXPECT_EQ(ledger.holes_seconds(), 15);
  EXPECT_EQ(ledger.missing, (std::vector<coverage::Missing>{{"key", {1, 2}, 3, 4, 5}}));
  EXPECT_EQ(ledger.lost, (std::vector<coverage::TimeRange>{{6, 7}}));
  EXPECT_EQ(ledger.unjudged_since, 9);
  EXPECT_EQ(ledger.purged_before, 70);
  EXPECT_EQ(ledger.purged_at, 71);
  EXPECT_EQ(ledger.last_end, 61);
  EXPECT_EQ(ledger.given_up, 1);
  EXPECT_EQ(ledger.unaudited_since, 72);
  EXPECT_EQ(ledger.audit_reason, "refused");
  ASSERT_EQ(ledger.acts.size(), 5U);
  EXPECT_EQ(ledger.acts[0].text, "act 6");
}

TEST_F(HealthTest, ALedgerThatCannotBeReadSaysWhy) {
  const std::string path = directory_("CV_Anomaly_Coverage.db");
  test::write_file(path, std::string(100000, 'x'));
  EXPECT_EQ(health().ledger.trouble, path + " is damaged or is not a database.");
}

TEST_F(HealthTest, CompanionsHaveAPassInTheirOwnDatabases) {
  EXPECT_FALSE(health().had_companions);
  { detect::open_verdicts(directory_("CV_Anomaly_Detection.db"))->set_last_pass({11, 12}); }
  EXPECT_TRUE(health().had_companions);
  { alert::StateDatabase(directory_("CV_Anomaly_Alerts.db")).set_number(alert::kLastPass, 13); }
  const Health found = health();
  EXPECT_EQ(found.daemons[0].last_pass, 0);
  EXPECT_EQ(found.daemons[1].last_pass, 11);
  EXPECT_EQ(found.daemons[1].pass_seconds, 12);
  EXPECT_EQ(found.daemons[2].last_pass, 13);
  std::filesystem::remove(directory_("CV_Anomaly_Detection.db"));
  EXPECT_TRUE(health().had_companions);
  test::write_file(directory_("CV_Anomaly_Detection.db"), std::string(100000, 'x'));
  EXPECT_EQ(health().daemons[1].last_pass, 0);
}

TEST_F(HealthTest, TheFilesOfTheDatabaseAreLookedAt) {
  std::filesystem::permissions(directory_(), std::filesystem::perms(0755));
  close_to_others();
  EXPECT_TRUE(health().open_to_others.empty());
  for (const char* suffix : {"", "-wal", "-shm"}) {
    chmod((database() + suffix).c_str(), 0644);
    EXPECT_EQ(health().open_to_others, std::vector<std::string>{database() + suffix});
    close_to_others();
  }
}

TEST_F(HealthTest, TheFilesOfTheOtherDatabasesAreLookedAt) {
  std::filesystem::permissions(directory_(), std::filesystem::perms(0755));
  close_to_others();
  const Places places = with_paths().places();
  for (const std::string& own : {places.detection_database, places.alert_database, places.ledger}) {
    for (const char* suffix : {"-wal", "-shm", ".damaged"}) {
      test::write_file(own + suffix, "");
      chmod((own + suffix).c_str(), 0644);
      EXPECT_EQ(look_without_database(places).open_to_others,
                std::vector<std::string>{own + suffix});
      std::filesystem::remove(own + suffix);
    }
    test::write_file(own, "");
    chmod(own.c_str(), 0644);
    EXPECT_EQ(look_without_database(places).open_to_others, std::vector<std::string>{own});
    std::filesystem::remove(own);
  }
}

TEST_F(HealthTest, TheServiceHasTheDatabaseOpenOrNot) {
  EXPECT_EQ(health().service_database, OpenFile::kUnknown);  // it is not running
  running(kManagementProgram);
  EXPECT_EQ(health().service_database, OpenFile::kOpen);
}

TEST_F(HealthTest, AStoppedProcessIsNoticed) {
  const pid_t child = test::start_idle_child();
  fake.processes[kManagementProgram] = {child};
  EXPECT_FALSE(service().is_stopped);
  kill(child, SIGSTOP);
  waitpid(child, nullptr, WUNTRACED);
  EXPECT_TRUE(service().is_stopped);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

TEST_F(HealthTest, WithoutTheDatabaseTheRestIsKnown) {
  switch_everything_on();
  run_everything();
  {
    coverage::Ledger ledger = looked(kNow - 5);
    coverage::Holes(ledger).lose({6, 7}, "gone", 8);
  }
  { alert::StateDatabase(directory_("CV_Anomaly_Alerts.db")).set_number(alert::kLastPass, 13); }
  close_database();
  const std::int64_t bytes = file_bytes(database());
  const Health found = look_without_database(with_paths().places());
  EXPECT_FALSE(found.has_database);
  EXPECT_TRUE(health().has_database);
  EXPECT_EQ(found.now, kNow);
  ASSERT_EQ(found.daemons.size(), 3U);
  EXPECT_EQ(found.daemons[1].process, getpid());
  EXPECT_TRUE(found.daemons[2].is_wanted);
  EXPECT_EQ(found.daemons[2].last_pass, 13);
  EXPECT_EQ(found.ledger.last_look, kNow - 5);
  EXPECT_EQ(found.ledger.lost.size(), 1U);
  EXPECT_EQ(found.database_bytes, bytes);
  EXPECT_GT(found.disk.total, 0);
}

TEST_F(HealthTest, WhatOnlyTheOwnerMayReadIsTheCallersTrouble) {
  if (!test::OrdinaryUserFiles::possible()) GTEST_SKIP() << "only for root";
  const std::string path = with_paths().places().ledger;
  { const coverage::Ledger ledger = looked(); }
  chmod(directory_().c_str(), 0777);
  for (const auto& file : std::filesystem::directory_iterator(directory_())) {
    chmod(file.path().c_str(), 0666);
  }
  chmod(path.c_str(), 0600);
  const auto trouble = [&] {
    const test::OrdinaryUserFiles ordinary;
    try {
      return health().ledger.trouble;
    } catch (const Trouble& denied) {
      EXPECT_EQ(denied.status(), ExitStatus::kUnreadable);
      return std::string("thrown: ") + denied.what();
    }
  };
  const std::string denied = "Cannot read " + path + ": permission denied.";
  EXPECT_EQ(trouble(), denied);  // the caller is the owner, by the id of the process
  EXPECT_EQ(chown(path.c_str(), 1 << 30, 1 << 30), 0);
  EXPECT_EQ(trouble(), "thrown: " + denied);
  {
    const test::OrdinaryUserFiles ordinary;
    EXPECT_EQ(look_without_database(with_paths().places()).ledger.trouble, denied);
  }
  chmod(path.c_str(), 0);
  EXPECT_EQ(trouble(), denied);
  test::write_file(path, std::string(100000, 'x'));
  chmod(path.c_str(), 0666);
  EXPECT_EQ(trouble(), path + " is damaged or is not a database.");
}

TEST_F(HealthTest, ADatabaseIsMissedWhereItMustHaveBeen) {
  close_database();
  const Places places = with_paths().places();
  EXPECT_FALSE(is_database_missed(places));
  for (const std::string& own : {places.detection_database, places.alert_database, places.ledger}) {
    test::write_file(own, "");
    EXPECT_TRUE(is_database_missed(places)) << own;
    std::filesystem::remove(own);
  }
  running(kManagementProgram);
  EXPECT_TRUE(is_database_missed(places));
  fake.processes.clear();
  running(kAlertProgram);
  EXPECT_FALSE(is_database_missed(places));
  with_switches("1", "0", "0");
  EXPECT_FALSE(is_database_missed(places));
  with_switches("0", "1", "1");
  EXPECT_TRUE(is_database_missed(places));
}

TEST_F(HealthTest, WithoutTheDatabaseAConfigurationThatCannotBeReadIsAProblem) {
  if (getuid() != 0) GTEST_SKIP() << "only root can become another user";
  switch_everything_on();
  close_database();
  chmod(directory_().c_str(), 0755);
  chmod(directory_("anomaly_config.conf").c_str(), 0600);
  EXPECT_EQ(test::in_child([&] {
              if (setuid(1 << 30) != 0) return 1;
              if (is_database_missed(with_paths().places())) return 3;
              const Health found = look_without_database(with_paths().places());
              return found.configured.trouble.ends_with(": permission denied.") ? 0 : 2;
            }),
            0);
}

}  // namespace
}  // namespace corvane::health
