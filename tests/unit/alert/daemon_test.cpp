#include "companions/alert/daemon.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "tests/support/in_child.h"
#include "tests/support/shell_script.h"
#include "tests/unit/alert/alert_world.h"

namespace corvane::alert {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Line = fake::LogLine;
using Lines = std::vector<Line>;

const std::string kProgram = "cvanomalyalert";
constexpr int kSettled = 2;
constexpr int kFailed = 5;

class DaemonTest : public AlertWorld {
 protected:
  DaemonTest() { options.database_location = directory_(); }
  void SetUp() override {
    AlertWorld::SetUp();
    fake.now = kFirst;
    fake.handler = [this](const fake::HttpRequest& request) {
      const auto guard = fake::lock();
      told.push_back(request.body);
      return fake::HttpAnswer{.result = 0, .status = web_status, .body = R"({"data":{}})"};
    };
  }

  Daemon& daemon() {
    if (!daemon_) daemon_.emplace(options, signals);
    return *daemon_;
  }
  // Throws when the condition does not hold in time.
  static void wait_until(const std::function<bool()>& holds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!holds()) {
      if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("waited in vain");
      std::this_thread::yield();
    }
  }
  // Lets the daemon work until then.
  void step_until(const std::function<bool()>& holds) {
    wait_until([&] {
      if (holds()) return true;
      EXPECT_EQ(daemon().step(), kSettled);
      return false;
    });
  }
  void step_until_processed() {
    step_until([this] { return unprocessed() == "0"; });
  }
  // A failure is logged once it is recorded.
  void step_until_a_failure() {
    step_until([] { return !fake::log_lines(8).empty(); });
  }
  // How many messages the web service has got.
  std::size_t reports() const {
    const auto guard = fake::lock();
    return told.size();
  }
  void set_time(std::int64_t now) {
    const auto guard = fake::lock();
    fake.now = now;
  }
  void configure(const std::string& lines) {
    test::write_file(directory_("fresh"), lines + "# " + std::to_string(++configurations_) + "\n");
    std::filesystem::rename(directory_("fresh"), directory_("anomaly_config.conf"));
  }
  void configure_command(const std::string& script, const std::string& more = "") {
    test::write_script(directory_("program"), script);
    configure("[ALERT_SETTINGS]\nCOMMAND=" + directory_("program") + "\n" + more);
  }
  void await_file(const char* name) const {
    wait_until([&] { return std::filesystem::exists(directory_(name)); });
  }
  std::string own_count(const std::string& table) const {
    Connection state(options.own_file(".db"), Connection::Access::kRead);
    return test::count(state.handle(), table);
  }
  static Lines log_without_transfers(int level) {
    Lines lines;
    for (const Line& line : fake::log_lines(level)) {
      if (line.tag == kProgram) lines.push_back(line);
    }
    return lines;
  }

  Options options;
  StopSignals signals;
  long web_status = 200;
  std::vector<std::string> told;
  int configurations_ = 0;
  std::optional<Daemon> daemon_;
};

TEST_F(DaemonTest, NotesEveryMinuteThatItWorks) {
  const auto noted = [&] {
    daemon().step();
    return StateDatabase(directory_("CV_Anomaly_Alerts.db"), false).number_of(kLastPass);
  };
  EXPECT_EQ(noted(), kFirst);
  set_time(kFirst + 59);
  EXPECT_EQ(noted(), kFirst);
  set_time(kFirst + 60);
  EXPECT_EQ(noted(), kFirst + 60);
  set_time(kFirst + 59);  // set back
  EXPECT_EQ(noted(), kFirst + 59);
}

TEST_F(DaemonTest, DeliversAnAnomalyAndMarksIt) {
  anomaly("a", details_of("c", "a", 3, kFirst));
  step_until_processed();
  EXPECT_EQ(reports(), 1U);
  EXPECT_EQ(log_without_transfers(2),
            (Lines{{2, kProgram, "New anomalies: 1, new incidents: 1, resolved incidents: 0"}}));
  anomaly("b", details_of("c", "a", 3, kFirst + 1));
  step_until_processed();
  usual_backup("c", kFirst + 100);
  step_until([this] { return reports() == 3; });
  EXPECT_EQ(log_without_transfers(2),
            (Lines{{2, kProgram, "New anomalies: 1, new incidents: 1, resolved incidents: 0"},
                   {2, kProgram, "New anomalies: 1, new incidents: 0, resolved incidents: 0"},
                   {2, kProgram, "New anomalies: 0, new incidents: 0, resolved incidents: 1"}}));
  anomaly("d", details_of("d", "d", 3, kFirst + 200));
  step_until_processed();
  anomaly("e", details_of("e", "e", 3, kFirst + 300));
  usual_backup("d", kFirst + 300);
  EXPECT_EQ(daemon().step(), kSettled);
  EXPECT_EQ(log_without_transfers(2).back().text,
            "New anomalies: 1, new incidents: 1, resolved incidents: 1");
  EXPECT_THAT(log_without_transfers(4), IsEmpty());
  EXPECT_THAT(log_without_transfers(16), IsEmpty());
}

