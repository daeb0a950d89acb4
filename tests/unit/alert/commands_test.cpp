#include "companions/alert/commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "companions/common/program_lock.h"
#include "companions/common/stop_signals.h"
#include "tests/support/in_child.h"
#include "tests/support/shell_script.h"
#include "tests/unit/alert/alert_world.h"

namespace corvane::alert {
namespace {

using ::testing::AnyOf;
using ::testing::HasSubstr;

constexpr std::int64_t kOneDay = 24 * 3600;

// What a command printed, and its exit status.
struct Answer {
  int status = -1;
  std::string out;
  std::string error;
  bool operator==(const Answer&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const Answer& answer) {
  return stream << answer.status << " [" << answer.out << "] [" << answer.error << "]";
}

class Commands : public AlertWorld {
 protected:
  Commands() { options.database_location = directory_(); }
  void SetUp() override {
    AlertWorld::SetUp();
    fake.now = kFirst;
    fake.handler = [this](const fake::HttpRequest& /*request*/) {
      return fake::HttpAnswer{.result = 0, .status = web_status, .body = R"({"data":{}})"};
    };
  }

  void configure(const std::string& lines) const {
    test::write_file(directory_("anomaly_config.conf"), "[ALERT_SETTINGS]\n" + lines);
  }
  // A program that keeps what it gets, and fails while there is a file "broken".
  void configure_command(const std::string& more = "") {
    test::write_script(directory_("program"),
                       "cat >> " + directory_("told") + "; test ! -e " + directory_("broken"));
    configure("COMMAND=" + directory_("program") + "\n" + more);
  }
  void break_command(bool broken = true) {
    if (broken) {
      test::write_file(directory_("broken"), "");
    } else {
      std::filesystem::remove(directory_("broken"));
    }
  }

  Answer run(int (*command)(const Options&)) const {
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    Answer answer;
    answer.status = command(options);
    answer.out = ::testing::internal::GetCapturedStdout();
    answer.error = ::testing::internal::GetCapturedStderr();
    return answer;
  }

