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

TEST_F(SurveyTest, AddsUpAllStreamsThatMatch) {
  const auto fill = [&](const std::string& destination, int days_ago, int marked, int waiting,
                        int anomalous) {
    const std::int64_t time = kNow - days_ago * kDay;
    for (int i = 0; i < marked; ++i) {
      insert("HIST_DATA", {.time = time - i, .mark = 3, .destination = destination});
    }
    for (int i = 0; i < waiting; ++i) {
      insert("DATA_TO_PROCESS", {.time = time - 100 - i, .mark = 0, .destination = destination});
    }
    for (int i = 0; i < anomalous; ++i) {
      insert("DATA_TO_PROCESS", {.time = time - 200 - i, .mark = 2, .destination = destination});
    }
  };
  fill("disk1", 3, 1, 2, 3);
  fill("NA", 2, 10, 20, 30);
  const StreamSurvey found = look();
  ASSERT_EQ(found.streams.size(), 1U);
  const StreamSummary& stream = found.streams[0];
  EXPECT_EQ(stream.false_positives, 11);
  EXPECT_EQ(stream.waiting, 22);
  EXPECT_EQ(stream.anomalous, 33);
  EXPECT_EQ(stream.newest, kNow - 2 * kDay);
  EXPECT_EQ(stream.accepted, 0);
  EXPECT_EQ(stream.first, 0);
  EXPECT_EQ(stream.last, 0);
  EXPECT_EQ(found.history_rows, 11);
  EXPECT_EQ(found.process_rows, 55);
  EXPECT_EQ(found.waiting_rows, 22);
  EXPECT_EQ(found.oldest_waiting, kNow - 3 * kDay - 101);
}

// Each part of the key decides where those before it are alike.
TEST_F(SurveyTest, StreamsAreInTheOrderOfTheirKeys) {
  StreamScan scan;
  const std::vector<StreamKey> sorted{
      {"a", "p", "T", "1", "s", "x", "d"}, {"a", "p", "T", "1", "s", "x", "e"},
      {"a", "p", "T", "1", "s", "y", "c"}, {"a", "p", "T", "2", "s", "w", "b"},
      {"a", "p", "T", "0", "t", "v", "a"}, {"a", "q", "T", "0", "r", "u", "a"},
      {"b", "o", "T", "0", "r", "u", "a"}};
  for (const std::size_t i : {3, 5, 0, 6, 2, 4, 1}) {
    ScannedStream& stream = scan.streams.emplace_back();
    stream.key = sorted[i];
    stream.accepted = {static_cast<std::int32_t>(kNow - 100 + static_cast<int>(i))};
  }
  const StreamSurvey found = survey(scan, settings_, kNow);
  ASSERT_EQ(found.streams.size(), sorted.size());
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    EXPECT_EQ(found.streams[i].key, sorted[i]) << i;
    EXPECT_EQ(found.place_of(sorted[i].text()), i);
    EXPECT_EQ(found.last_accepted(sorted[i].text()), kNow - 100 + static_cast<int>(i));
  }
}

// One that knows only half belongs to the first of those that know it all, and to no half one.
TEST_F(SurveyTest, OneThatKnowsLessIsHeldByOneThatKnowsMore) {
  StreamScan scan;
  const StreamKey none{"a", "p", "T", "0", "s", "NONE", "NA"};
  const StreamKey half{"a", "p", "T", "0", "s", "x", "NA"};
  const StreamKey other_half{"a", "p", "T", "0", "s", "NONE", "d"};
  const StreamKey full{"a", "p", "T", "0", "s", "x", "d"};
  for (const StreamKey& key : {none, half, other_half, full}) {
    ScannedStream& stream = scan.streams.emplace_back();
    stream.key = key;
    stream.waiting = 1;
  }
  EXPECT_EQ(survey(scan, settings_, kNow).streams.size(), 1U);
  EXPECT_EQ(survey(scan, settings_, kNow).streams[0].key, full);
  scan.streams.pop_back();
  const StreamSurvey halves = survey(scan, settings_, kNow);
  ASSERT_EQ(halves.streams.size(), 2U) << "neither half knows more than the other";
  EXPECT_EQ(halves.place_of(none.text()), halves.place_of(half.text()));
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
