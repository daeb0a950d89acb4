#include "operator_tool/ask/anomalies.h"

#include <jansson.h>

#include <cstdlib>

#include "health/database.h"
#include "tests/unit/operator_tool/operator_world.h"
#include "util/json.h"

namespace corvane::ctl {
namespace {

class FindAnomaly : public OperatorWorld {
 protected:
  void row(const std::string& id, const std::string& backup_id, std::int64_t time) {
    sql("INSERT INTO ANOMALY_DATA VALUES (" + quoted(id) + ", " +
        quoted(R"({"backup_id":)" + quoted_json(backup_id) + R"(,"time":)" + std::to_string(time) +
               "}") +
        ", 0, 'key', 'client', 5)");
  }
  // Its id; empty when none is found.
  std::string found(const std::string& asked) {
    Database opened(database());
    const auto anomaly = find_anomaly(opened.connection(), asked);
    return anomaly ? anomaly->anomaly.row.id : "";
  }
};

TEST_F(FindAnomaly, ByAnyOfItsNames) {
  row("anomaly_data_7_web01_5", "web01_5", 5);
  EXPECT_EQ(found("anomaly_data_7_web01_5"), "anomaly_data_7_web01_5");
  EXPECT_EQ(found("data_7_web01_5"), "anomaly_data_7_web01_5");
  EXPECT_EQ(found("web01_5"), "anomaly_data_7_web01_5");
  for (const char* other : {"", "5", "eb01_5", "7_web01_5", "web01_55", "WEB01_5", "%", "_"}) {
    EXPECT_EQ(found(other), "") << other;
  }
}

TEST_F(FindAnomaly, ByBackupIdsThatHoldAnything) {
  const std::vector<std::string> hostile{"it's",
                                         "a\"b",
                                         "100%",
                                         "%",
                                         "_",
                                         "b\\a",
                                         "\xC3\xA4\xE6\x9D\xB1",
                                         "a\nb",
                                         "*?[a]",
                                         "' OR 1=1 --",
                                         "\xF0\x9F\x98\x80",
                                         "a b"};
  for (const std::string& id : hostile) {
    row("anomaly_data_7_" + id, id, 5);
    row("named otherwise " + id, id + "x", 5);
  }
  for (const std::string& id : hostile) {
    EXPECT_EQ(found(id), "anomaly_data_7_" + id);
    EXPECT_EQ(found(id + "x"), "named otherwise " + id);
    EXPECT_EQ(found(id + "y"), "");
  }
}

TEST_F(FindAnomaly, OfABackupWhoseIdIsTheTailOfAnothers) {
  row("anomaly_data_8_other_web01_5", "other_web01_5", 9);
  EXPECT_EQ(found("web01_5"), "");
  row("anomaly_data_7_web01_5", "web01_5", 5);
  EXPECT_EQ(found("web01_5"), "anomaly_data_7_web01_5");
  EXPECT_EQ(found("other_web01_5"), "anomaly_data_8_other_web01_5");
}

TEST_F(FindAnomaly, OfABackupThatOtherIdsEndWithAndItsOwnDoesNot) {
  row("anomaly_data_8_other_web01_5", "other_web01_5", 9);
  row("by another program", "web01_5", 5);
  EXPECT_EQ(found("web01_5"), "by another program");
}

TEST_F(FindAnomaly, OnlyTheBackupOfTheDetailsCounts) {
  sql("INSERT INTO ANOMALY_DATA VALUES ('x', '{\"last_good\":{\"backup_id\":\"web01_5\"}}', 0, "
      "'key', 'client', 5)");
  EXPECT_EQ(found("web01_5"), "");
  sql("INSERT INTO ANOMALY_DATA VALUES ('anomaly_data_7_web01_5', '{broken', 0, 'key', 'cl', 5)");
  EXPECT_EQ(found("web01_5"), "");
  EXPECT_EQ(found("data_7_web01_5"), "anomaly_data_7_web01_5");
}

TEST_F(FindAnomaly, TheNewestOfABackup) {
  row("anomaly_data_7_web01_5", "web01_5", 5);
  row("anomaly_data_8_web01_5", "web01_5", 9);
  row("anomaly_data_9_web01_5", "web01_5", 7);
  EXPECT_EQ(found("web01_5"), "anomaly_data_8_web01_5");
  row("anomaly_data_70_web01_5", "web01_5", 9);  // of two that are as new, the first id
  EXPECT_EQ(found("web01_5"), "anomaly_data_70_web01_5");
}

TEST_F(FindAnomaly, WithItsDetails) {
  row("anomaly_data_7_web01_5", "web01_5", 5);
  sql("INSERT INTO ANOMALY_DATA VALUES ('broken', '{broken', 0, 'key', 'client', 5)");
  Database opened(database());
  for (const char* name : {"anomaly_data_7_web01_5", "data_7_web01_5", "web01_5"}) {
    const auto anomaly = find_anomaly(opened.connection(), name);
    ASSERT_TRUE(anomaly) << name;
    EXPECT_STREQ(json_string_value(json_object_get(anomaly->details.get(), "backup_id")),
                 "web01_5");
    EXPECT_EQ(anomaly->anomaly.finding.time, 5);
  }
  EXPECT_EQ(find_anomaly(opened.connection(), "broken")->details, nullptr);
}

// JSON documents are made of memory, so that none is parsed where none is taken.
std::size_t taken = 0;
void* counting_malloc(std::size_t bytes) {
  ++taken;
  return std::malloc(bytes);
}

TEST_F(FindAnomaly, ParsesNoDetailsOfOthers) {
  row("anomaly_data_7_web01_5", "web01_5", 5);
  row("by another program", "db01_5", 5);
  const auto taken_for = [&](const std::string& asked) {
    taken = 0;
    json_set_alloc_funcs(counting_malloc, std::free);
    const std::string id = found(asked);
    json_set_alloc_funcs(std::malloc, std::free);
    EXPECT_NE(id, "") << asked;
    return taken;
  };
  const std::vector<std::string> names{"anomaly_data_7_web01_5", "data_7_web01_5", "web01_5",
                                       "db01_5"};
  std::vector<std::size_t> alone;
  for (const std::string& name : names) alone.push_back(taken_for(name));
  EXPECT_GT(alone.front(), 0U);
  for (int i = 0; i < 100; ++i) row("anomaly_of " + std::to_string(i), "other", i);
  for (std::size_t i = 0; i < names.size(); ++i) EXPECT_EQ(taken_for(names[i]), alone[i]);
}

TEST(AnomalyFilterTest, PassesWhatItAsksForAlone) {
  Anomaly anomaly;
  anomaly.finding.stream.client = "web01";
  anomaly.finding.severity = Severity::kMajor;
  anomaly.finding.time = 100;
  anomaly.row.detection_time = 200;
  const auto passes = [&](const AnomalyFilter& filter) { return filter.passes(anomaly); };
  EXPECT_TRUE(passes({}));
  EXPECT_TRUE(passes({.client = "web01", .severity = 0, .since = 0, .is_reviewed = {}}));
  EXPECT_FALSE(passes({.client = "web0", .severity = 0, .since = 0, .is_reviewed = {}}));
  EXPECT_TRUE(passes({.client = "", .severity = 2, .since = 0, .is_reviewed = {}}));
  EXPECT_FALSE(passes({.client = "", .severity = 3, .since = 0, .is_reviewed = {}}));
  EXPECT_TRUE(passes({.client = "", .severity = 0, .since = 100, .is_reviewed = {}}));
  EXPECT_FALSE(passes({.client = "", .severity = 0, .since = 101, .is_reviewed = {}}));
  anomaly.finding.time = 0;  // then the detection's counts
  EXPECT_TRUE(passes({.client = "", .severity = 0, .since = 200, .is_reviewed = {}}));
  EXPECT_FALSE(passes({.client = "", .severity = 0, .since = 201, .is_reviewed = {}}));
  for (const auto feedback : {Feedback::kFalsePositive, Feedback::kNoFalsePositive}) {
    anomaly.row.feedback = {};
    EXPECT_TRUE(passes({.client = "", .severity = 0, .since = 0, .is_reviewed = false}));
    EXPECT_FALSE(passes({.client = "", .severity = 0, .since = 0, .is_reviewed = true}));
    anomaly.row.feedback = feedback;
    EXPECT_FALSE(passes({.client = "", .severity = 0, .since = 0, .is_reviewed = false}));
    EXPECT_TRUE(passes({.client = "", .severity = 0, .since = 0, .is_reviewed = true}));
  }
}

TEST(Reviews, HaveNamesAndWords) {
  EXPECT_STREQ(name_of(Review::kNotReviewed), "open");
  EXPECT_STREQ(name_of(Review::kConfirmed), "confirmed");
  EXPECT_STREQ(name_of(Review::kFalsePositive), "false_positive");
  EXPECT_STREQ(words_for(Review::kNotReviewed), "not reviewed");
  EXPECT_STREQ(words_for(Review::kConfirmed), "confirmed");
  EXPECT_STREQ(words_for(Review::kFalsePositive), "false positive");
}

class ReadAnomalies : public OperatorWorld {};

TEST_F(ReadAnomalies, TheNewestFirstThenById) {
  for (const char* client : {"b", "c", "a"}) anomaly({.client = client}, 1, {.client = client});
  anomaly({.client = "old", .time = kNow - 1}, 1, {.client = "old"});
  anomaly({.client = "new", .time = kNow + 1}, 1, {.client = "new"});
  Database opened(database());
  std::string clients;
  for (const Anomaly& one : read_anomalies(opened.connection())) {
    clients += one.finding.stream.client + " ";
  }
  EXPECT_EQ(clients, "new a b c old ");
}

TEST_F(ReadAnomalies, KeepTheDetailsThatAreWantedAlone) {
  anomaly({.client = "a", .time = kNow - kDay}, 1, {.client = "a"});
  anomaly({.client = "b"}, 3, {.client = "b"});
  Database opened(database());
  std::vector<Anomaly> all = read_anomalies(opened.connection());
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0].finding.stream.client, "b");  // the newest first
  EXPECT_EQ(all[0].row.details + all[1].row.details, "");
  all = read_anomalies(opened.connection(), [](const Anomaly& anomaly) {
    return anomaly.finding.severity == Severity::kCritical;
  });
  EXPECT_TRUE(all[0].row.details.starts_with("{"));
  EXPECT_EQ(all[1].row.details, "");
}

}  // namespace
}  // namespace corvane::ctl
