#include "anomaly_database/anomalies.h"

#include <algorithm>

#include "tests/support/anomaly_tables.h"

namespace corvane {
namespace {

using Ids = std::vector<std::string>;

// Ids as backups may have them.
const Ids kHostile{"it's",
                   "a\"b",
                   "100%",
                   "a_b",
                   "%",
                   "_",
                   "b\\a",
                   "\xC3\xA4\xE6\x9D\xB1",
                   "a\nb",
                   "*?[a]",
                   "\xF0\x9F\x98\x80",
                   "' OR 1=1 --"};

class Anomalies : public test::AnomalyTables {
 protected:
  static Ids ids_of(const std::vector<AnomalyRow>& rows) {
    Ids ids;
    for (const AnomalyRow& row : rows) ids.push_back(row.id);
    return ids;
  }
  Ids named_after(const std::string& backup) {
    return ids_of(find_anomalies_named_after(database, backup));
  }
  Ids that_name(const std::string& backup) {
    return ids_of(find_anomalies_that_name(database, backup));
  }
};

TEST_F(Anomalies, AreFoundByTheirWholeIdOnly) {
  for (const std::string& id : kHostile) anomaly(id, "details of " + id);
  for (const std::string& id : kHostile) {
    const auto found = find_anomaly_row(database, id);
    ASSERT_TRUE(found) << id;
    EXPECT_EQ(found->id, id);
    EXPECT_EQ(found->details, "details of " + id);
    EXPECT_EQ(found->detection_key, "key of " + id);
    EXPECT_EQ(found->client, "client of " + id);
    EXPECT_EQ(found->detection_time, test::kNow);
    EXPECT_TRUE(has_anomaly(database, id));
    EXPECT_FALSE(find_anomaly_row(database, id + "x"));
    EXPECT_FALSE(has_anomaly(database, id + "x"));
  }
  EXPECT_FALSE(find_anomaly_row(database, ""));
}

TEST_F(Anomalies, TellWhatPeopleSaidOfThem) {
  for (const char* id : {"none", "no", "yes", "odd"}) anomaly(id, "");
  sql("INSERT INTO ANOMALY_DATA_FEEDBACK VALUES ('no', 0, 5), ('yes', 1, 6), ('odd', -7, 8)");
  EXPECT_FALSE(find_anomaly_row(database, "none")->feedback);
  EXPECT_EQ(find_anomaly_row(database, "none")->feedback_time, 0);
  EXPECT_EQ(find_anomaly_row(database, "no")->feedback, Feedback::kNoFalsePositive);
  EXPECT_EQ(find_anomaly_row(database, "no")->feedback_time, 5);
  EXPECT_EQ(find_anomaly_row(database, "yes")->feedback, Feedback::kFalsePositive);
  EXPECT_EQ(find_anomaly_row(database, "odd")->feedback, Feedback::kFalsePositive);
  EXPECT_EQ(count_feedback(database), 3);
}

TEST_F(Anomalies, FeedbackIsReadOfPurgedOnesToo) {
  sql("INSERT INTO ANOMALY_DATA_FEEDBACK VALUES ('purged', 1, 5)");
  std::string said;
  read_feedback(database, [&](const std::string& id, Feedback feedback) {
    said += id + (feedback == Feedback::kFalsePositive ? "!" : "");
  });
  EXPECT_EQ(said, "purged!");
}

TEST_F(Anomalies, NamedAfterABackupEndWithItsId) {
  for (const std::string& id : kHostile) anomaly("anomaly_data_7_" + id, "");
  anomaly("anomaly_data_8_other_web01_1", "");
  anomaly("anomaly_data_9_web01_1", "");
  anomaly("anomaly_data_9_web01_11", "");
  anomaly("anomaly_data_9_WEB01_1", "");
  for (const std::string& id : kHostile) {
    const Ids found = named_after(id);
    EXPECT_EQ(std::count(found.begin(), found.end(), "anomaly_data_7_" + id), 1) << id;
    for (const std::string& name : found) EXPECT_TRUE(name.ends_with("_" + id)) << name;
  }
  EXPECT_EQ(named_after("web01_1"),
            (Ids{"anomaly_data_8_other_web01_1", "anomaly_data_9_web01_1"}));
  EXPECT_EQ(named_after("other_web01_1"), Ids{"anomaly_data_8_other_web01_1"});
  EXPECT_EQ(named_after("eb01_1"), Ids());
  EXPECT_EQ(named_after("anomaly_data_9_web01_1 and more than the id"), Ids());
}

TEST_F(Anomalies, ThatNameABackupHaveItAsAText) {
  anomaly("quote", R"({"backup_id":"a\"b"})");
  anomaly("part", R"({"backup_id":"web01_11"})");
  anomaly("whole", R"({"backup_id":"web01_1"})");
  anomaly("elsewhere", R"({"last_good":{"backup_id":"web01_1"}})");
  anomaly("wide", "{\"backup_id\":\"\xC3\xA4%\"}");
  EXPECT_EQ(that_name("a\"b"), Ids{"quote"});
  EXPECT_EQ(that_name("web01_1"), (Ids{"whole", "elsewhere"}));
  EXPECT_EQ(that_name("\xC3\xA4%"), Ids{"wide"});
  EXPECT_EQ(that_name("%"), Ids());
}

TEST_F(Anomalies, AreReadInTheOrderTheyCame) {
  for (const char* id : {"c", "a", "b"}) anomaly(id, "");
  sql("INSERT INTO ANOMALY_DATA_FEEDBACK VALUES ('a', 1, 5), ('purged', 1, 5)");
  Ids ids;
  read_anomaly_rows(database, [&](AnomalyRow&& row) { ids.push_back(row.id); });
  EXPECT_EQ(ids, (Ids{"c", "a", "b"}));
}

TEST_F(Anomalies, ThatWaitForReceiversComeTheOldestFirst) {
  for (const char* id : {"new", "of the same time", "old", "done"}) anomaly(id, "");
  sql("UPDATE ANOMALY_DATA SET DETECTION_TIME = 5 WHERE ANOMALY_UNIQUE_ID = 'old'");
  mark_processed(database, "done");
  EXPECT_EQ(unprocessed_anomalies(database), (Ids{"old", "new", "of the same time"}));
  Ids rows;
  for (const AnomalyRow& row : unprocessed_rows(database)) rows.push_back(row.id);
  EXPECT_EQ(rows, unprocessed_anomalies(database));
  EXPECT_EQ(find_anomaly_row(database, "done")->status, AnomalyStatus::kProcessed);
  EXPECT_EQ(find_anomaly_row(database, "new")->status, AnomalyStatus::kUnprocessed);
}

TEST_F(Anomalies, OfAnIdThatIsThereStayAsTheyAre) {
  anomaly("a", "first");
  anomaly("a", "second");
  anomaly("b", "of another");
  EXPECT_EQ(find_anomaly_row(database, "a")->details, "first");
  set_details(database, "a", "it's new");
  EXPECT_EQ(find_anomaly_row(database, "a")->details, "it's new");
  EXPECT_EQ(find_anomaly_row(database, "b")->details, "of another");
}

}  // namespace
}  // namespace corvane
