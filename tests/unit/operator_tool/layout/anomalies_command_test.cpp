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
  const Said said = say({"anomalies"});
  const std::size_t c = said.out.find("\n2023-11-14 22:13  major     c ");
  const std::size_t b = said.out.find("\n2023-11-13 22:13  critical  b ");
  const std::size_t a = said.out.find("warning   a ");
  EXPECT_TRUE(says(said, "\n3 anomalies\n")) << said.out;
  EXPECT_TRUE(says(said, "false positive  over "));
  EXPECT_LT(c, b);
  EXPECT_LT(b, a);
}

TEST_F(AnomaliesCommand, WithFilters) {
  three_anomalies();
  EXPECT_EQ(clients({}), "cba");
  EXPECT_EQ(clients({"--client", "b"}), "b");
  EXPECT_EQ(clients({"--severity", "2"}), "cb");
  EXPECT_EQ(clients({"--days", "2"}), "cb");
  EXPECT_EQ(clients({"--open"}), "ca");
  EXPECT_EQ(clients({"--judged"}), "b");
  EXPECT_EQ(clients({"--not-reviewed"}), "ca");
  EXPECT_EQ(clients({"--reviewed"}), "b");
  EXPECT_EQ(clients({"--judged", "--days", "2", "--severity", "3"}), "b");
  EXPECT_EQ(say({"anomalies", "--open", "--judged"}).status, 2);
  EXPECT_EQ(say({"anomalies", "--severity", "4"}).status, 2);
}

// A review tells of a record, its incident may be over without one.
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
  EXPECT_TRUE(says(said, "Looks like  Review          Incident  ID")) << said.out;
  for (const char* row :
       {"c       nightly  daily     encryption  confirmed       not over  anomaly_",
        "a       nightly  daily     encryption  not reviewed    over      anomaly_",
        "a       nightly  daily     encryption  false positive  over      anomaly_",
        "b       nightly  daily     encryption  not reviewed    over      anomaly_"}) {
    EXPECT_TRUE(says(said, row)) << row << "\n" << said.out;
  }
  EXPECT_EQ(clients({}), "caaab");
  EXPECT_EQ(clients({"--over"}), "aaab");
  EXPECT_EQ(clients({"--not-over"}), "c");
  EXPECT_EQ(clients({"--not-reviewed", "--over"}), "aab");
  EXPECT_EQ(clients({"--not-reviewed", "--not-over"}), "");
  EXPECT_EQ(clients({"--client", "b", "--over"}), "b");
  EXPECT_EQ(say({"anomalies", "--over", "--not-over"}).status, 2);
  EXPECT_EQ(say({"anomalies", "--reviewed", "--not-reviewed"}).status, 2);
}

// What ends the incident is not among what is asked for.
TEST_F(AnomaliesCommand, AnIncidentIsOverByRecordsThatAreNotListed) {
  const TestBackup first{.time = kNow - 40 * kDay};
  anomaly(first, 1, first);
  anomaly({}, 3, first);
  feedback(first, 1);
  EXPECT_EQ(clients({"--severity", "3", "--over"}), "web01");
  EXPECT_EQ(clients({"--days", "2", "--not-over"}), "");
}

TEST_F(AnomaliesCommand, AsJsonHasDetailsAndWhetherTheIncidentIsOver) {
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

TEST_F(AnomaliesCommand, NoAnomalies) { EXPECT_EQ(say({"anomalies"}).out, "No anomalies.\n"); }

}  // namespace
}  // namespace corvane::ctl