// It was reported again, or its mark was undone by a power failure.
TEST_F(DaemonTest, MarksAgainWhatWasDeliveredBefore) {
  anomaly("a", details_of("c", "a", 3, kFirst));
  step_until_processed();
  step_until([this] {  // the senders have nothing more to write
    daemon().step();
    return own_count("delivery WHERE state = 0") == "0";
  });
  daemon().step();
  sql("UPDATE ANOMALY_DATA SET PROCESSED = 0");
  daemon().step();
  EXPECT_EQ(unprocessed(), "0");
  EXPECT_EQ(reports(), 1U);
}

TEST_F(DaemonTest, SaysNothingOfAChangeWithoutAnomalies) {
  EXPECT_EQ(daemon().step(), kSettled);
  usual_backup("c", kFirst);
  EXPECT_EQ(daemon().step(), kSettled);
  EXPECT_THAT(fake::log_lines(), IsEmpty());
}

TEST_F(DaemonTest, TriesAgainUntilTheDatabasesCanBeUsed) {
  const std::string path = options.database_path();
  std::filesystem::rename(path, path + ".away");
  EXPECT_EQ(daemon().step(), kFailed);
  EXPECT_EQ(daemon().step(), kFailed);
  ASSERT_EQ(fake::log_lines(16).size(), 1U);
  EXPECT_THAT(fake::log_lines(16)[0].text,
              testing::StartsWith("Cannot use the databases, trying again: "));
  std::filesystem::rename(path + ".away", path);
  EXPECT_EQ(daemon().step(), kSettled);
  EXPECT_EQ(daemon().step(), kSettled);
  EXPECT_EQ(log_without_transfers(4), (Lines{{4, kProgram, "The databases can be used again"}}));
  std::filesystem::rename(path, path + ".away");
  EXPECT_EQ(daemon().step(), kFailed);
  EXPECT_EQ(fake::log_lines(16).size(), 2U);
}

TEST_F(DaemonTest, GoesOnAfterAFailedRead) {
  EXPECT_EQ(daemon().step(), kSettled);
  sql("ALTER TABLE ANOMALY_DATA RENAME TO away");
  EXPECT_EQ(daemon().step(), kFailed);
  EXPECT_EQ(daemon().step(), kFailed);
  sql("ALTER TABLE away RENAME TO ANOMALY_DATA");
  EXPECT_EQ(daemon().step(), kSettled);
}

TEST_F(DaemonTest, WaitsFiveSecondsForMoreOfAStorm) {
  // At a port that nobody listens at: no mail may leave this machine.
  configure("[ALERT_SETTINGS]\nMAIL_TO=a@b\nSMTP_URL=smtp://127.0.0.1:1\nALERT_STORM_LIMIT=1\n");
  for (const char* id : {"a", "b", "c"}) anomaly(id, details_of(id, id, 3, kFirst));
  EXPECT_EQ(daemon().step(), kSettled);
  const Connection state(options.own_file(".db"), Connection::Access::kRead);
  EXPECT_EQ(test::query_one(state.handle(),
                            typed_sql("SELECT not_before FROM delivery WHERE kind = {summary}")),
            std::to_string(kFirst + 5));
}

TEST_F(DaemonTest, IsTheOnlyOne) {
  ProgramLock other(options.own_file(".lock"));
  ASSERT_TRUE(other.take());
  EXPECT_EQ(daemon().step(), kFailed);
  EXPECT_EQ(fake::log_lines(),
            (Lines{{16, kProgram,
                    "Cannot use the databases, trying again: another cvanomalyalert is using " +
                        options.database_path()}}));
  EXPECT_FALSE(std::filesystem::exists(options.own_file(".db")));
}

TEST_F(DaemonTest, HoldsItsLock) {
  EXPECT_EQ(daemon().step(), kSettled);
  EXPECT_FALSE(ProgramLock(options.own_file(".lock")).take());
}

