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
            "ANOMALY OK - all enabled programs are running, last gather 10 min ago | "
            "gather_lag=600s;2700;10800;0 alerts_waiting=0;;;0 alerts_oldest=0s;1800;14400;0 "
            "alerts_given_up=0;0;;0 disk_free=50.0%;10:;3:;0;100\n");
}

// "OK", or the status and the problems.
std::string said_of(const Health& health, const Thresholds& thresholds = {}) {
  const CheckResult result = judge(health, thresholds);
  std::string said = name_of(result.status);
  for (const std::string& problem : result.problems) said += "; " + problem;
  return said;
}

TEST(Check, AProgramThatIsDown) {
  Health health = good();
  health.daemons[2].process = 0;
  EXPECT_EQ(said_of(health), "CRITICAL; cvanomalyalert is not running");
  health.daemons[2].is_wanted = false;
  EXPECT_EQ(said_of(health), "OK");
  health.daemons[2].process = 12;
  EXPECT_EQ(said_of(health), "OK");
}

// After so many seconds of something, with these thresholds and this interval of gathers.
struct Case {
  std::int64_t seconds = 0;
  std::string said;
  Thresholds thresholds;
  int interval_minutes = 15;
};

TEST(Check, ALateGather) {
  const Thresholds own{.gather_warning = 5, .gather_critical = 6};
  for (const Case& one : std::vector<Case>{
           {45 * kMinute - 1, "OK", {}},
           {45 * kMinute, "WARNING; last gather 45 min ago", {}},
           {180 * kMinute - 1, "WARNING; last gather 2 h 59 min ago", {}},
           {180 * kMinute, "CRITICAL; last gather 3 h ago", {}},
           {180 * kMinute - 1, "OK", {}, 60},
           {180 * kMinute, "WARNING; last gather 3 h ago", {}, 60},
           {720 * kMinute - 1, "WARNING; last gather 11 h 59 min ago", {}, 60},
           {720 * kMinute, "CRITICAL; last gather 12 h ago", {}, 60},
           {299, "OK", own},
           {300, "WARNING; last gather 5 min ago", own},
           {359, "WARNING; last gather 5 min ago", own},
           {360, "CRITICAL; last gather 6 min ago", own},
           {0, "WARNING; last gather 0 s ago", {.gather_warning = 0}},
           {0, "CRITICAL; last gather 0 s ago", {.gather_critical = 0}},
           {60, "CRITICAL; last gather 60 s ago", {.gather_warning = 1, .gather_critical = 1}}}) {
    Health health = good();
    health.gather.last = kNow - one.seconds;
    health.configured.interval_minutes = one.interval_minutes;
    EXPECT_EQ(said_of(health, one.thresholds), one.said) << one.seconds;
  }
}

TEST(Check, AHistoryThatIsNeverGathered) {
  Health health = good();
  health.gather.last = 0;
  health.daemons[0].since = kNow - 180 * kMinute + 1;
  EXPECT_EQ(said_of(health), "OK");
  EXPECT_EQ(judge(health, {}).summary,
            "all enabled programs are running, the history is being gathered");
  health.daemons[0].since = kNow - 180 * kMinute;
  EXPECT_EQ(said_of(health), "WARNING; the history has not been gathered yet");
  health.daemons[0].process = 0;
  EXPECT_EQ(said_of(health), "CRITICAL; cvanomalymgmt is not running");
}

TEST(Check, TheLagIsKnownOnceSomethingWasGathered) {
  Health health = good();
  health.gather.last = 0;
  EXPECT_TRUE(judge(health, {}).figures.starts_with("alerts_waiting=0;"));
  health.gather.last = 1;  // the earliest that is one
  EXPECT_TRUE(judge(health, {}).figures.starts_with("gather_lag=1699999999s;"));
  EXPECT_TRUE(judge(health, {}).summary.starts_with("all enabled programs are running, last"));
}

