#include "tests/unit/operator_tool/layout/commands_world.h"

namespace corvane::ctl {
namespace {

class AnomaliesCommand : public Commands {
 protected:
  // The clients of those that are listed, in the list's order.
  std::string clients(std::vector<std::string> filter) {
    filter.insert(filter.begin(), "anomalies");
    const JsonPtr root = json(filter);
    const json_t* array = json_object_get(root.get(), "anomalies");
    std::string names;
    for (std::size_t i = 0; i < json_array_size(array); ++i) {
      names += json_string_value(json_object_get(json_array_get(array, i), "client"));
    }
    return names;
  }
};

TEST_F(AnomaliesCommand, TheNewestFirst) {
  three_anomalies();
  const std::string a = "anomaly_" + key_of({.client = "a", .time = kNow - 40 * kDay});
  const std::string b = "anomaly_" + key_of({.client = "b", .time = kNow - kDay});
  const std::string c = "anomaly_" + key_of({.client = "c"});
  EXPECT_EQ(
      say({"anomalies"}).out,
      "Time              Severity  Client  Policy   Schedule  Cause       Review          "
      "Incident  ID\n"
      "2023-11-14 22:13  major     c       nightly  daily     encryption  not reviewed    "
      "ongoing   " +
          c +
          "\n"
          "2023-11-13 22:13  critical  b       nightly  daily     encryption  false positive  "
          "resolved  " +
          b +
          "\n"
          "2023-10-05 22:13  warning   a       nightly  daily     encryption  not reviewed    "
          "ongoing   " +
          a +
          "\n"
          "\n3 anomalies\n");
  EXPECT_TRUE(says(say({"anomalies", "--client", "a"}), "\n1 anomaly\n"));
}

TEST_F(AnomaliesCommand, DaysCountFromNow) {
  for (const int ago : {0, 1})
    anomaly({.client = ago == 0 ? "b" : "c", .time = kNow - kDay - ago}, 2, {});
  EXPECT_EQ(clients({"--days", "1"}), "b");
  EXPECT_EQ(clients({"--days", "2"}), "bc");
}

TEST_F(AnomaliesCommand, Colours) {
  three_anomalies();
  const std::string text = in_colour(run_anomalies);
  for (const char* cell : {"  \x1B[33mmajor\x1B[0m     c ", "  \x1B[31mcritical\x1B[0m  b ",
                           "  warning   a ", "  not reviewed    ongoing   ",
                           "  \x1B[2mfalse positive\x1B[0m  \x1B[2mresolved\x1B[0m  "}) {
    EXPECT_NE(text.find(cell), std::string::npos) << cell << "\n" << text;
  }
}

TEST_F(AnomaliesCommand, FormerNamesOfTheFilters) {
  three_anomalies();
  EXPECT_EQ(clients({"--open"}), clients({"--not-reviewed"}));
  EXPECT_EQ(clients({"--judged"}), clients({"--reviewed"}));
  EXPECT_EQ(clients({"--over"}), clients({"--resolved"}));
  EXPECT_EQ(clients({"--not-over"}), clients({"--ongoing"}));
}

TEST_F(AnomaliesCommand, WithFilters) {
  three_anomalies();
  EXPECT_EQ(clients({}), "cba");
  EXPECT_EQ(clients({"--client", "b"}), "b");
  EXPECT_EQ(clients({"--severity", "2"}), "cb");
  EXPECT_EQ(clients({"--days", "2"}), "cb");
  EXPECT_EQ(clients({"--not-reviewed"}), "ca");
  EXPECT_EQ(clients({"--reviewed"}), "b");
  EXPECT_EQ(clients({"--reviewed", "--days", "2", "--severity", "3"}), "b");
  EXPECT_EQ(say({"anomalies", "--open", "--reviewed"}).status, 2);
  EXPECT_EQ(say({"anomalies", "--severity", "4"}).status, 2);
}

// A review tells of a record, its incident may be resolved without one.
TEST_F(AnomaliesCommand, ReviewAndIncidentAreTwoColumns) {
  const TestBackup first{.client = "a", .time = kNow - 3 * kDay};
  for (const int day : {3, 2, 1}) anomaly({.client = "a", .time = kNow - day * kDay}, 2, first);
  feedback({.client = "a", .time = kNow - 2 * kDay}, 1);
  const TestBackup ended{.client = "b", .time = kNow - 5 * kDay};
  anomaly(ended, 2, ended);
  insert("HIST_DATA", {.client = "b", .time = kNow - 4 * kDay});
  anomaly({.client = "c"}, 2, {.client = "c"});
  feedback({.client = "c"}, 0);
  const Said said = say({"anomalies"});
  EXPECT_TRUE(says(said, "Cause       Review          Incident  ID")) << said.out;
  for (const char* row :
       {"c       nightly  daily     encryption  confirmed       ongoing   anomaly_",
        "a       nightly  daily     encryption  not reviewed    resolved  anomaly_",
        "a       nightly  daily     encryption  false positive  resolved  anomaly_",
        "b       nightly  daily     encryption  not reviewed    resolved  anomaly_"}) {
    EXPECT_TRUE(says(said, row)) << row << "\n" << said.out;
  }
  EXPECT_EQ(clients({}), "caaab");
  EXPECT_EQ(clients({"--resolved"}), "aaab");
  EXPECT_EQ(clients({"--ongoing"}), "c");
  EXPECT_EQ(clients({"--not-reviewed", "--resolved"}), "aab");
  EXPECT_EQ(clients({"--not-reviewed", "--ongoing"}), "");
  EXPECT_EQ(clients({"--client", "b", "--resolved"}), "b");
  EXPECT_EQ(say({"anomalies", "--resolved", "--ongoing"}).status, 2);
  EXPECT_EQ(say({"anomalies", "--reviewed", "--not-reviewed"}).status, 2);
}

// What resolves the incident is not among what is asked for.
TEST_F(AnomaliesCommand, AnIncidentIsResolvedByRecordsThatAreNotListed) {
  const TestBackup first{.time = kNow - 40 * kDay};
  anomaly(first, 1, first);
  anomaly({}, 3, first);
  feedback(first, 1);
  EXPECT_EQ(clients({"--severity", "3", "--resolved"}), "web01");
  EXPECT_EQ(clients({"--days", "2", "--ongoing"}), "");
}

TEST_F(AnomaliesCommand, AsJsonHasDetailsAndWhetherTheIncidentIsResolved) {
  three_anomalies();
  const JsonPtr root = json({"anomalies"});
  const json_t* array = json_object_get(root.get(), "anomalies");
  ASSERT_EQ(json_array_size(array), 3U);
  const json_t* b = json_array_get(array, 1);
  EXPECT_STREQ(json_string_value(json_object_get(b, "state")), "false_positive");
  EXPECT_TRUE(json_is_true(json_object_get(b, "incident_over")));
  EXPECT_TRUE(json_is_false(json_object_get(json_array_get(array, 0), "incident_over")));
  EXPECT_TRUE(json_is_object(json_object_get(b, "details")));
}

TEST_F(AnomaliesCommand, WhatFitsTheTerminal) {
  const std::string name(30, 'n');
  const TestBackup long_one{.client = name, .policy = name, .schedule = name};
  anomaly(long_one, 3, long_one);
  sql("UPDATE ANOMALY_DATA SET ANOMALY_DETAILS = replace(ANOMALY_DETAILS, 'encryption', "
      "'mass_deletion')");
  EXPECT_TRUE(says(say({"anomalies"}), "  Cause          Review        Incident  ID"));
  EXPECT_EQ(titles_by_width(run_anomalies), R"(1: Time              Client      Cause
50: Time              Client      Cause       Incident
60: Time              Severity  Client      Cause       Incident
74: Time              Severity  Client      Cause       Review        Incident
84: Time              Severity  Client      Policy    Cause       Review        Incident
94: Time              Severity  Client      Policy    Schedule  Cause       Review        Incident
120: Time              Severity  Client      Policy    Schedule  Cause       Review        Incident  ID
)");
}

TEST_F(AnomaliesCommand, NoAnomalies) { EXPECT_EQ(say({"anomalies"}).out, "No anomalies.\n"); }

}  // namespace
}  // namespace corvane::ctl