TEST_F(DaemonTest, ReadsNoAnomalyWithHalfAConfiguration) {
  anomaly("a", details_of("c", "a", 3, kFirst));
  configure("[broken\n");
  EXPECT_EQ(daemon().step(), kSettled);
  EXPECT_EQ(daemon().step(), kSettled);
  EXPECT_EQ(fake::log_lines(), (Lines{{16, kProgram,
                                       "The configuration file is malformed or unreadable. No "
                                       "anomalies are read until it is fixed"}}));
  EXPECT_FALSE(std::filesystem::exists(options.own_file(".db")));
  configure("[ALERT_SETTINGS]\nALERT_STORM_LIMIT=0\n");
  step_until_processed();
  EXPECT_EQ(log_without_transfers(8),
            (Lines{{8, kProgram,
                    "Invalid value received for configuration key ALERT_STORM_LIMIT:[0], using "
                    "[10]"}}));
  EXPECT_THAT(log_without_transfers(4), IsEmpty());
}

TEST_F(DaemonTest, FollowsTheConfiguration) {
  EXPECT_EQ(daemon().step(), kSettled);
  configure_command("cat >> " + directory_("told") + "\n");
  EXPECT_EQ(daemon().step(), kSettled);
  EXPECT_EQ(log_without_transfers(4), (Lines{{4, kProgram, "Configuration reloaded"}}));
  anomaly("a", details_of("c", "a", 3, kFirst));
  step_until_processed();
  EXPECT_THAT(test::read_file(directory_("told")), HasSubstr("\"clientName\":\"c\""));
  configure("[broken\n");
  EXPECT_EQ(daemon().step(), kSettled);
  EXPECT_EQ(
      log_without_transfers(8),
      (Lines{{8, kProgram,
              "The configuration file is malformed or unreadable. Keeping the former settings"}}));
  anomaly("b", details_of("d", "b", 3, kFirst));
  step_until_processed();
  EXPECT_THAT(test::read_file(directory_("told")), HasSubstr("\"clientName\":\"d\""));
  EXPECT_THAT(log_without_transfers(16), IsEmpty());
}

TEST_F(DaemonTest, LeavesTheSendersAloneUntilASettingChanges) {
  const std::string script = "echo >> " + directory_("begun") + "; while test ! -e " +
                             directory_("go_on") + "; do sleep 0.01; done\n";
  configure_command(script);
  anomaly("a", details_of("c", "a", 3, kFirst));
  EXPECT_EQ(daemon().step(), kSettled);
  await_file("begun");
  configure_command(script);  // the same settings
  EXPECT_EQ(daemon().step(), kSettled);
  test::write_file(directory_("go_on"), "");
  step_until_processed();
  EXPECT_EQ(test::read_file(directory_("begun")), "\n");
}

TEST_F(DaemonTest, SendsWhatIsPendingForAChannelThatIsNoLongerConfigured) {
  configure_command("exit 1");
  anomaly("a", details_of("c", "a", 3, kFirst));
  const auto failures = [] {
    std::vector<std::string> texts;
    for (const Line& line : fake::log_lines(8)) texts.push_back(line.text);
    return texts;
  };
  step_until([&] { return failures().size() == 1; });
  configure("");
  EXPECT_EQ(daemon().step(), kSettled);
  set_time(kFirst + 1000);  // now that the former sender has ended: it would use up the attempt
  step_until([&] { return failures().size() == 2; });
  EXPECT_THAT(
      failures(),
      testing::ElementsAre(
          testing::EndsWith(": the program exited with status 1"),
          testing::EndsWith(
              ": the channel is not configured: see ALERT_SETTINGS in anomaly_config.conf")));
}

TEST_F(DaemonTest, BeginsAnewWithoutItsStateDatabase) {
  web_status = 503;
  anomaly("a", details_of("c", "a", 3, kFirst));
  step_until_a_failure();
  for (const char* suffix : {".db", ".db-wal", ".db-shm"}) {
    std::filesystem::remove(options.own_file(suffix));
  }
  {
    const auto guard = fake::lock();
    web_status = 200;
  }
  step_until_processed();
  EXPECT_EQ(reports(), 2U);
  EXPECT_THAT(log_without_transfers(16), IsEmpty());
}

TEST_F(DaemonTest, FollowsAReplacedAnomalyDatabase) {
  EXPECT_EQ(daemon().step(), kSettled);
  detection_.reset();
  sql("PRAGMA wal_checkpoint(TRUNCATE)");
  const std::string path = options.database_path();
  std::filesystem::copy(path, directory_("copy"));
  {
    Connection copy(directory_("copy"), Connection::Access::kWrite);
    add_anomaly(copy, {"a",
                       details_of("c", "a", 3, kFirst),
                       AnomalyStatus::kUnprocessed,
                       "key",
                       "client",
                       kFirst,
                       {},
                       0});
  }
  std::filesystem::rename(directory_("copy"), path);
  step_until([this] { return reports() == 1; });
}