alert::ChannelStatus pending(std::int64_t due) {
  alert::ChannelStatus channel;
  channel.name = "mail";
  channel.waiting = 2;
  channel.oldest = kNow - 8 * kHour;  // held back by quiet hours
  channel.due = due;
  return channel;
}

TEST(Check, MessagesThatStayPending) {
  const std::string warning = "WARNING; 2 messages pending, the oldest for ";
  const std::string critical = "CRITICAL; 2 messages pending, the oldest for ";
  const Thresholds own{.alerts_warning = 3, .alerts_critical = 4};
  const Thresholds none{.alerts_warning = 0};
  for (const Case& one : std::vector<Case>{{-3600, "OK", {}},
                                           {30 * kMinute - 1, "OK", {}},
                                           {30 * kMinute, warning + "30 min", {}},
                                           {240 * kMinute - 1, warning + "3 h 59 min", {}},
                                           {240 * kMinute, critical + "4 h", {}},
                                           {179, "OK", own},
                                           {180, warning + "3 min", own},
                                           {239, warning + "3 min", own},
                                           {240, critical + "4 min", own},
                                           {-1, "OK", none},
                                           {0, warning + "0 s", none},
                                           {kNow, "OK", none},  // not due at all
                                           {kNow - 1, critical + span_text(kNow - 1), none}}) {
    Health health = good();
    health.alerts.channels = {pending(kNow - one.seconds)};
    EXPECT_EQ(said_of(health, one.thresholds), one.said) << one.seconds;
  }
  Health health = good();
  health.alerts.channels = {pending(kNow - 1800)};
  health.alerts.channels[0].waiting = 1;
  EXPECT_EQ(said_of(health), "WARNING; 1 message pending, the oldest for 30 min");
}

TEST(Check, DeadLetters) {
  Health health = good();
  health.alerts.channels.resize(1);
  health.alerts.channels[0].given_up = 1;
  EXPECT_EQ(said_of(health), "WARNING; 1 dead letter");
  health.alerts.channels[0].given_up = 3;
  EXPECT_EQ(said_of(health), "WARNING; 3 dead letters");
}

TEST(Check, AnAlertDatabaseThatCannotBeRead) {
  Health health = good();
  health.alerts.trouble = "It is damaged.";
  EXPECT_EQ(said_of(health), "WARNING; It is damaged");
  health.alerts.trouble = "It is damaged";
  EXPECT_EQ(said_of(health), "WARNING; It is damaged");
}

TEST(Check, ADiskThatIsNearlyFull) {
  struct DiskCase {
    DiskSpace disk;
    std::string said;
    Thresholds thresholds;
  };
  const std::string free = "% free on the database's disk";
  const Thresholds own{.disk_warning = 60, .disk_critical = 50};
  for (const auto& [disk, said, thresholds] :
       std::vector<DiskCase>{{{1000, 101}, "OK", {}},
                             {{1000, 100}, "WARNING; 10.0" + free, {}},
                             {{1000, 31}, "WARNING; 3.1" + free, {}},
                             {{1000, 30}, "CRITICAL; 3.0" + free, {}},
                             {{1000, 601}, "OK", own},
                             {{1000, 600}, "WARNING; 60.0" + free, own},
                             {{1000, 501}, "WARNING; 50.1" + free, own},
                             {{1000, 500}, "CRITICAL; 50.0" + free, own},
                             {{1, 0}, "CRITICAL; 0.0" + free, {}},
                             {{0, 0}, "OK", {.disk_warning = 100, .disk_critical = 100}}}) {
    Health health = good();
    health.disk = disk;
    EXPECT_EQ(said_of(health, thresholds), said);
    EXPECT_EQ(judge(health, thresholds).figures.find("disk_free") != std::string::npos,
              disk.total > 0);
  }
}

TEST(Check, DisabledIsNoProblem) {
  Health health = good();
  for (Daemon& daemon : health.daemons) daemon = {daemon.name, false, 0, 0};
  health.configured.service = false;
  health.gather.last = 1;
  EXPECT_EQ(said_of(health), "OK");
  EXPECT_EQ(judge(health, {}).summary, "disabled in the configuration");
}

