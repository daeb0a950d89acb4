#include "operator_tool/ask/picture.h"

#include "health/database.h"
#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::ctl {
namespace {

class PictureTest : public OperatorWorld {
 protected:
  Picture picture() {
    Database opened(database());
    return take_picture(opened.connection(), {}, kNow);
  }
};

TEST_F(PictureTest, AnIncidentIsOngoingUntilALaterBackupWasAccepted) {
  const TestBackup first{.time = kNow - 2 * kDay};
  const TestBackup second{.time = kNow - kDay};
  history({.time = kNow - 2 * kDay}, 5);
  anomaly(first, 1, first);
  anomaly(second, 3, first);
  const Picture found = picture();
  ASSERT_EQ(found.incidents.size(), 1U);
  EXPECT_FALSE(found.incidents[0].is_resolved());
  EXPECT_EQ(found.ongoing_incidents(), 1);
  EXPECT_EQ(found.incidents[0].records, 2);
  EXPECT_EQ(found.incidents[0].severity, Severity::kCritical);
  EXPECT_EQ(found.incidents[0].first, first.time);
  EXPECT_EQ(found.incidents[0].last, second.time);
  insert("HIST_DATA", {.time = kNow - kDay / 2});
  EXPECT_TRUE(picture().incidents[0].is_resolved());
  EXPECT_EQ(picture().ongoing_incidents(), 0);
}

TEST_F(PictureTest, AnAcceptedBackupOfAStreamThatMatchesEndsItToo) {
  history({.time = kNow - kDay}, 5);
  anomaly({}, 1, {});
  insert("DATA_TO_PROCESS", {.mark = 2});
  EXPECT_FALSE(picture().incidents[0].is_resolved());
  insert("HIST_DATA", {.time = kNow + 60, .destination = "other"});
  EXPECT_FALSE(picture().incidents[0].is_resolved());
  insert("HIST_DATA", {.time = kNow + 60, .app = "NONE", .destination = "NA"});
  EXPECT_TRUE(picture().incidents[0].is_resolved());
}

TEST_F(PictureTest, AFalsePositiveAndAnAdoptedChangeAreResolved) {
  const TestBackup one{.client = "a"};
  const TestBackup two{.client = "b"};
  const TestBackup three{.client = "c"};
  anomaly(one, 1, one);
  feedback(one, 1);
  anomaly(two, 1, two, R"(,"adopted":{"backup_id":"x","time":5})");
  anomaly(three, 1, three);
  feedback(three, 0);
  int ongoing = 0;
  for (const Incident& incident : picture().incidents) {
    if (incident.is_resolved()) continue;
    ++ongoing;
    EXPECT_EQ(incident.stream.client, "c");
  }
  EXPECT_EQ(ongoing, 1);
  EXPECT_EQ(picture().count(Review::kConfirmed), 1);
  EXPECT_EQ(picture().ongoing_incidents(), 1);
}

TEST_F(PictureTest, AFalsePositiveAmongItsRecordsEndsAnIncident) {
  const TestBackup first{.time = kNow - 3 * kDay};
  const TestBackup second{.time = kNow - 2 * kDay};
  const TestBackup third{.time = kNow - kDay};
  for (const TestBackup& backup : {first, second, third}) anomaly(backup, 1, first);
  for (const TestBackup& called : {first, second, third}) {
    feedback(called, 1);
    EXPECT_EQ(picture().ongoing_incidents(), 0) << called.time;
    EXPECT_EQ(picture().count(Review::kFalsePositive), 1);
    EXPECT_EQ(picture().count(Review::kNotReviewed), 2);
    sql("DELETE FROM ANOMALY_DATA_FEEDBACK");
    EXPECT_EQ(picture().ongoing_incidents(), 1);
  }
}

// The purge takes the older record; what people said of it stands.
TEST_F(PictureTest, WhatWasSaidOfAPurgedFirstRecordCounts) {
  const TestBackup first{.time = kNow - 2 * kDay};
  anomaly({.time = kNow - kDay}, 1, first);
  EXPECT_EQ(picture().ongoing_incidents(), 1);
  feedback(first, 0);
  EXPECT_EQ(picture().ongoing_incidents(), 1);
  sql("UPDATE ANOMALY_DATA_FEEDBACK SET FEEDBACK = 1");
  EXPECT_EQ(picture().ongoing_incidents(), 0);
}

TEST_F(PictureTest, TwoIncidentsOfAStreamAreTwo) {
  const TestBackup first{.time = kNow - 9 * kDay};
  const TestBackup second{.time = kNow};
  anomaly(first, 1, first);
  insert("HIST_DATA", {.time = kNow - 5 * kDay});
  anomaly(second, 1, second);
  const Picture found = picture();
  ASSERT_EQ(found.incidents.size(), 2U);
  EXPECT_EQ(found.incidents[0].last, second.time);
  EXPECT_FALSE(found.incidents[0].is_resolved());
  EXPECT_TRUE(found.incidents[1].is_resolved());
}

TEST_F(PictureTest, StreamsAreJudgedByTheSettingsAndTheMoment) {
  history({}, 40);
  Database opened(database());
  StreamSettings settings;
  settings.min_observations = 40;
  const auto state = [&](std::int64_t now) {
    return take_picture(opened.connection(), settings, now).streams.streams.at(0).state;
  };
  EXPECT_EQ(state(kNow), StreamState::kJudged);
  EXPECT_EQ(state(kNow + 1000 * kDay), StreamState::kDormant);
  settings.min_observations = 41;
  EXPECT_EQ(state(kNow), StreamState::kLearning);
}

TEST_F(PictureTest, DetailsThatAreNoJsonAreNotInTheWay) {
  sql("INSERT INTO ANOMALY_DATA VALUES ('x', '{broken', 0, 'key', 'cl', 99)");
  const Picture found = picture();
  ASSERT_EQ(found.incidents.size(), 1U);
  EXPECT_EQ(found.incidents[0].stream.client, "cl");
}

}  // namespace
}  // namespace corvane::ctl
