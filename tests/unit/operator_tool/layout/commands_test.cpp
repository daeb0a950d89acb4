#include "tests/unit/operator_tool/layout/commands_world.h"

namespace corvane::ctl {
namespace {

TEST_F(Commands, StatusOfAFreshInstallation) {
  const Said said = say({"status"});
  EXPECT_EQ(said.status, 0);
  EXPECT_TRUE(says(said, "Service       not running\n")) << said.out;
  EXPECT_TRUE(says(said, "Detection     not running, switched off in the configuration\n"));
  EXPECT_TRUE(says(said, "Last gather   none yet"));
  EXPECT_TRUE(says(said, "Undelivered   nothing has been told yet\n"));
}

TEST_F(Commands, StatusTellsWhatThereIs) {
  switch_everything_on();
  run_everything();
  gathered(kNow - 600);
  history({}, 40);
  history({.client = "db01"}, 3);
  insert("DATA_TO_PROCESS", {.time = kNow - 50, .mark = 0});
  sql("INSERT INTO QUEUED_TO_CAPTURE_DATA VALUES (5, 6)");
  three_anomalies();
  const Said said = say({"status"});
  EXPECT_TRUE(says(said, "Service       running since 20")) << said.out;
  EXPECT_TRUE(says(said, "Last gather   2023-11-14 22:03, 10 min ago\n"));
  EXPECT_TRUE(says(said, "Queue         1 running job to be looked at again\n"));
  EXPECT_TRUE(says(said, "Waiting       1 backup waits for the detection"));
  EXPECT_TRUE(says(said, "Streams       2: 1 judged, 1 learning, 0 dormant\n"));
  EXPECT_TRUE(says(said, "Incidents     2 not over\n"));
  EXPECT_TRUE(says(said, "Anomalies     3: 2 not reviewed, 0 confirmed, 1 false positive\n"));
}

TEST_F(Commands, StatusAsJson) {
  gathered(kNow - 600);
  history({}, 40);
  three_anomalies();
  const JsonPtr root = json({"status"});
  EXPECT_EQ(number(root.get(), {"time"}), kNow);
  EXPECT_EQ(number(root.get(), {"gather", "last"}), kNow - 600);
  EXPECT_TRUE(json_is_null(json_object_get(json_object_get(root.get(), "gather"), "next")));
  EXPECT_EQ(number(root.get(), {"streams", "judged"}), 1);
  EXPECT_EQ(number(root.get(), {"anomalies", "total"}), 3);
  EXPECT_EQ(number(root.get(), {"anomalies", "false_positive"}), 1);
  EXPECT_EQ(number(root.get(), {"open_incidents"}), 2);
  EXPECT_EQ(json_array_size(json_object_get(root.get(), "processes")), 3U);
}

TEST_F(Commands, NextGatherIsAnIntervalAfterTheLast) {
  running("cvanomalymgmt");
  const std::int64_t later = time(nullptr) + 10 * kDay;  // than this process began
  fake.now = later;
  gathered(later - 600);
  const JsonPtr root = json({"status"});
  EXPECT_EQ(number(root.get(), {"gather", "next"}), later - 600 + 15 * 60);
}

TEST_F(Commands, StatusNamesChannelsThatFail) {
  {
    alert::StateDatabase state(directory_("CV_Anomaly_Alerts.db"));
    test::query(state.handle(),
                "INSERT INTO channel VALUES ('mail', 3, 0, 1, 'no\x1B[31m answer', 0, 5)");
    test::query(state.handle(), "INSERT INTO delivery VALUES (1, 'mail', 1, 1, 2, 0, " +
                                    std::to_string(kNow - 600) + ", 0, 0, 1, 1, 'no answer', 0)");
  }
  const Said said = say({"status"});
  EXPECT_TRUE(says(said,
                   "Undelivered   1 message waits, the oldest for 10 min; 0 given up; mail "
                   "fails: no [31m answer\n"))
      << said.out;
}

TEST_F(Commands, StreamsWithFilters) {
  history({.client = "a"}, 40);
  history({.client = "b"}, 3);
  Said said = say({"streams"});
  EXPECT_TRUE(says(said, "learning 3 of 30")) << said.out;
  EXPECT_TRUE(says(said, "\n2 streams\n"));
  said = say({"streams", "--state", "learning"});
  EXPECT_TRUE(says(said, "\n1 stream\n"));
  EXPECT_TRUE(says(said, "\nb "));
  const JsonPtr root = json({"streams", "--client", "a"});
  const json_t* streams = json_object_get(root.get(), "streams");
  ASSERT_EQ(json_array_size(streams), 1U);
  EXPECT_EQ(number(json_array_get(streams, 0), {"records"}), 40);
  EXPECT_EQ(number(json_array_get(streams, 0), {"that_matter"}), 40);
  EXPECT_EQ(number(json_array_get(streams, 0), {"reported"}), 0);
  EXPECT_EQ(say({"streams", "--state", "odd"}).status, 2);
  EXPECT_EQ(say({"streams", "--config", directory_("none.conf")}).status, 2);
}

TEST_F(Commands, StreamsCountWhatMattersForTheNextVerdict) {
  history({.time = kNow - 400 * kDay}, 40);
  history({}, 4);
  insert("DATA_TO_PROCESS", {.mark = 2});
  const Said said = say({"streams"});
  EXPECT_TRUE(says(said, "Accepted  Last              Waiting  Anomalous  State")) << said.out;
  EXPECT_TRUE(says(said, "      44  2023-11-14 22:13        0          1  learning 4 of 30\n"))
      << said.out;
  const JsonPtr root = json({"streams"});
  const json_t* stream = json_array_get(json_object_get(root.get(), "streams"), 0);
  EXPECT_EQ(number(stream, {"records"}), 44);
  EXPECT_EQ(number(stream, {"that_matter"}), 4);
  EXPECT_EQ(number(stream, {"reported"}), 1);
}

TEST_F(Commands, ShowByAnyOfItsNames) {
  three_anomalies();
  history({.client = "b", .time = kNow - kDay}, 40);
  insert("DATA_TO_PROCESS", {.client = "b", .time = kNow - kDay, .mark = 2, .files = 100});
  const std::string key = key_of({.client = "b", .time = kNow - kDay});
  for (const std::string& name : {"anomaly_" + key, key, "b_" + std::to_string(kNow - kDay)}) {
    const Said said = say({"show", name});
    EXPECT_EQ(said.status, 0) << said.error;
    EXPECT_TRUE(says(said, "Anomaly       anomaly_" + key + "\n")) << said.out;
    EXPECT_TRUE(says(said, "Severity      critical\n"));
    EXPECT_TRUE(says(said, "Cause         Files may have been encrypted.\n"));
    EXPECT_TRUE(says(said, "Stream        b, policy nightly, schedule daily (FULL)\n"));
    EXPECT_TRUE(says(said, "Last good     good of 2023-11-13 18:26 UTC\n"));
    EXPECT_TRUE(says(said, "Review        false positive, since 2023-11-13 23:13\n"));
    EXPECT_TRUE(says(said, "Files        100  1,000  990 to 1,010         -9\n"));
    EXPECT_TRUE(says(said, "Files of the stream's last backups"));
    EXPECT_TRUE(says(said, "^\n"));
  }
  const Said none = say({"show", "nothing"});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.error,
            "cvanomalyctl: No anomaly has the id, and none is of the backup, nothing.\n");
}

TEST_F(Commands, ShowOfDetailsThatAreNoJson) {
  sql("INSERT INTO ANOMALY_DATA VALUES ('x', '{broken', 0, 'key', 'cl', 99)");
  const Said said = say({"show", "x"});
  EXPECT_EQ(said.status, 0);
  EXPECT_TRUE(says(said, "Cause         not known\n")) << said.out;
}

TEST_F(Commands, ShowAsJsonHasTheHistory) {
  three_anomalies();
  history({.client = "c"}, 5);
  insert("DATA_TO_PROCESS", {.client = "c", .mark = 2});
  const JsonPtr root = json({"show", key_of({.client = "c"})});
  EXPECT_EQ(json_array_size(json_object_get(root.get(), "history")), 6U);
  EXPECT_EQ(number(json_object_get(root.get(), "anomaly"), {"severity"}), 2);
}

TEST_F(Commands, ExplainSaysHowABackupIsJudged) {
  history({}, 60);
  insert("DATA_TO_PROCESS", {.mark = 0, .files = 20, .size_kb = 900});
  const std::string key = key_of({});
  const Said said = say({"explain", key});
  EXPECT_EQ(said.status, 0) << said.error;
  EXPECT_TRUE(says(said, "Verdict       anomalous\n")) << said.out;
  EXPECT_TRUE(says(said, "Stream then   judged\n"));
  EXPECT_TRUE(says(said, "Stream        web01, policy nightly, schedule daily (FULL)\n"));
  EXPECT_TRUE(says(said, "Last good     web01_" + std::to_string(kNow - kDay) + " of 2023-11-13"));
  EXPECT_TRUE(says(said, "Judged by     own history, 60 records, 0 percent of them noise\n"));
  const JsonPtr root = json({"explain", key});
  EXPECT_STREQ(
      json_string_value(json_object_get(json_object_get(root.get(), "judgement"), "state")),
      "anomalous");
  EXPECT_EQ(say({"explain", "none"}).status, 1);
}

// As the detection's own log has it.
TEST_F(Commands, ExplainRoundsTheShareOfNoise) {
  history({}, 53);
  for (const int days : {70, 80})
    insert("HIST_DATA", {.time = kNow - days * kDay, .files = 9000000});
  insert("DATA_TO_PROCESS", {.mark = 0});
  const JsonPtr root = json({"explain", key_of({})});
  const double noise = 100 * json_real_value(json_object_get(
                                 json_object_get(root.get(), "judgement"), "history_noise"));
  ASSERT_LT(noise, 2);  // and what cuts it off would say 1
  EXPECT_TRUE(says(say({"explain", key_of({})}), "55 records, 2 percent of them noise\n"));
}

TEST_F(Commands, ExplainGoesByTheConfiguration) {
  configure("[ANOMALY_MODEL_SETTINGS]\nMIN_OBSERVATIONS_FOR_TRAINING=100\n");
  history({}, 60);
  EXPECT_TRUE(says(say({"explain", key_of({.time = kNow - kDay})}), "learning 59 of 100"));
}

TEST_F(Commands, BacktestJudgesAgain) {
  history({}, 60);
  insert("DATA_TO_PROCESS", {.mark = 2, .files = 20, .size_kb = 900});
  const Said said = say({"backtest", "5"});
  EXPECT_TRUE(says(said, "5 backups judged again, 1 would have been reported")) << said.out;
  EXPECT_TRUE(says(said, key_of({})));
  const JsonPtr root = json({"backtest", "5"});
  EXPECT_EQ(number(root.get(), {"judged"}), 5);
  EXPECT_EQ(number(root.get(), {"days"}), 5);
  EXPECT_EQ(say({"backtest", "0"}).status, 2);
  EXPECT_EQ(say({"backtest"}).status, 2);
}

TEST_F(Commands, HostileNamesNeverReachTheTerminal) {
  const std::string name = "evil\x1B]0;x\x07\x1B[2J\r\n\x7F\xC2\x9B\xE2\x80\xAE\xE2\x80\x8B\xFF<b>";
  TestBackup bad{.client = name, .policy = name, .schedule = name};
  history(bad, 40);
  sql("INSERT INTO ANOMALY_DATA VALUES (" + quoted("anomaly_" + name) + ", " + quoted(name) +
      ", 0, " + quoted(name) + ", " + quoted(name) + ", 99)");
  for (const std::vector<std::string>& command : {std::vector<std::string>{"status"},
                                                  {"streams"},
                                                  {"anomalies"},
                                                  {"show", "anomaly_" + name},
                                                  {"show", "no" + name},
                                                  {"explain", name},
                                                  {"check"},
                                                  {"status", "--json"},
                                                  {"streams", "--json"},
                                                  {"anomalies", "--json"},
                                                  {"show", "--json", "anomaly_" + name}}) {
    const Said said = say(command);
    for (const char letter : said.out + said.error) {
      const auto byte = static_cast<unsigned char>(letter);
      EXPECT_TRUE(byte == '\n' || (byte >= 0x20 && byte != 0x7F)) << command[0] << " " << +byte;
    }
    for (const char* character : {"\xC2\x9B", "\xE2\x80\xAE", "\xE2\x80\x8B"}) {
      EXPECT_EQ((said.out + said.error).find(character), std::string::npos) << command[0];
    }
  }
  json({"streams"});
  json({"anomalies"});
}

TEST_F(Commands, TablesFitTheTerminal) {
  history({.client = std::string(300, 'x')}, 3);
  three_anomalies();
  setenv("COLUMNS", "72", 1);
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"streams"}, {"anomalies"}}) {
    const std::string out = say(command).out;
    for (std::size_t at = 0; at < out.size();) {
      const std::size_t end = out.find('\n', at);
      EXPECT_LE(end - at, 72U + 10) << out.substr(at, end - at);  // the ellipses' bytes
      at = end + 1;
    }
  }
  unsetenv("COLUMNS");
}

