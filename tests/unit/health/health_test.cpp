#include "health/health.h"

#include "companions/detect/verdict_database.h"
#include "platform/program_names.h"
#include "tests/support/child_process.h"
#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::health {
namespace {

using namespace ctl;  // NOLINT(google-build-using-namespace)

class HealthTest : public OperatorWorld {
 protected:
  static constexpr pid_t kGone = 1 << 23;  // above what Linux numbers processes with

  Configured configured(const std::string& text) {
    configure(text);
    return read_configuration(directory_("anomaly_config.conf"));
  }
  Configured with_switches(const std::string& service, const std::string& detection,
                           const std::string& alerts) {
    return configured("[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_ANOMALY_DETECTION=" + service +
                      "\nDISABLE_DETECTION_SERVICE=" + detection +
                      "\nDISABLE_ALERT_SERVICE=" + alerts + "\n");
  }
  int interval(const std::string& value) {
    return configured("[DATA_GATHER_SETTINGS]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=" + value + "\n")
        .interval_minutes;
  }
  Health health() {
    Database opened(database());
    return look(with_paths().places(), opened);
  }
  Daemon service() { return health().service(); }
  // Later than this process began, and so than any gather of it ended.
  static std::int64_t later() { return started_at(getpid()) + 10 * kDay; }
  // A gather that ended then and took 7 seconds.
  void gathered_until(std::int64_t end) const {
    coverage::Ledger ledger = looked();
    coverage::Gathers(ledger).add(
        {.start = end - 900, .end = end - 7, .began = end - 7, .ended = end});
  }
};

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
  EXPECT_FALSE(is_running(kManagementProgram));
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

TEST_F(HealthTest, TheBacklogIsWhatWaits) {
  const Backlog none = health().backlog;
  EXPECT_EQ(none.unjudged + none.oldest_unprocessed + none.oldest_critical + none.criticals, 0);
  insert("DATA_TO_PROCESS", {.time = kNow - 50, .mark = 0});
  const auto add = [&](const char* client, std::int64_t time, int severity) {
    anomaly({.client = client, .time = time}, severity, {.client = client, .time = time});
  };
  add("a", kNow - 500, 2);
  add("b", kNow - 400, 3);
  add("c", kNow - 300, 3);
  add("d", kNow - 900, 3);
  sql("UPDATE ANOMALY_DATA SET PROCESSED = 1 WHERE CLIENT = 'd'");
  const Backlog backlog = health().backlog;
  EXPECT_EQ(backlog.unjudged, 1);
  EXPECT_EQ(backlog.oldest_unprocessed, kNow - 440);
  EXPECT_EQ(backlog.oldest_critical, kNow - 340);
  EXPECT_EQ(backlog.criticals, 2);
  sql("INSERT INTO ANOMALY_DATA_FEEDBACK SELECT ANOMALY_UNIQUE_ID, 0, 1 FROM ANOMALY_DATA WHERE "
      "CLIENT = 'b'");  // somebody has reviewed it
  EXPECT_EQ(health().backlog.oldest_critical, kNow - 240);
  EXPECT_EQ(health().backlog.criticals, 1);
  EXPECT_EQ(health().backlog.oldest_unprocessed, kNow - 440);
}

TEST_F(HealthTest, OfTheBacklogATimeInTheFutureCountsFirst) {
  const auto detected = [&](const char* client, std::int64_t time) {
    const TestBackup backup{.client = client, .time = time - 60};
    anomaly(backup, 3, backup);
  };
  detected("a", kNow - 500);
  detected("skew", kNow + 60);
  EXPECT_EQ(health().backlog.oldest_critical, kNow - 500);
  EXPECT_EQ(health().backlog.oldest_unprocessed, kNow - 500);
  detected("b", kNow + 62);
  detected("c", kNow + 61);
  detected("d", kNow - 900);
  EXPECT_EQ(health().backlog.oldest_critical, kNow + 61);
  EXPECT_EQ(health().backlog.oldest_unprocessed, kNow + 61);
  EXPECT_EQ(health().backlog.criticals, 5);
}

// What the alerts know of the anomalies that are not processed.
class BacklogOfAlerts : public HealthTest {
 protected:
  BacklogOfAlerts() : alerts_(directory_("CV_Anomaly_Alerts.db")) {}
  // Detected then, in the incident 1, with this delivery by mail of the message 1.
  void detected(std::int64_t time, alert::DeliveryState state, std::int64_t held) {
    const TestBackup backup{.time = time - 60};
    anomaly(backup, 3, backup);
    const std::string id = quoted("anomaly_" + key_of(backup));
    run("INSERT INTO record (anomaly_id, pending, incident) VALUES (" + id + ", 2, 1)");
    run("INSERT INTO message VALUES (1, 1, " + id + ", 3, 1, '', '', '')");
    run("INSERT INTO delivery VALUES (1, 'mail', 1, 1, 3, " +
        std::to_string(static_cast<int>(state)) + ", 1, " + std::to_string(held) +
        ", 0, 0, 0, '', 0)");
  }
  void run(const std::string& statement) { alerts_.execute(statement.c_str()); }