TEST(Check, PerformanceData) {
  Health health = good();
  health.alerts.channels = {pending(kNow - 77)};
  health.alerts.channels[0].given_up = 6;
  const Thresholds own{.gather_warning = 21,
                       .gather_critical = 22,
                       .alerts_warning = 23,
                       .alerts_critical = 24,
                       .disk_warning = 25,
                       .disk_critical = 26};
  EXPECT_EQ(judge(health, own).figures,
            "gather_lag=600s;1260;1320;0 alerts_waiting=2;;;0 alerts_oldest=77s;1380;1440;0 "
            "alerts_given_up=6;0;;0 disk_free=50.0%;25:;26:;0;100");
  health.gather.last = kNow + 5;  // another clock's
  health.alerts.channels[0].due = kNow + 5;
  EXPECT_EQ(judge(health, {}).figures,
            "gather_lag=0s;2700;10800;0 alerts_waiting=2;;;0 alerts_oldest=0s;1800;14400;0 "
            "alerts_given_up=6;0;;0 disk_free=50.0%;10:;3:;0;100");
  health.alerts.channels[0].due = 1;
  EXPECT_NE(judge(health, {}).figures.find("alerts_oldest=1699999999s;"), std::string::npos);
}

TEST(Check, TheWorstFirstAndEqualOnesInTheirOrder) {
  Health health = good();
  health.gather.last = kNow - 46 * kMinute;
  health.daemons[0].process = 0;
  health.daemons[1].process = 0;
  health.alerts.trouble = "It is damaged.";
  health.disk = {1000, 20};
  EXPECT_EQ(said_of(health),
            "CRITICAL; cvanomalymgmt is not running; cvanomalydetect is not running; 2.0% "
            "free on the database's disk; last gather 46 min ago; It is damaged");
}

TEST(Check, Names) {
  EXPECT_STREQ(name_of(CheckStatus::kOk), "OK");
  EXPECT_STREQ(name_of(CheckStatus::kWarning), "WARNING");
  EXPECT_STREQ(name_of(CheckStatus::kCritical), "CRITICAL");
  EXPECT_STREQ(name_of(CheckStatus::kUnknown), "UNKNOWN");
}

TEST(Check, AsText) {
  EXPECT_EQ(text_of({CheckStatus::kOk, {}, "fine", ""}, false), "ANOMALY OK - fine\n");
  EXPECT_EQ(text_of({CheckStatus::kWarning, {"a\nb|c", "d|e"}, "fine", "x=1|2"}, false),
            "ANOMALY WARNING - a b/c; d/e | x=1|2\n");
  EXPECT_EQ(text_of(unknown("why"), false), "ANOMALY UNKNOWN - why\n");
}

TEST(Check, AsJson) {
  EXPECT_EQ(text_of({CheckStatus::kWarning, {"a\x1B[2Jb", "c|d"}, "fine", "x=1"}, true), R"({
 "schema": 1,
 "command": "check",
 "status": "WARNING",
 "exit_status": 1,
 "problems": [
  "a [2Jb",
  "c|d"
 ],
 "figures": "x=1"
}
)");
}

TEST(Check, TheWorstComesFirstOnOneLine) {
  Health health = good();
  health.gather.last = kNow - 46 * kMinute;
  health.daemons[1].process = 0;
  health.alerts.trouble = "bad|\nthing";
  const std::string line = text_of(judge(health, {}), false);
  EXPECT_TRUE(
      line.starts_with("ANOMALY CRITICAL - cvanomalydetect is not running; last gather 46 min "
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
  EXPECT_NE(said.out.find("cvanomalydetect is not running"), std::string::npos);
  EXPECT_NE(said.out.find("\"exit_status\": 2"), std::string::npos);
}

}  // namespace
}  // namespace corvane::ctl
