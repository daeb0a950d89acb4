#include "tests/unit/operator_tool/layout/commands_world.h"

namespace corvane::ctl {
namespace {

// One that is judged, with a backup of each kind; one that is learning; one that is dormant.
class StreamsCommand : public Commands {
 protected:
  StreamsCommand() {
    history({.client = "a", .policy = "p1", .schedule = "s1"}, 40);
    insert(
        "HIST_DATA",
        {.client = "a", .time = kNow - 9 * kDay - 1, .mark = 1, .policy = "p1", .schedule = "s1"});
    for (const int ago : {300, 200}) {
      insert("DATA_TO_PROCESS",
             {.client = "a", .time = kNow - ago, .mark = 2, .policy = "p1", .schedule = "s1"});
    }
    insert("DATA_TO_PROCESS",
           {.client = "a", .time = kNow - 100, .mark = 0, .policy = "p1", .schedule = "s1"});
    history({.client = "b",
             .time = kNow - kDay,
             .policy = "p2",
             .schedule_type = "INCR",
             .schedule = "s2",
             .app = "SQL",
             .destination = "tape"},
            3);
    history({.client = "c", .time = kNow - 400 * kDay}, 4);
  }
  // The clients of those that are listed.
  std::string clients(const std::vector<std::string>& more) {
    std::vector<std::string> all{"streams"};
    all.insert(all.end(), more.begin(), more.end());
    const JsonPtr root = json(all);
    const json_t* array = json_object_get(root.get(), "streams");
    std::string names;
    for (std::size_t i = 0; i < json_array_size(array); ++i) {
      names += json_string_value(json_object_get(json_array_get(array, i), "client"));
    }
    return names;
  }
};

TEST_F(StreamsCommand, Whole) {
  EXPECT_EQ(
      say({"streams"}).out,
      "Client  Policy   Schedule  Type  Application  Destination  Accepted  Last              "
      "Waiting  Anomalous  State\n"
      "a       p1       s1        FULL  FS           disk               40  2023-11-14 22:11       "
      " "
      "1          2  judged\n"
      "b       p2       s2        INCR  SQL          tape                3  2023-11-12 22:13       "
      " "
      "0          0  learning 3 of 30\n"
      "c       nightly  daily     FULL  FS           disk                4  2022-10-09 22:13       "
      " "
      "0          0  dormant\n"
      "\n3 streams\n");
}

TEST_F(StreamsCommand, TextsBeginAtTheLeft) {
  history({.client = "d", .policy = "p", .schedule_type = "X", .schedule = "s", .app = "A"}, 3);
  EXPECT_TRUE(says(say({"streams"}),
                   "\nd       p        s         X     A            disk                3  "));
}

TEST_F(StreamsCommand, Filters) {
  EXPECT_EQ(clients({}), "abc");
  EXPECT_EQ(clients({"--client", "b"}), "b");
  EXPECT_EQ(clients({"--client", "x"}), "");
  EXPECT_EQ(clients({"--state", "learning"}), "b");
  EXPECT_EQ(clients({"--state", "judged"}), "a");
  EXPECT_EQ(clients({"--state", "dormant"}), "c");
  EXPECT_EQ(clients({"--state", "dormant", "--client", "b"}), "");
  EXPECT_EQ(clients({"--state", "dormant", "--client", "c"}), "c");
  EXPECT_TRUE(says(say({"streams", "--client", "b"}), "\n1 stream\n"));
}

TEST_F(StreamsCommand, AsJson) {
  configure("[ANOMALY_MODEL_SETTINGS]\nMIN_OBSERVATIONS_FOR_TRAINING=29\n");
  const JsonPtr root = json({"streams", "--client", "a"});
  EXPECT_EQ(number(root.get(), {"records_wanted"}), 29);
  EXPECT_EQ(compact(json_object_get(root.get(), "streams")),
            R"([{"client":"a","policy":"p1","policy_type":"STANDARD","schedule_type":"FULL",)"
            R"("schedule_name":"s1","application_type":"FS","destination":"disk",)"
            R"("state":"judged","records":40,"that_matter":40,"by_people":1,"waiting":1,)"
            R"("reported":2,"first":1696544000,"last":1699913600,"newest":1699999900}])");
}

TEST_F(StreamsCommand, WhatDoesNotMatterIsNotCounted) {
  history({.client = "d", .time = kNow - 500 * kDay}, 40);
  history({.client = "d"}, 4);
  const JsonPtr root = json({"streams", "--client", "d"});
  const json_t* stream = json_array_get(json_object_get(root.get(), "streams"), 0);
  EXPECT_EQ(number(stream, {"records"}), 44);
  EXPECT_EQ(number(stream, {"that_matter"}), 4);
  EXPECT_TRUE(says(say({"streams", "--client", "d"}), "       44  2023-11-13 22:13"));
  EXPECT_TRUE(says(say({"streams", "--client", "d"}), "  learning 4 of 30\n"));
}

TEST_F(StreamsCommand, Colours) {
  const std::string text = in_colour(run_streams);
  EXPECT_NE(text.find("\x1B[33m        2\x1B[0m  judged\n"), std::string::npos) << text;
  EXPECT_NE(text.find("  \x1B[2mlearning 3 of 30\x1B[0m\n"), std::string::npos);
  EXPECT_NE(text.find("        0  \x1B[2mdormant\x1B[0m\n"), std::string::npos);
}

TEST_F(StreamsCommand, OneAnomalyIsColouredToo) {
  insert("DATA_TO_PROCESS", {.client = "d", .mark = 2});
  Options options;
  options.client = "d";
  const std::string text = in_colour(run_streams, options);
  EXPECT_NE(text.find("\x1B[33m        1\x1B[0m"), std::string::npos) << text;
}

TEST_F(StreamsCommand, WhatFitsTheTerminal) {
  const std::string name(30, 'n');
  history({.client = name,
           .policy = name,
           .schedule_type = name,
           .schedule = name,
           .app = name,
           .destination = name},
          1);
  EXPECT_EQ(titles_by_width(run_streams), R"(1: Client        Policy    Schedule  Accepted  State
78: Client        Policy    Schedule  Accepted  Last              State
84: Client        Policy    Schedule  Type  Accepted  Last              State
97: Client        Policy    Schedule  Type  Destination  Accepted  Last              State
110: Client        Policy    Schedule  Type  Application  Destination  Accepted  Last              State
121: Client        Policy    Schedule  Type  Application  Destination  Accepted  Last              Anomalous  State
130: Client        Policy    Schedule  Type  Application  Destination  Accepted  Last              Waiting  Anomalous  State
)");
}

}  // namespace
}  // namespace corvane::ctl
