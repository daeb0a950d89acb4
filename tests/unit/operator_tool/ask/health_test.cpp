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
  Daemon service() {
    Options options;
    options.database = database();
    options.config = directory_("anomaly_config.conf");
    options.logs = directory_();
    Database opened(options.database);
    return look(options, opened).service();
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

}  // namespace
}  // namespace corvane::ctl
