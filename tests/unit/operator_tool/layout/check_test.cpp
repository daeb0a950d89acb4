#include "operator_tool/layout/check.h"

#include "platform/program_names.h"
#include "tests/unit/alert/channel/loopback_server.h"
#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::ctl {
namespace {

Health good() {
  Health health;
  health.now = kNow;
  health.daemons = {{kManagementProgram, true, 10, kNow - kDay},
                    {kDetectionProgram, true, 11, kNow - kDay, 0, kNow, 0},
                    {kAlertProgram, true, 12, kNow - kDay, 0, kNow, 0}};
  health.gather.last = kNow - 600;
  health.disk = {1000, 500};
  health.ledger.last_look = kNow - 60;
  health.service_database = OpenFile::kOpen;
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

alert::ChannelStatus pending(std::int64_t due) {
  alert::ChannelStatus channel;
  channel.name = "mail";
  channel.waiting = 2;
  channel.oldest = kNow - 8 * kHour;  // held back by quiet hours
  channel.due = due;
  return channel;
}

TEST(Check, TheSummaryOfWhatIsDisabledOrBegins) {
  Health health = good();
  health.gather.last = 0;
  EXPECT_EQ(judge(health, {}).summary,
            "all enabled programs are running, the history is being gathered");
  health.configured.service = false;
  EXPECT_EQ(judge(health, {}).summary, "disabled in the configuration");
}

TEST(Check, TheStatusIsThatOfTheWorstProblem) {
  EXPECT_EQ(status_of({}), CheckStatus::kOk);
  EXPECT_EQ(status_of({{Level::kWarning, "a", "b"}}), CheckStatus::kWarning);
  EXPECT_EQ(status_of({{Level::kCritical, "a", "b"}, {Level::kWarning, "c", "d"}}),
            CheckStatus::kCritical);
}

TEST(Check, NamesOngoingIncidents) {
  Picture picture;
  EXPECT_EQ(incidents_words(picture), "");
  const auto add = [&](const char* client, Severity severity, IncidentEnd end) {
    Incident& incident = picture.incidents.emplace_back();
    incident.stream.client = client;
    incident.severity = severity;
    incident.end = end;
  };
  add("over", Severity::kCritical, IncidentEnd::kUsualBackup);
  EXPECT_EQ(incidents_words(picture), "");
  add("web01", Severity::kWarning, IncidentEnd::kNone);
  EXPECT_EQ(incidents_words(picture), "1 ongoing incident (1 warning), the latest of web01");
  add("web02", Severity::kCritical, IncidentEnd::kNone);
  add("web03", Severity::kMajor, IncidentEnd::kNone);
  add("web04", Severity::kMajor, IncidentEnd::kNone);
  EXPECT_EQ(incidents_words(picture),
            "4 ongoing incidents (1 critical, 2 major, 1 warning), the latest of web01");
}

TEST(Check, TheVerdictIsInWords) {
  CheckResult result{CheckStatus::kOk, {}, "fine", "", "x=1"};
  EXPECT_EQ(verdict_of(result), "OK: fine");
  result.incidents = "1 ongoing incident";
  EXPECT_EQ(verdict_of(result), "OK: fine; 1 ongoing incident");
  result.status = CheckStatus::kCritical;
  result.problems = {{Level::kCritical, "a", "b"}, {Level::kWarning, "c", "d"}};
  EXPECT_EQ(verdict_of(result), "CRITICAL: b; d; 1 ongoing incident");
}

TEST(Check, TheLagIsKnownOnceSomethingWasGathered) {
  Health health = good();
  health.gather.last = 0;
  EXPECT_TRUE(judge(health, {}).figures.starts_with("alerts_waiting=0;"));
  health.gather.last = 1;  // the earliest that is one
  EXPECT_TRUE(judge(health, {}).figures.starts_with("gather_lag=1699999999s;"));
  EXPECT_TRUE(judge(health, {}).summary.starts_with("all enabled programs are running, last"));
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

TEST(Check, Names) {
  EXPECT_STREQ(name_of(CheckStatus::kOk), "OK");
  EXPECT_STREQ(name_of(CheckStatus::kWarning), "WARNING");
  EXPECT_STREQ(name_of(CheckStatus::kCritical), "CRITICAL");
  EXPECT_STREQ(name_of(CheckStatus::kUnknown), "UNKNOWN");
}

TEST(Check, AsText) {
  EXPECT_EQ(text_of({CheckStatus::kOk, {}, "fine", "", ""}, false), "ANOMALY OK - fine\n");
  EXPECT_EQ(text_of({CheckStatus::kWarning,
                     {{Level::kWarning, "x", "a\nb|c"}, {Level::kWarning, "y", "d|e"}},
                     "fine",
                     "1 incident",
                     "x=1|2"},
                    false),
            "ANOMALY WARNING - a b/c; d/e; 1 incident | x=1|2\n");
  EXPECT_EQ(text_of(unknown("why"), false), "ANOMALY UNKNOWN - why\n");
  EXPECT_EQ(text_of(without_database("name", "why"), false), "ANOMALY CRITICAL - why\n");
}

TEST(Check, AsJson) {
  EXPECT_EQ(text_of({CheckStatus::kWarning,
                     {{Level::kCritical, "first", "a\x1B[2Jb"}, {Level::kWarning, "next", "c|d"}},
                     "fine",
                     "1 incident",
                     "x=1"},
                    true),
            R"({
 "schema": 1,
 "command": "check",
 "status": "WARNING",
 "exit_status": 1,
 "problems": [
  "a [2Jb",
  "c|d"
 ],
 "problem_list": [
  {
   "level": "critical",
   "name": "first",
   "words": "a\u001B[2Jb"
  },
  {
   "level": "warning",
   "name": "next",
   "words": "c|d"
  }
 ],
 "incidents": "1 incident",
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
      line.starts_with("ANOMALY CRITICAL - cvanomalydetect is not running; bad/ thing; last gather "
                       "46 min ago | gather_lag="))
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
  const std::vector<std::string> check{"check", "--json",          "--disk-warning",
                                       "0",     "--disk-critical", "0"};
  gathered(kNow - 60);
  looked();
  close_to_others();
  switch_everything_on();
  run_everything();
  const Said good = say(check);
  EXPECT_EQ(good.status, 0) << good.out;
  fake.processes.erase("cvanomalydetect");
  const Said said = say(check);
  EXPECT_EQ(said.status, 2);
  EXPECT_NE(said.out.find("cvanomalydetect is not running"), std::string::npos);
  EXPECT_NE(said.out.find("\"exit_status\": 2"), std::string::npos);
}

TEST_F(CheckCommand, ADatabaseThatIsMissingUnderTheRunningServiceIsCritical) {
  close_database();
  std::filesystem::remove(database());
  running("cvanomalymgmt");
  const Said said = say({"check"});
  EXPECT_EQ(said.status, 2);
  EXPECT_TRUE(said.out.starts_with("ANOMALY CRITICAL - the database is missing: " + database()))
      << said.out;
}

// It was removed, or is on a disk that is not there.
TEST_F(CheckCommand, ADatabaseThatIsMissingWhileNothingRunsIsCritical) {
  close_database();
  std::filesystem::remove(database());
  EXPECT_EQ(say({"check"}).status, 3);  // a machine where nothing was ever started
  switch_everything_on();
  const Said said = say({"check", "--disk-warning", "0", "--disk-critical", "0"});
  EXPECT_EQ(said.status, 2);
  EXPECT_EQ(said.out, "ANOMALY CRITICAL - the database is missing: " + database() +
                          "; cvanomalymgmt is not running; cvanomalydetect is not running; "
                          "cvanomalyalert is not running; cvanomalyheal has never run\n");
}

TEST_F(CheckCommand, ADatabaseThatIsDamagedIsCritical) {
  close_database();
  test::write_file(database(), std::string(100000, 'x'));
  const Said said = say({"check"});
  EXPECT_EQ(said.status, 2);
  EXPECT_TRUE(said.out.starts_with("ANOMALY CRITICAL - " + database() +
                                   " is damaged or is not a database; "))
      << said.out;
  EXPECT_NE(say({"check", "--json"}).out.find("\"name\": \"database_damaged\""), std::string::npos);
}

TEST_F(CheckCommand, CallsTheHeartbeatOfTheConfiguration) {
  alert::HttpReceiver receiver("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
  configure(
      "[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_DETECTION_SERVICE=0\n"
      "[HEALING_SETTINGS]\nHEARTBEAT_URL=http://" +
      receiver.server.at() + "/x\n");
  gathered(kNow - 60);
  looked();
  run_everything();
  const std::vector<std::string> check{"check", "--heartbeat",     "--disk-warning",
                                       "0",     "--disk-critical", "0"};
  EXPECT_EQ(say(check).status, 1);  // alerts are disabled
  fake.processes.clear();
  EXPECT_EQ(say(check).status, 2);
  EXPECT_EQ(say({"check"}).status, 2);
  close_database();
  test::write_file(database(), "");
  EXPECT_EQ(say(check).status, 3);
  std::string lines;
  for (const auto& request : receiver.requests()) lines += request.line;
  EXPECT_EQ(lines, "GET /x HTTP/1.1\r\nGET /x/fail HTTP/1.1\r\nGET /x/fail HTTP/1.1\r\n");
  receiver.set_answer("HTTP/1.1 500 No\r\nContent-Length: 0\r\n\r\n");
  EXPECT_EQ(say(check).error,
            "cvanomalyctl: HEARTBEAT_URL could not be called: 127.0.0.1 answered 500\n");
}

TEST_F(CheckCommand, NamesTheOngoingIncidents) {
  const TestBackup backup{.client = "web01", .time = kNow - kDay};
  anomaly(backup, 3, backup);
  const Said said = say({"check"});
  EXPECT_NE(said.out.find("; 1 ongoing incident (1 critical), the latest of web01 | "),
            std::string::npos)
      << said.out;
}

}  // namespace
}  // namespace corvane::ctl