  Options options;
  long web_status = 200;
};

TEST_F(Commands, OnceWithoutAnomalies) {
  EXPECT_EQ(run(run_once),
            (Answer{0, "0 new anomalies, 0 messages delivered, 0 anomalies processed\n", ""}));
}

TEST_F(Commands, OnceDeliversWhatIsNew) {
  options.master = "other.example.com";
  configure_command();
  anomaly("a", details_of("c", "a", 3, kFirst));
  EXPECT_EQ(run(run_once),
            (Answer{0, "1 new anomaly, 2 messages delivered, 1 anomaly processed\n", ""}));
  EXPECT_EQ(unprocessed(), "0");
  ASSERT_EQ(fake.requests.size(), 1U);
  EXPECT_EQ(fake.requests[0].server, "other.example.com");
  EXPECT_THAT(test::read_file(directory_("told")), HasSubstr("\"clientName\":\"c\""));
  EXPECT_EQ(run(run_once),
            (Answer{0, "0 new anomalies, 0 messages delivered, 0 anomalies processed\n", ""}));
}

TEST_F(Commands, OnceSaysWhatFailedAndTriesAtEachCall) {
  configure_command();
  break_command();
  web_status = 503;
  anomaly("a", details_of("c", "a", 3, kFirst));
  EXPECT_EQ(run(run_once), (Answer{1,
                                   "1 new anomaly, 0 messages delivered, 2 channels failed, see "
                                   "-status, 0 anomalies processed\n",
                                   ""}));
  web_status = 200;
  EXPECT_EQ(run(run_once), (Answer{1,
                                   "0 new anomalies, 1 message delivered, 1 channel failed, see "
                                   "-status, 0 anomalies processed\n",
                                   ""}));
  break_command(false);
  EXPECT_EQ(run(run_once),
            (Answer{0, "0 new anomalies, 1 message delivered, 1 anomaly processed\n", ""}));
}

TEST_F(Commands, OnceDoesNotWaitForMoreOfAStorm) {
  configure_command("ALERT_STORM_LIMIT=1\n");
  for (const char* id : {"a", "b", "c"}) anomaly(id, details_of(id, id, 3, kFirst));
  EXPECT_EQ(run(run_once).status, 0);
  EXPECT_THAT(test::read_file(directory_("told")), HasSubstr("\"kind\":\"summary\""));
}

TEST_F(Commands, OnceIsTheOnlyOne) {
  ProgramLock other(options.own_file(".lock"));
  ASSERT_TRUE(other.take());
  EXPECT_EQ(run(run_once), (Answer{1, "",
                                   "cvanomalyalert: another cvanomalyalert is running and sends "
                                   "pending messages by itself\n"}));
}

TEST_F(Commands, AMalformedConfigurationIsAnError) {
  test::write_file(directory_("anomaly_config.conf"), "[broken\n");
  const std::string error =
      "cvanomalyalert: " + options.config_path() + " cannot be read or has a malformed line\n";
  for (auto* const command : {run_once, run_test, run_resend}) {
    EXPECT_EQ(run(command), (Answer{1, "", error}));
  }
}

TEST_F(Commands, AValueOutOfBoundsIsComplainedOf) {
  configure("ALERT_STORM_LIMIT=0\n");
  const std::string complaint =
      "Invalid value received for configuration key ALERT_STORM_LIMIT:[0], using [10]";
  EXPECT_EQ(run(run_once).error, complaint + "\n");
  EXPECT_EQ(fake::log_lines(8), (std::vector<fake::LogLine>{{8, "cvanomalyalert", complaint}}));
}

TEST_F(Commands, OnceSaysThatAChannelCannotUseTheState) {
  configure_command();
  anomaly("a", details_of("c", "a", 3, kFirst));
  web_status = 503;
  run(run_once);
  // The sender of the web service finds its database damaged.
  Connection state(options.own_file(".db"), Connection::Access::kWrite);
  state.execute(
      "CREATE TRIGGER broken BEFORE UPDATE ON delivery WHEN new.attempts > old.attempts "
      "BEGIN SELECT raise(FAIL, 'damaged'); END");
  const Answer answer = run(run_once);
  EXPECT_EQ(answer, (Answer{1,
                            "0 new anomalies, 0 messages delivered, 1 channel failed, see "
                            "-status, 0 anomalies processed\n",
                            ""}));
  ASSERT_FALSE(fake::log_lines(16).empty());
  EXPECT_THAT(
      fake::log_lines(16).back().text,
      AllOf(HasSubstr("Channel web cannot use the state database: "), HasSubstr("damaged")));
}

TEST_F(Commands, TestNotifiesEveryConfiguredChannel) {
  options.master = "<master>";
  configure_command();
  const Answer answer = run(run_test);
  EXPECT_EQ(answer.status, 0);
  EXPECT_THAT(answer.out, AnyOf("web: delivered\ncommand: delivered\n",
                                "command: delivered\nweb: delivered\n"));
  const std::string now = std::to_string(kFirst);
  EXPECT_EQ(test::read_file(directory_("told")),
            R"({"schema":1,"alert":"test-)" + now +
                R"(","kind":"test","state":"ended","severity":1,)"
                "\"subject\":\"Test alert from \xE2\x80\xB9master\xE2\x80\xBA\","
                R"("text":"This is only a test of the alerts. No anomaly was detected.\n",)"
                R"("id":"cvanomalyalert_test","incident":"cvanomalyalert_test",)"
                R"("clientName":"","policyName":"","scheduleName":"","cause":"","created":)" +
                now + R"(,"since":)" + now + R"(,"until":)" + now +
                R"(,"records":0,"details":{}})" + "\n");
  EXPECT_EQ(fake.requests.at(0).server, "<master>");
}

TEST_F(Commands, TestOfOneChannelSaysWhyItFailed) {
  configure_command();
  options.test_channel = "web";
  EXPECT_EQ(run(run_test), (Answer{0, "web: delivered\n", ""}));
  EXPECT_FALSE(std::filesystem::exists(directory_("told")));
  web_status = 503;
  EXPECT_EQ(run(run_test), (Answer{1, "web: failed: HTTP status 503\n", ""}));
  options.test_channel = "mail";
  EXPECT_EQ(run(run_test), (Answer{1,
                                   "mail: failed: the channel is not configured: see "
                                   "ALERT_SETTINGS in anomaly_config.conf\n",
                                   ""}));
  configure("MAIL_TO=a@b\nMAIL_FROM=a\n");
  EXPECT_EQ(run(run_test),
            (Answer{1, "mail: failed: MAIL_FROM contains an invalid mail address\n", ""}));
}

TEST_F(Commands, TestFailsWhenOneOfSeveralFails) {
  configure_command();
  break_command();
  const Answer answer = run(run_test);
  EXPECT_EQ(answer.status, 1);
  EXPECT_THAT(answer.out, HasSubstr("web: delivered\n"));
  EXPECT_THAT(answer.out, HasSubstr("command: failed: the program exited with status 1\n"));
}

TEST_F(Commands, ASignalInterruptsATest) {
  test::write_script(directory_("program"), "kill -TERM $PPID; sleep 100\n");
  configure("COMMAND=" + directory_("program") + "\n");
  options.test_channel = "command";
  EXPECT_EQ(run(run_test),
            (Answer{1, "command: failed: interrupted: cvanomalyalert is stopping\n", ""}));
}

TEST_F(Commands, ASignalDoesNotWaitForAHangingWebService) {
  configure_command();
  EXPECT_EQ(test::in_child([&] {
              const StopSignals blocked;
              fake.handler = [](const fake::HttpRequest& /*request*/) -> fake::HttpAnswer {
                kill(getpid(), SIGTERM);
                for (;;) pause();
              };
              alarm(60);
              options.test_channel = "web";
              run_test(options);
              return 77;
            }),
            1);
}

TEST_F(Commands, StatusBeforeAnythingWasSent) {
  const Answer nothing{0, "No alert has been sent yet.\n", ""};
  EXPECT_EQ(run(run_status), nothing);
  EXPECT_FALSE(std::filesystem::exists(options.own_file(".db")));
  const StateDatabase state(options.own_file(".db"));
  EXPECT_EQ(run(run_status), nothing);
}

TEST_F(Commands, StatusOfEachChannel) {
  configure_command();
  break_command();
  anomaly("a", details_of("c", "a", 3, kFirst));
  run(run_once);
  EXPECT_EQ(run(run_status),
            (Answer{0,
                    "command: 0 delivered, 1 pending since 2023-11-14 22:13 UTC, 0 dead letters\n"
                    "  failing since 2023-11-14 22:13 UTC, 1 failed attempt: the program exited "
                    "with status 1\n"
                    "  next attempt in 1 s\n"
                    "web: 1 delivered, 0 pending, 0 dead letters; last delivery 2023-11-14 22:13 "
                    "UTC\n",
                    ""}));
  run(run_once);
  {
    Connection state(options.own_file(".db"), Connection::Access::kWrite);
    state.execute(("UPDATE channel SET paused_until = " + std::to_string(kFirst + 245)).c_str());
  }
  EXPECT_THAT(run(run_status).out, HasSubstr(", 2 failed attempts in a row: the program exited "
                                             "with status 1\n  next attempt in 4 min\n"));
  fake.now += 244;
  EXPECT_THAT(run(run_status).out, HasSubstr("\n  next attempt in 1 s\n"));
  fake.now += 1;
  EXPECT_THAT(run(run_status).out, HasSubstr("with status 1\nweb: "));  // it is due
  fake.now += kOneDay;
  run(run_once);
  EXPECT_THAT(run(run_status).out, testing::StartsWith("command: 0 delivered, 0 pending, 1 dead "
                                                       "letter\n  failing since "));
  EXPECT_THAT(run(run_status).out, HasSubstr("with status 1\nweb: "));
}

TEST_F(Commands, StatusKnowsTheFirstSecondOfTheClock) {
  fake.now = 1;
  configure_command();
  break_command();
  anomaly("a", details_of("c", "a", 3, 1), 1);
  run(run_once);
  EXPECT_THAT(run(run_status).out,
              AllOf(HasSubstr("1 pending since 1970-01-01 00:00 UTC, "),
                    HasSubstr("0 dead letters; last delivery 1970-01-01 00:00 UTC\n")));
}

TEST_F(Commands, StatusChangesNothingInTheDatabase) {
  { const StateDatabase state(options.own_file(".db")); }
  const auto journal_mode = [&](const char* pragma) {
    Connection state(options.own_file(".db"), Connection::Access::kWrite);
    return test::query_one(state.handle(), pragma);
  };
  EXPECT_EQ(journal_mode("PRAGMA journal_mode=DELETE"), "delete");
  EXPECT_EQ(run(run_status).status, 0);
  EXPECT_EQ(journal_mode("PRAGMA journal_mode"), "delete");
}

TEST_F(Commands, StatusOfADamagedDatabase) {
  test::write_file(options.own_file(".db"), std::string(5000, 'x'));
  const Answer answer = run(run_status);
  EXPECT_EQ(answer.status, 1);
  EXPECT_THAT(answer.error, testing::StartsWith("cvanomalyalert: "));
  EXPECT_THAT(answer.error, HasSubstr("file is not a database"));
}

class Resend : public Commands {
 protected:
  // Two dead letters of the command, which works again.
  void SetUp() override {
    Commands::SetUp();
    configure_command();
    break_command();
    anomaly("a", details_of("c", "a", 3, kFirst));
    anomaly("b", details_of("d", "b", 3, kFirst));
    run(run_once);
    fake.now += kOneDay + 60;
    run(run_once);
    break_command(false);
    std::filesystem::remove(directory_("told"));
    ASSERT_NE(test::read_file(options.own_file(".dead")), "");
    ASSERT_EQ(unprocessed(), "2");
  }
};

TEST_F(Resend, DeliversDeadLetters) {
  EXPECT_EQ(run(run_resend),
            (Answer{0, "2 dead letters are pending again, 2 messages delivered\n", ""}));
  EXPECT_EQ(test::read_file(options.own_file(".dead")), "");
  EXPECT_EQ(unprocessed(), "0");
  EXPECT_EQ(run(run_resend),
            (Answer{0, "0 dead letters are pending again, 0 messages delivered\n", ""}));
}

TEST_F(Resend, SaysThatTheChannelFailsAgain) {
  break_command();
  EXPECT_EQ(run(run_resend), (Answer{1,
                                     "2 dead letters are pending again, 0 messages delivered, 1 "
                                     "channel failed, see -status\n",
                                     ""}));
}

TEST_F(Resend, LeavesTheDeliveryToARunningProgram) {
  ProgramLock other(options.own_file(".lock"));
  ASSERT_TRUE(other.take());
  EXPECT_EQ(run(run_resend), (Answer{0,
                                     "2 dead letters are pending again; the running "
                                     "cvanomalyalert will send all pending messages\n",
                                     ""}));
  EXPECT_FALSE(std::filesystem::exists(directory_("told")));
  EXPECT_THAT(run(run_status).out,
              HasSubstr("command: 0 delivered, 2 pending since 2023-11-14 22:13 UTC, 0 dead"));
  EXPECT_EQ(run(run_status).out.find("next attempt"), std::string::npos);
}

}  // namespace
}  // namespace corvane::alert
