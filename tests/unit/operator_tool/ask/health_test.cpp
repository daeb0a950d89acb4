#include "operator_tool/ask/health.h"

#include "platform/program_names.h"
#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::ctl {
namespace {

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
    return look(with_paths(), opened);
  }
  Daemon service() { return health().service(); }
  // Later than this process began, and so than any gather of it ended.
  static std::int64_t later() { return started_at(getpid()) + 10 * kDay; }
  // A log whose only gather ended then and took 7 seconds.
  void log_of(const char* program, std::int64_t end) const {
    test::write_file(directory_(program),
                     formatted_time(end, true, "%Y-%m-%dT%H:%M:%S.000Z") +
                         " 1 2 cvanomalymgmt: Total time taken for live gather 7.\n");
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

TEST_F(HealthTest, TheLogIsReadForADay) {
  log_of(kManagementProgram, kNow - kDay);
  EXPECT_EQ(health().gather.log.gathers, 1);
  log_of(kManagementProgram, kNow - kDay - 1);
  EXPECT_EQ(health().gather.log.gathers, 0);
  EXPECT_EQ(health().gather.log.last_end, kNow - kDay - 1);
}

TEST_F(HealthTest, TheNextGatherIsAnIntervalAfterTheEndOfTheLast) {
  interval("20");
  EXPECT_EQ(health().gather.next, 0);  // the service is not running
  running(kManagementProgram);
  EXPECT_EQ(health().gather.next, started_at(getpid()) + 20 * 60);  // none since it began
  gathered(later());
  EXPECT_EQ(health().gather.next, later() + 20 * 60);
  log_of(kManagementProgram, later());
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
}  // namespace corvane::ctl