TEST_F(Commands, WrongArgumentsAreOneLine) {
  const auto expect_wrong = [&](const std::vector<std::string>& arguments, const std::string& why) {
    const Said said = say(arguments);
    EXPECT_EQ(said.status, 2) << why;
    EXPECT_EQ(said.out, "");
    EXPECT_EQ(said.error, "cvanomalyctl: " + why + " (--help tells more)\n");
  };
  expect_wrong({}, "A subcommand is required");
  expect_wrong({"streams", "--x"}, "The following argument was not expected: --x");
  expect_wrong({"streams", "a\nb"}, "The following argument was not expected: a b");
  expect_wrong({"anomalies", "--severity", "4"}, "--severity: Value 4 not in range 1 to 3");
  expect_wrong({"status", "--config", "/none.conf"}, "--config: File does not exist: /none.conf");
}

TEST_F(Commands, HelpIsGivenWhenAskedFor) {
  for (const std::vector<std::string>& asked :
       {std::vector<std::string>{"--help"}, {"check", "--help"}, {"--x", "streams", "--help"}}) {
    const Said said = say(asked);
    EXPECT_EQ(said.status, 0);
    EXPECT_TRUE(says(said, "Usage: cvanomalyctl")) << said.out;
    EXPECT_EQ(said.error, "");
  }
  EXPECT_TRUE(says(say({"--help"}), "Exit status:"));
}

TEST_F(Commands, ReadingChangesNothing) {
  history({}, 40);
  three_anomalies();
  close_database();
  const std::string before = test::read_file(database());
  for (const std::vector<std::string>& command : {std::vector<std::string>{"status"},
                                                  {"streams"},
                                                  {"anomalies"},
                                                  {"backtest", "5"},
                                                  {"check"}}) {
    const Said said = say(command);
    EXPECT_EQ(said.status, command[0] == "check" ? 2 : 0) << command[0] << said.error;
    EXPECT_NE(said.out, "") << command[0];
  }
  EXPECT_EQ(test::read_file(database()), before);
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory_())) {
    names.push_back(entry.path().filename());
  }
  EXPECT_EQ(names, std::vector<std::string>{"CV_Anomaly.db"});
}

}  // namespace
}  // namespace corvane::ctl
