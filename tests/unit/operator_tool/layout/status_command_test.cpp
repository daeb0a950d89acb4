#include "operator_tool/layout/status_command.h"

#include "health/machine.h"
#include "operator_tool/terminal/words.h"
#include "tests/unit/operator_tool/layout/commands_world.h"
#include "tests/unit/operator_tool/layout/known_values.h"

namespace corvane::ctl {
namespace {

class StatusText : public testing::Test {
 protected:
  StatusText() {
    options_.utc = true;
    options_.database = "/db/CV_Anomaly.db";
  }
  std::string text() const { return text_of(status_, options_, terminal_); }
  // What follows the name at the beginning of a line.
  std::string line(const std::string& name) const {
    const std::string all = "\n" + text();
    const std::string begin = "\n" + padded(name, 14, false);
    const std::size_t at = all.find(begin);
    if (at == std::string::npos) return "no line " + name;
    return all.substr(at + begin.size(), all.find('\n', at + 1) - at - begin.size());
  }

  Status status_{known_health(), known_picture()};
  Health& health_ = status_.health;
  Options options_;
  Terminal terminal_;
};

TEST_F(StatusText, Whole) {
  EXPECT_EQ(
      text(),
      "Status        CRITICAL: cvanomalyalert is not running; 46 dead letters; 25 min were not "
      "gathered, the first from 2023-11-14 19:43 UTC: HTTP 500; 1 backup that the master server "
      "has "
      "is missing from the database; 4 lost ranges, "
      "the first from 2023-11-13 21:13 UTC; 3 missing backups were given up; 42 messages pending, "
      "the oldest for 31 min; 5 ongoing "
      "incidents (5 warning), the latest of web01\n"
      "Service       running since 2023-11-14 17:13 (5 h), process 4711\n"
      "Detection     running since 2023-11-14 16:13 (6 h), process 4712, although disabled in "
      "the configuration\n"
      "Alerts        not running\n"
      "Last gather   2023-11-14 22:03, 10 min ago; took 9 s\n"
      "Next gather   expected at 2023-11-14 22:20\n"
      "Gathers       13 gathers since 2023-11-14 20:13, 4 failed, the last at 2023-11-14 "
      "21:43\n"
      "Queue         12 running jobs for the next gather\n"
      "Waiting       7 backups waiting for the detection, the oldest from 2023-11-14 22:08\n"
      "Streams       6: 2 judged, 1 learning, 3 dormant\n"
      "Incidents     5 ongoing\n"
      "Anomalies     9: 4 not reviewed, 2 confirmed, 3 false positives\n"
      "Healing       last look 2023-11-14 22:11; holes: 25 min; 1 missing backup; 3 given-up "
      "backups; 4 lost "
      "ranges\n"
      "              2023-11-14 22:10 3 backups were gathered again\n"
      "Messages      42 pending, the oldest for 32 min; 46 dead letters; channel mail fails: "
      "mail is down; channel web fails: web is down\n"
      "Database      900 MB, 1,234 records of history; 700 GB free on its disk; "
      "/db/CV_Anomaly.db\n");
}

TEST_F(StatusText, OfNothing) {
  health_ = {};
  health_.now = kNow;
  health_.daemons = {{kManagementProgram, false, 0, 0}, {kDetectionProgram, true, 9, 0}};
  status_.picture = {};
  EXPECT_EQ(text(),
            "Status        CRITICAL: cvanomalydetect hangs: no pass is noted; cvanomalyheal "
            "has never run\n"
            "Service       not running, disabled in the configuration\n"
            "Detection     running, process 9\n"
            "Last gather   none yet: the history has not been gathered\n"
            "Next gather   none while the service is not running\n"
            "Gathers       unknown, none is in the ledger yet\n"
            "Queue         0 running jobs for the next gather\n"
            "Waiting       0 backups waiting for the detection\n"
            "Streams       0: 0 judged, 0 learning, 0 dormant\n"
            "Incidents     0 ongoing\n"
            "Anomalies     0: 0 not reviewed, 0 confirmed, 0 false positives\n"
            "Healing       cvanomalyheal has never run\n"
            "Messages      none yet\n"
            "Database      0 KB, 0 records of history; 0 KB free on its disk; /db/CV_Anomaly.db\n");
}

TEST_F(StatusText, OneOfEach) {
  health_.gather.queued = 1;
  health_.gather.log.gathers = 1;
  status_.picture.streams.waiting_rows = 1;
  status_.picture.streams.history_rows = 1;
  status_.picture.anomalies.resize(7);
  health_.alerts.channels = {{.name = "mail", .waiting = 1, .given_up = 1, .last_error = ""}};
  EXPECT_EQ(line("Queue"), "1 running job for the next gather");
  EXPECT_TRUE(line("Gathers").starts_with("1 gather since "));
  EXPECT_EQ(line("Waiting"),
            "1 backup waiting for the detection, the oldest from 2023-11-14 22:08");
  EXPECT_EQ(line("Anomalies"), "7: 4 not reviewed, 2 confirmed, 1 false positive");
  EXPECT_EQ(line("Messages"), "1 pending; 1 dead letter");
  EXPECT_TRUE(line("Database").starts_with("900 MB, 1 record of history; "));
}

TEST_F(StatusText, TheNextGatherIsDueWhenItsTimeIsPast) {
  health_.gather.next = kNow;
  EXPECT_EQ(line("Next gather"), "expected at 2023-11-14 22:13");
  health_.gather.next = kNow - 60;
  EXPECT_EQ(line("Next gather"), "was due at 2023-11-14 22:12: it is late, or running now");
}

TEST_F(StatusText, AGatherMayTakeNoTimeOrAnUnknownOne) {
  health_.gather.log.last_seconds = 0;
  EXPECT_EQ(line("Last gather"), "2023-11-14 22:03, 10 min ago; took 0 s");
  health_.gather.log.last_seconds = -1;
  EXPECT_EQ(line("Last gather"), "2023-11-14 22:03, 10 min ago");
}

TEST_F(StatusText, TheLogIsLookedAtForADay) {
  health_.gather.log.from = kNow - 2 * kDay;
  health_.gather.log.last_failed = 0;
  EXPECT_EQ(line("Gathers"), "13 gathers since 2023-11-13 22:13, 4 failed");
}

TEST_F(StatusText, AlertsThatCannotBeRead) {
  health_.alerts.trouble = "It is damaged.";
  EXPECT_EQ(line("Messages"), "It is damaged.");
  health_.alerts.is_known = false;
  EXPECT_EQ(line("Messages"), "none yet");
}

TEST_F(StatusText, ChannelsThatWorkAreNotNamed) {
  health_.alerts.channels[0].failures = 0;
  EXPECT_EQ(line("Messages"),
            "42 pending, the oldest for 32 min; 46 dead letters; channel web fails: web is down");
}

TEST_F(StatusText, LocalTime) {
  options_.utc = false;
  setenv("TZ", "UTC-9", 1);
  tzset();
  const std::string local = text();
  unsetenv("TZ");
  tzset();
  for (const char* words :
       {"since 2023-11-15 02:13", "since 2023-11-15 01:13", "2023-11-15 07:03, 10 min ago",
        "expected at 2023-11-15 07:20", "since 2023-11-15 05:13", "the last at 2023-11-15 06:43",
        "the oldest from 2023-11-15 07:08"}) {
    EXPECT_NE(local.find(words), std::string::npos) << words << "\n" << local;
  }
}

// What somebody has to do something about is red, what somebody should look at yellow.
class StatusColours : public StatusText {
 protected:
  StatusColours() { terminal_.colour = true; }
  // "red", "yellow" or "plain": of the words behind the name at the beginning of a line.
  std::string colour_of(const std::string& name) const {
    const std::string all = "\n" + text();
    const std::string title = "\n\x1B[1m" + name + "\x1B[0m";
    std::size_t at = all.find(title);
    if (at == std::string::npos) return "no line " + name;
    at = all.find_first_not_of(' ', at + title.size());
    if (all.compare(at, 5, "\x1B[31m") == 0) return "red";
    return all.compare(at, 5, "\x1B[33m") == 0 ? "yellow" : "plain";
  }
};

TEST_F(StatusColours, OfPrograms) {
  EXPECT_EQ(colour_of("Service"), "plain");
  EXPECT_EQ(colour_of("Detection"), "red");  // is running, although disabled
  EXPECT_EQ(colour_of("Alerts"), "red");
  health_.daemons[2].is_wanted = false;
  EXPECT_EQ(colour_of("Alerts"), "plain");
}

TEST_F(StatusColours, OfTheVerdict) {
  EXPECT_EQ(colour_of("Status"), "red");
  health_ = {};
  health_.now = kNow;
  health_.configured.service = health_.configured.detection = health_.configured.alerts = false;
  health_.daemons = {{kManagementProgram, false, 0, 0}};
  EXPECT_EQ(colour_of("Status"), "yellow");
  health_.configured.service = health_.configured.detection = health_.configured.alerts = true;
  health_.ledger.last_look = kNow;
  EXPECT_EQ(colour_of("Status"), "plain");
}

TEST_F(StatusColours, OfGathers) {
  EXPECT_EQ(colour_of("Gathers"), "yellow");
  health_.gather.log.failed = 1;
  EXPECT_EQ(colour_of("Gathers"), "yellow");
  health_.gather.log.failed = 0;
  EXPECT_EQ(colour_of("Gathers"), "plain");
}

TEST_F(StatusColours, OfIncidents) {
  EXPECT_EQ(colour_of("Incidents"), "yellow");
  status_.picture.incidents.resize(1);
  EXPECT_EQ(colour_of("Incidents"), "yellow");
  status_.picture.incidents.clear();
  EXPECT_EQ(colour_of("Incidents"), "plain");
}

TEST_F(StatusColours, OfMessages) {
  EXPECT_EQ(colour_of("Messages"), "red");
  health_.alerts.channels = {{.name = "mail", .given_up = 1, .last_error = ""}};
  EXPECT_EQ(colour_of("Messages"), "red");
  health_.alerts.channels[0].given_up = 0;
  EXPECT_EQ(colour_of("Messages"), "plain");
}

class StatusCommand : public Commands {};

TEST_F(StatusCommand, TellsWhatIsInTheDatabase) {
  switch_everything_on();
  run_everything();
  gathered(kNow - 600);
  history({}, 40);
  history({.client = "db01"}, 3);
  insert("DATA_TO_PROCESS", {.time = kNow - 50, .mark = 0});
  sql("INSERT INTO QUEUED_TO_CAPTURE_DATA VALUES (5, 6)");
  three_anomalies();
  sql("UPDATE ANOMALY_DATA SET PROCESSED = 1");
  looked();
  close_to_others();
  const std::string process = ", process " + std::to_string(getpid());
  const std::string begun = "running since " + time_text(started_at(getpid()), true) + " (0 s)";
  const Said said = say({"status"});
  EXPECT_EQ(said.status, 0) << said.error;
  const std::size_t database_line = said.out.find("Database ");
  EXPECT_EQ(
      said.out.substr(0, database_line),
      "Status        OK: all enabled programs are running, last gather 10 min ago; 2 ongoing "
      "incidents (1 major, 1 warning), the latest of c\nService       " +
          begun + process + "\nDetection     " + begun + process + "\nAlerts        " + begun +
          process + "\nLast gather   2023-11-14 22:03, 10 min ago\nNext gather   expected at " +
          time_text(started_at(getpid()) + 15 * kMinute, true) +
          "\nGathers       unknown, none is in the ledger yet\n"
          "Queue         1 running job for the next gather\n"
          "Waiting       1 backup waiting for the detection, the oldest from 2023-11-14 22:12\n"
          "Streams       2: 1 judged, 1 learning, 0 dormant\n"
          "Incidents     2 ongoing\n"
          "Anomalies     3: 2 not reviewed, 0 confirmed, 1 false positive\n"
          "Healing       last look 2023-11-14 22:13; no holes\n"
          "Messages      none yet\n");
  EXPECT_TRUE(says(said, " free on its disk; " + database() + "\n")) << said.out;
}

TEST_F(StatusCommand, AsJson) {
  gathered(kNow - 600);
  history({}, 40);
  three_anomalies();
  feedback({.client = "c"}, 0);
  const JsonPtr root = json({"status"});
  EXPECT_EQ(number(root.get(), {"time"}), kNow);
  EXPECT_EQ(number(root.get(), {"gather", "last"}), kNow - 600);
  EXPECT_EQ(compact(json_object_get(root.get(), "streams")),
            R"({"total":1,"learning":0,"judged":1,"dormant":0})");
  EXPECT_EQ(compact(json_object_get(root.get(), "anomalies")),
            R"({"total":3,"open":1,"confirmed":1,"false_positive":1})");
  EXPECT_EQ(number(root.get(), {"open_incidents"}), 2);
}

TEST_F(StatusCommand, MayExitLikeCheck) {
  switch_everything_on();
  run_everything();
  gathered(kNow - 600);
  close_to_others();
  EXPECT_EQ(say({"status"}).status, 0);
  EXPECT_EQ(say({"status", "--exit-code"}).status, 1);  // cvanomalyheal has never run
  looked();
  EXPECT_EQ(say({"status", "--exit-code"}).status, 0);
  fake.processes.erase(kAlertProgram);
  EXPECT_EQ(say({"status", "--exit-code"}).status, 2);
  const JsonPtr root = json({"status"});
  EXPECT_EQ(compact(json_object_get(root.get(), "status")), R"("CRITICAL")");
  EXPECT_EQ(compact(json_object_get(root.get(), "problem_list")),
            R"([{"level":"critical","name":"program_absent",)"
            R"("words":"cvanomalyalert is not running"}])");
  close_database();
  std::filesystem::remove(database());
  EXPECT_EQ(say({"status", "--exit-code"}).status, 2);
  fake.processes.erase(kManagementProgram);
  EXPECT_EQ(say({"status", "--exit-code"}).status, 2);
  for (const char* name : {"CV_Anomaly_Coverage.db", "anomaly_config.conf"}) {
    std::filesystem::remove(directory_(name));
  }
  EXPECT_EQ(say({"status", "--exit-code"}).status, 3);
}

// The streams' states are those of the configuration.
TEST_F(StatusCommand, GoesByTheConfiguration) {
  configure("[ANOMALY_MODEL_SETTINGS]\nMIN_OBSERVATIONS_FOR_TRAINING=41\n");
  history({}, 40);
  EXPECT_TRUE(says(say({"status"}), "Streams       1: 0 judged, 1 learning, 0 dormant\n"));
}

}  // namespace
}  // namespace corvane::ctl
