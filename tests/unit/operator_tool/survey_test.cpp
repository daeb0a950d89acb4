#include "operator_tool/survey.h"

#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::ctl {
namespace {

class SurveyTest : public OperatorWorld {
 protected:
  Survey look() {
    Database opened(database());
    return survey(opened, settings_, kNow);
  }
  std::vector<Incident> incidents() {
    Database opened(database());
    return incidents_of(read_anomalies(opened, {}), survey(opened, settings_, kNow));
  }
  detect::Settings settings_;
};

TEST_F(SurveyTest, CountsAStreamsRecords) {
  history({}, 40);
  insert("HIST_DATA", {.time = kNow - 50 * kDay, .mark = 3});
  insert("DATA_TO_PROCESS", {.time = kNow - 20, .mark = 0});
  insert("DATA_TO_PROCESS", {.time = kNow - 10, .mark = 2});
  insert("DATA_TO_PROCESS", {.time = kNow - kDay, .mark = 1});  // in the history too
  const Survey found = look();
  ASSERT_EQ(found.streams.size(), 1U);
  const StreamSummary& stream = found.streams[0];
  EXPECT_EQ(stream.records, 40);
  EXPECT_EQ(stream.by_people, 1);
  EXPECT_EQ(stream.waiting, 1);
  EXPECT_EQ(stream.reported, 1);
  EXPECT_EQ(stream.first, kNow - 40 * kDay);
  EXPECT_EQ(stream.last, kNow - kDay);
  EXPECT_EQ(stream.newest, kNow - 10);
  EXPECT_EQ(stream.state, StreamState::kJudged);
  EXPECT_EQ(found.history_rows, 41);
  EXPECT_EQ(found.process_rows, 3);
  EXPECT_EQ(found.waiting_rows, 1);
  EXPECT_EQ(found.oldest_waiting, kNow - 20);
}

TEST_F(SurveyTest, StatesOfStreams) {
  history({.client = "new"}, 29);
  history({.client = "old"}, 30);
  history({.client = "silent", .time = kNow - 366 * kDay}, 40);
  const Survey found = look();
  ASSERT_EQ(found.streams.size(), 3U);
  EXPECT_EQ(found.streams[0].state, StreamState::kLearning);
  EXPECT_EQ(found.streams[1].state, StreamState::kJudged);
  EXPECT_EQ(found.streams[2].state, StreamState::kDormant);
  EXPECT_EQ(found.count(StreamState::kLearning), 1);
}

TEST_F(SurveyTest, SpellingsOfTypesAreOneStream) {
  history({.time = kNow, .policy_type = "NAS-Data-Protection", .schedule_type = "0"}, 2);
  history({.time = kNow - 5 * kDay, .policy_type = "NAS_DATA_PROTECTION"}, 3);
  const Survey found = look();
  ASSERT_EQ(found.streams.size(), 1U);
  EXPECT_EQ(found.streams[0].records, 5);
}

TEST_F(SurveyTest, WhatIsNotKnownBelongsToEveryStreamThatItMatches) {
  history({.time = kNow, .destination = "disk1"}, 2);
  history({.time = kNow - 10 * kDay, .destination = "disk2"}, 3);
  history({.time = kNow - 20 * kDay, .app = "NONE", .destination = "NA"}, 30);
  const Survey found = look();
  ASSERT_EQ(found.streams.size(), 2U);
  EXPECT_EQ(found.streams[0].records, 32);
  EXPECT_EQ(found.streams[1].records, 33);
  EXPECT_EQ(found.place.at("web01/nightly/STANDARD/FULL/daily/NONE/NA"), 0U);
}

TEST_F(SurveyTest, StreamsThatNeverKnowMoreStandForThemselves) {
  history({.app = "NONE", .destination = "NA"}, 2);
  history({.time = kNow - 5 * kDay, .schedule = "weekly", .app = "NONE", .destination = "NA"}, 2);
  const Survey found = look();
  ASSERT_EQ(found.streams.size(), 2U);
  EXPECT_EQ(found.streams[0].records, 2);
}

TEST_F(SurveyTest, MoreThanOnePortionIsReadWhole) {
  sql("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 250001) "
      "INSERT INTO HIST_DATA SELECT 'b', i, 'web01', 'p', 'S', 'FULL', 'daily', 'FS', 1, 1, i, 1, "
      "1, 1, 1, 1, 1, 1, -1, 'disk', 1, 'NA', 'k' || i FROM n");
  const Survey found = look();
  EXPECT_EQ(found.history_rows, 250001);
  ASSERT_EQ(found.streams.size(), 1U);
  EXPECT_EQ(found.streams[0].records, 250001);
}

TEST_F(SurveyTest, AnIncidentIsOpenUntilALaterBackupWasAccepted) {
  const TestBackup first{.time = kNow - 2 * kDay};
  const TestBackup second{.time = kNow - kDay};
  history({.time = kNow - 2 * kDay}, 5);
  anomaly(first, 1, first);
  anomaly(second, 3, first);
  std::vector<Incident> found = incidents();
  ASSERT_EQ(found.size(), 1U);
  EXPECT_TRUE(found[0].is_open);
  EXPECT_EQ(found[0].records, 2);
  EXPECT_EQ(found[0].severity, 3);
  EXPECT_EQ(found[0].first, first.time);
  EXPECT_EQ(found[0].last, second.time);
  insert("HIST_DATA", {.time = kNow - kDay / 2});
  EXPECT_FALSE(incidents()[0].is_open);
}

TEST_F(SurveyTest, AFalseAlarmAndAnAdoptedChangeAreNotOpen) {
  const TestBackup one{.client = "a"};
  const TestBackup two{.client = "b"};
  const TestBackup three{.client = "c"};
  anomaly(one, 1, one);
  feedback(one, 1);
  anomaly(two, 1, two, R"(,"adopted":{"backup_id":"x","time":5})");
  anomaly(three, 1, three);
  feedback(three, 0);
  int open = 0;
  for (const Incident& incident : incidents()) {
    if (incident.is_open) {
      ++open;
      EXPECT_EQ(incident.client, "c");
    }
  }
  EXPECT_EQ(open, 1);
}

TEST_F(SurveyTest, DetailsThatAreNoJsonAreNotInTheWay) {
  sql("INSERT INTO ANOMALY_DATA VALUES ('x', '{broken', 0, 'key', 'cl', 99)");
  const std::vector<Incident> found = incidents();
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].client, "cl");
}

}  // namespace
}  // namespace corvane::ctl