  alert::StateDatabase alerts_;
};

TEST_F(BacklogOfAlerts, WhatAChannelHasDeliveredSomebodyKnows) {
  detected(kNow - 500, alert::DeliveryState::kDelivered, 0);
  EXPECT_EQ(health().backlog.criticals, 0);
  EXPECT_EQ(health().backlog.oldest_critical, 0);
  EXPECT_EQ(health().backlog.oldest_unprocessed, kNow - 500);  // another channel has not
}

TEST_F(BacklogOfAlerts, WhatNoChannelHasDeliveredNobodyKnows) {
  detected(kNow - 500, alert::DeliveryState::kGivenUp, 0);
  EXPECT_EQ(health().backlog.criticals, 1);
  EXPECT_EQ(health().backlog.oldest_critical, kNow - 500);
}

TEST_F(BacklogOfAlerts, QuietHoursMakeNothingLate) {
  const auto oldest_with = [&](std::int64_t held) {
    run("UPDATE delivery SET held = " + std::to_string(held));
    return health().backlog.oldest_unprocessed;
  };
  detected(kNow - 500, alert::DeliveryState::kWaiting, 0);
  EXPECT_EQ(oldest_with(0), kNow - 500);
  EXPECT_EQ(oldest_with(kNow + 1), 0);
  EXPECT_EQ(oldest_with(kNow), kNow);
  EXPECT_EQ(oldest_with(kNow - 400), kNow - 400);
  EXPECT_EQ(oldest_with(kNow - 501), kNow - 500);
  EXPECT_EQ(oldest_with(kNow + kDay), 0);
  EXPECT_EQ(oldest_with(kNow + kDay + 1), kNow - 500);  // of a wrong clock
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
  EXPECT_TRUE(is_running(kManagementProgram));
  EXPECT_FALSE(is_running(kAlertProgram));
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

TEST_F(HealthTest, WithoutTheDatabaseAConfigurationThatCannotBeReadIsAProblem) {
  if (getuid() != 0) GTEST_SKIP() << "only root can become another user";
  switch_everything_on();
  close_database();
  chmod(directory_().c_str(), 0755);
  chmod(directory_("anomaly_config.conf").c_str(), 0600);
  EXPECT_EQ(test::in_child([&] {
              if (setuid(1 << 30) != 0) return 1;
              const Health found = look_without_database(with_paths().places());
              return found.configured.trouble.ends_with(": permission denied.") ? 0 : 2;
            }),
            0);
}

TEST_F(HealthTest, AlertsWithoutADatabaseAreUnknown) {
  const AlertHealth alerts = health().alerts;
  EXPECT_FALSE(alerts.is_known);
  EXPECT_EQ(alerts.trouble, "");
  EXPECT_TRUE(alerts.channels.empty());
}

TEST_F(HealthTest, AlertsHaveChannels) {
  {
    alert::StateDatabase state(directory_("CV_Anomaly_Alerts.db"));
    state.execute("INSERT INTO channel VALUES ('mail', 2, 3, 4, 'refused', 5, 6)");
  }
  const AlertHealth alerts = health().alerts;
  EXPECT_TRUE(alerts.is_known);
  EXPECT_EQ(alerts.trouble, "");
  ASSERT_EQ(alerts.channels.size(), 1U);
  EXPECT_EQ(alerts.channels[0].name, "mail");
  EXPECT_EQ(alerts.channels[0].taken, 6);
}

TEST_F(HealthTest, AlertsThatCannotBeReadSayWhy) {
  const std::string path = directory_("CV_Anomaly_Alerts.db");
  test::write_file(path, std::string(100000, 'x'));
  const AlertHealth alerts = health().alerts;
  EXPECT_TRUE(alerts.is_known);
  EXPECT_EQ(alerts.trouble, path + " is damaged or is not a database.");
}

TEST(AlertHealthOf, SumsItsChannels) {
  const auto channel = [](std::int64_t waiting, std::int64_t oldest, std::int64_t given_up,
                          std::int64_t due) {
    alert::ChannelStatus status;
    status.waiting = waiting;
    status.oldest = oldest;
    status.given_up = given_up;
    status.due = due;
    return status;
  };
  AlertHealth health;
  EXPECT_EQ(health.waiting() + health.given_up() + health.oldest() + health.due(), 0);
  // The second has nothing pending, of the last nobody knows since when.
  health.channels = {channel(3, 50, 1, 90), channel(0, 10, 4, 20), channel(2, 40, 0, 95),
                     channel(1, 60, 0, 80), channel(5, 0, 0, 0)};
  EXPECT_EQ(health.waiting(), 11);
  EXPECT_EQ(health.given_up(), 5);
  EXPECT_EQ(health.oldest(), 40);
  EXPECT_EQ(health.due(), 80);
}

}  // namespace
}  // namespace corvane::health
