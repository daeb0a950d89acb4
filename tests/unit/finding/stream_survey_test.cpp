#include "finding/stream_survey.h"

#include "tests/support/anomaly_tables.h"

namespace corvane {
namespace {

using test::kNow;

class SurveyTest : public test::AnomalyTables {
 protected:
  StreamSurvey look() { return survey(scan_streams(database), settings_, kNow); }
  StreamSettings settings_;
};

TEST_F(SurveyTest, CountsAStreamsRecords) {
  history({}, 40);
  insert("HIST_DATA", {.time = kNow - 50 * kDay, .mark = 3});
  insert("DATA_TO_PROCESS", {.time = kNow - 20, .mark = 0});
  insert("DATA_TO_PROCESS", {.time = kNow - 10, .mark = 2});
  insert("DATA_TO_PROCESS", {.time = kNow - kDay, .mark = 1});  // in the history too
  const StreamSurvey found = look();
  ASSERT_EQ(found.streams.size(), 1U);
  const StreamSummary& stream = found.streams[0];
  EXPECT_EQ(stream.accepted, 40);
  EXPECT_EQ(stream.that_matter, 40U);
  EXPECT_EQ(stream.false_positives, 1);
  EXPECT_EQ(stream.waiting, 1);
  EXPECT_EQ(stream.anomalous, 1);
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
  const StreamSurvey found = look();
  ASSERT_EQ(found.streams.size(), 3U);
  EXPECT_EQ(found.streams[0].state, StreamState::kLearning);
  EXPECT_EQ(found.streams[1].state, StreamState::kJudged);
  EXPECT_EQ(found.streams[2].state, StreamState::kDormant);
  EXPECT_EQ(found.count(StreamState::kLearning), 1);
}

TEST_F(SurveyTest, WhatWasBeforeALongPauseDoesNotMatter) {
  settings_.days_to_ignore = 30;
  history({.time = kNow - 100 * kDay}, 40);
  history({}, 4);
  const StreamSurvey found = look();
  ASSERT_EQ(found.streams.size(), 1U);
  EXPECT_EQ(found.streams[0].accepted, 44);
  EXPECT_EQ(found.streams[0].that_matter, 4U);
  EXPECT_EQ(found.streams[0].state, StreamState::kLearning);
}

TEST_F(SurveyTest, SpellingsOfTypesAreOneStream) {
  history({.time = kNow, .policy_type = "NAS-Data-Protection", .schedule_type = "0"}, 2);
  history({.time = kNow - 5 * kDay, .policy_type = "NAS_DATA_PROTECTION"}, 3);
  const StreamSurvey found = look();
  ASSERT_EQ(found.streams.size(), 1U);
  EXPECT_EQ(found.streams[0].accepted, 5);
}

TEST_F(SurveyTest, WhatIsNotKnownBelongsToEveryStreamThatItMatches) {
  history({.time = kNow, .destination = "disk1"}, 2);
  history({.time = kNow - 10 * kDay, .destination = "disk2"}, 3);
  history({.time = kNow - 20 * kDay, .app = "NONE", .destination = "NA"}, 30);
  const StreamSurvey found = look();
  ASSERT_EQ(found.streams.size(), 2U);
  EXPECT_EQ(found.streams[0].accepted, 32);
  EXPECT_EQ(found.streams[0].first, kNow - 50 * kDay);
  EXPECT_EQ(found.streams[1].accepted, 33);
  EXPECT_EQ(found.place_of("web01/nightly/STANDARD/FULL/daily/NONE/NA"), 0U);
  EXPECT_EQ(found.last_accepted("web01/nightly/STANDARD/FULL/daily/NONE/NA"), kNow - kDay);
  EXPECT_EQ(found.last_accepted("web01/nightly/STANDARD/FULL/daily/FS/disk2"), kNow - 11 * kDay);
}

TEST_F(SurveyTest, StreamsThatNeverKnowMoreStandForThemselves) {
  history({.app = "NONE", .destination = "NA"}, 2);
  history({.time = kNow - 5 * kDay, .schedule = "weekly", .app = "NONE", .destination = "NA"}, 2);
  const StreamSurvey found = look();
  ASSERT_EQ(found.streams.size(), 2U);
  EXPECT_EQ(found.streams[0].accepted, 2);
}

TEST_F(SurveyTest, StreamsAreInTheOrderOfTheirNames) {
  const std::string clients = "fcahbgdie";
  for (const char client : clients) insert("HIST_DATA", {.client = std::string(1, client)});
  const StreamSurvey found = look();
  ASSERT_EQ(found.streams.size(), clients.size());
  for (std::size_t i = 0; i < clients.size(); ++i) {
    EXPECT_EQ(found.streams[i].key.client, std::string(1, static_cast<char>('a' + i)));
    EXPECT_EQ(found.place_of(found.streams[i].key.text()), i);
  }
  EXPECT_EQ(found.place_of("none"), std::nullopt);
  EXPECT_EQ(found.last_accepted("none"), 0);
}

}  // namespace
}  // namespace corvane