TEST_F(DaemonTest, ForgetsDeliveredMessagesOnceAnHour) {
  anomaly("a", details_of("c", "a", 3, kFirst));
  step_until_processed();
  set_time(kFirst + 3599);
  EXPECT_EQ(daemon().step(), kSettled);
  Connection state(options.own_file(".db"), Connection::Access::kWrite);
  state.execute("UPDATE message SET created = 1");  // older than two days
  state.execute("UPDATE delivery SET created = 1");
  const auto messages_at = [&](std::int64_t now) {
    set_time(now);
    EXPECT_EQ(daemon().step(), kSettled);
    return own_count("message");
  };
  EXPECT_EQ(messages_at(kFirst + 3599), "1");
  EXPECT_EQ(messages_at(kFirst + 3600), "0");
}

TEST_F(DaemonTest, ForgetsMessagesAlsoAfterTheClockWasSetBack) {
  anomaly("a", details_of("c", "a", 3, kFirst));
  step_until_processed();
  Connection state(options.own_file(".db"), Connection::Access::kWrite);
  state.execute("UPDATE message SET created = 1");
  state.execute("UPDATE delivery SET created = 1");
  const auto messages_at = [&](std::int64_t now) {
    set_time(now);
    EXPECT_EQ(daemon().step(), kSettled);
    return own_count("message");
  };
  EXPECT_EQ(messages_at(kFirst), "1");
  EXPECT_EQ(messages_at(kFirst - 1), "0");
}

TEST_F(DaemonTest, DeliversDeadLettersThatArePendingAgain) {
  web_status = 503;
  anomaly("a", details_of("c", "a", 3, kFirst));
  step_until_a_failure();
  set_time(kFirst + kGiveUpAfterSeconds + 60);
  step_until([this] { return std::filesystem::exists(options.own_file(".dead")); });
  StateDatabase state(options.own_file(".db"));
  step_until([&] { return Outbox(state).status().at(0).given_up == 1; });
  {
    const auto guard = fake::lock();
    web_status = 200;
  }
  EXPECT_EQ(Outbox(state).revive(), 1);
  Outbox(state).end_pauses();
  step_until_processed();
}

// What the daemon itself has changed is not seen as a change of the database.
TEST_F(DaemonTest, MarksAtOnceWhatWasPendingOnlyForDroppedDeadLetters) {
  configure_command("exit 1");
  anomaly("a", details_of("c", "a", 3, kFirst));
  EXPECT_EQ(daemon().step(), kSettled);
  StateDatabase state(options.own_file(".db"));
  step_until([&] {
    const std::vector<ChannelStatus> channels = Outbox(state).status();
    return channels.size() == 2 && channels[0].failures == 1 && channels[1].taken == 1;
  });
  state.execute(
      typed_sql("UPDATE delivery SET state = {given_up} WHERE channel = 'command'").c_str());
  configure("");
  const auto unprocessed_at = [&](std::int64_t now) {
    set_time(now);
    EXPECT_EQ(daemon().step(), kSettled);
    return unprocessed();
  };
  EXPECT_EQ(unprocessed_at(kFirst + 3600), "1");
  EXPECT_EQ(unprocessed_at(kFirst + 3600 + 7 * kDay), "0");
}

TEST_F(DaemonTest, StopsItsSenders) {
  configure_command("echo >> " + directory_("begun") + "; sleep 100\n");
  anomaly("a", details_of("c", "a", 3, kFirst));
  EXPECT_EQ(daemon().step(), kSettled);
  await_file("begun");
  step_until([this] { return reports() == 1; });
  const auto begin = std::chrono::steady_clock::now();
  daemon().end();
  const auto took = std::chrono::steady_clock::now() - begin;
  EXPECT_LT(took, std::chrono::seconds(50));
  anomaly("b", details_of("d", "b", 3, kFirst));
  const std::size_t before = reports();
  EXPECT_EQ(daemon().step(), kSettled);
  EXPECT_EQ(reports(), before);  // nobody is there to send it
}

TEST_F(DaemonTest, RunsUntilASignal) {
  EXPECT_EQ(test::in_child([this] {
              raise(SIGTERM);  // blocked by the fixture: pending
              const int status = run_daemon(options);
              EXPECT_EQ(fake::log_lines(), (Lines{{4, kProgram, "Started"},
                                                  {4, kProgram, "Signal received, stopping"}}));
              return status;
            }),
            0);
}

TEST_F(DaemonTest, StepsUntilASignal) {
  EXPECT_EQ(test::in_child([this] {
              alarm(60);
              fake.handler = [](const fake::HttpRequest& /*request*/) {
                kill(getpid(), SIGINT);
                return fake::HttpAnswer{.result = 0, .status = 200, .body = R"({"data":{}})"};
              };
              anomaly("a", details_of("c", "a", 3, kFirst));
              return run_daemon(options);
            }),
            0);
}

}  // namespace
}  // namespace corvane::alert
