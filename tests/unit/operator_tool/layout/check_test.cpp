#include "operator_tool/layout/check.h"

#include "platform/program_names.h"
#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::ctl {
namespace {

Health good() {
  Health health;
  health.now = kNow;
  health.daemons = {{kManagementProgram, true, 10, kNow - kDay},
                    {kDetectionProgram, true, 11, kNow - kDay},
                    {kAlertProgram, true, 12, kNow - kDay}};
  health.gather.last = kNow - 600;
  health.disk = {1000, 500};
  return health;
}

TEST(Check, AllIsWell) {
  const CheckResult result = judge(good(), {});
  EXPECT_EQ(result.status, CheckStatus::kOk);
  EXPECT_EQ(text_of(result, false),
            "ANOMALY OK - all wanted programs run, last gather 10 min ago | "
            "gather_lag=600s;2700;10800;0 alerts_waiting=0;;;0 alerts_oldest=0s;1800;14400;0 "
            "alerts_given_up=0;0;;0 disk_free=50.0%;10:;3:;0;100\n");
}

TEST(Check, AProgramThatIsDown) {
  Health health = good();
  health.daemons[2].process = 0;
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kCritical);
  health.daemons[2].is_wanted = false;
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kOk);
}

TEST(Check, ALateGather) {
  Health health = good();
  health.gather.last = kNow - 45 * 60 + 1;
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kOk);
  health.gather.last = kNow - 45 * 60;
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kWarning);
  health.gather.last = kNow - 180 * 60;
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kCritical);
  health.configured.interval_minutes = 120;
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kOk);
  EXPECT_EQ(judge(health, {.gather_warning = 5, .gather_critical = 1000}).status,
            CheckStatus::kWarning);
}

TEST(Check, AHistoryThatIsNeverGathered) {
  Health health = good();
  health.gather.last = 0;
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kWarning);
  health.daemons[0].since = kNow - 3600;
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kOk);
}

TEST(Check, AlertsThatAreStuckOrGivenUp) {
  Health health = good();
  alert::ChannelStatus channel;
  channel.name = "mail";
  channel.waiting = 2;
  channel.oldest = kNow - 8 * 3600;  // held back by quiet hours
  channel.due = kNow - 29 * 60;
  health.alerts.channels = {channel};
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kOk);
  health.alerts.channels[0].due = kNow + 3600;
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kOk);
  health.alerts.channels[0].due = kNow - 30 * 60;
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kWarning);
  health.alerts.channels[0].due = kNow - 240 * 60;
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kCritical);
  health.alerts.channels[0].waiting = 0;
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kOk);
  health.alerts.channels[0].given_up = 1;
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kWarning);
}

TEST(Check, ADiskThatIsNearlyFull) {
  Health health = good();
  health.disk = {1000, 100};
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kWarning);
  health.disk = {1000, 30};
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kCritical);
  health.disk = {};
  EXPECT_EQ(judge(health, {}).status, CheckStatus::kOk);
}

TEST(Check, SwitchedOffIsNoProblem) {
  Health health = good();
  for (Daemon& daemon : health.daemons) daemon = {daemon.name, false, 0, 0};
  health.configured.service = false;
  health.gather.last = 1;
  const CheckResult result = judge(health, {});
  EXPECT_EQ(result.status, CheckStatus::kOk);
  EXPECT_EQ(result.summary, "switched off in the configuration");
}

TEST(Check, TheWorstComesFirstOnOneLine) {
  Health health = good();
  health.gather.last = kNow - 46 * 60;
  health.daemons[1].process = 0;
  health.alerts.trouble = "bad|\nthing";
  const std::string line = text_of(judge(health, {}), false);
  EXPECT_TRUE(
      line.starts_with("ANOMALY CRITICAL - cvanomalydetect does not run; last gather 46 min "
                       "ago; bad/ thing | gather_lag="))
      << line;
  EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
  EXPECT_EQ(std::count(line.begin(), line.end(), '|'), 1);
}

class CheckCommand : public OperatorWorld {};

TEST_F(CheckCommand, SaysUnknownWithoutADatabase) {
  close_database();
  std::filesystem::remove(database());
  const Said said = say({"check"});
  EXPECT_EQ(said.status, 3);
  EXPECT_TRUE(said.out.starts_with("ANOMALY UNKNOWN - Database not found: ")) << said.out;
}

TEST_F(CheckCommand, WrongArgumentsAreUnknownToo) {
  const auto expect_unknown = [&](const std::vector<std::string>& arguments,
                                  const std::string& why) {
    const Said said = say(arguments);
    EXPECT_EQ(said.status, 3) << why;
    EXPECT_EQ(said.out, "ANOMALY UNKNOWN - " + why + "\n");
    EXPECT_EQ(said.error, "");
  };
  expect_unknown({"check", "--x"}, "The following argument was not expected: --x");
  expect_unknown({"check", "--disk-warning", "101"},
                 "--disk-warning: Value 101 not in range 0 to 100");
  expect_unknown({"--config", "/none.conf", "check"}, "--config: File does not exist: /none.conf");
  expect_unknown({"check", "a|b\x1B[2J"}, "The following argument was not expected: a/b [2J");
}

TEST_F(CheckCommand, WrongArgumentsAsJson) {
  const Said said = say({"check", "--json", "--x"});
  EXPECT_EQ(said.status, 3);
  EXPECT_NE(said.out.find("\"status\": \"UNKNOWN\""), std::string::npos) << said.out;
  EXPECT_NE(said.out.find("not expected: --x"), std::string::npos);
}

TEST_F(CheckCommand, OnlyACommandOfThatNameIsCheck) {
  EXPECT_EQ(say({"streams", "--client", "check", "--x"}).status, 2);
}

TEST_F(CheckCommand, GoesByConfigurationAndProcesses) {
  gathered(kNow - 60);
  running("cvanomalymgmt");
  EXPECT_EQ(say({"check", "--disk-warning", "0", "--disk-critical", "0"}).status, 0);
  switch_everything_on();
  const Said said = say({"check", "--json"});
  EXPECT_EQ(said.status, 2);
  EXPECT_NE(said.out.find("cvanomalydetect does not run"), std::string::npos);
  EXPECT_NE(said.out.find("\"exit_status\": 2"), std::string::npos);
}

}  // namespace
}  // namespace corvane::ctl
