#include "finding/stream_rules.h"

#include <gtest/gtest.h>

#include <vector>

namespace corvane {
namespace {

constexpr std::int64_t kNow = 1'700'000'000;
constexpr std::int64_t kDay = 86'400;

// One a day, the last one so many days ago.
std::vector<std::int64_t> nights(int count, int last_days_ago) {
  std::vector<std::int64_t> times;
  for (int i = count - 1; i >= 0; --i) times.push_back(kNow - (last_days_ago + i) * kDay);
  return times;
}

std::size_t that_matter(const std::vector<std::int64_t>& times,
                        const StreamSettings& settings = {}) {
  return count_that_matter(std::span<const std::int64_t>(times), kNow, settings);
}

TEST(CountThatMatter, IsAllUpToTheMost) {
  EXPECT_EQ(that_matter({}), 0U);
  EXPECT_EQ(that_matter(nights(40, 1)), 40U);
  StreamSettings settings;
  settings.max_observations = 25;
  EXPECT_EQ(that_matter(nights(40, 1), settings), 25U);
}

TEST(CountThatMatter, BeginsAnewAfterALongPause) {
  StreamSettings settings;
  settings.days_to_ignore = 10;
  std::vector<std::int64_t> times = nights(100, 14);
  EXPECT_EQ(that_matter(times, settings), 0U) << "the pause goes on";
  for (const std::int64_t recent : nights(4, 1)) times.push_back(recent);
  EXPECT_EQ(that_matter(times, settings), 4U + 100U) << "ten days are no long pause yet";
  settings.days_to_ignore = 9;
  EXPECT_EQ(that_matter(times, settings), 4U);
}

TEST(CountThatMatter, APauseIsTooLongBeyondTheLastSecondOfItsDays) {
  StreamSettings settings;
  settings.days_to_ignore = 10;
  const std::int64_t longest = 10 * kDay;
  EXPECT_EQ(that_matter({kNow - longest}, settings), 1U);
  EXPECT_EQ(that_matter({kNow - longest - 1}, settings), 0U);
  EXPECT_EQ(that_matter({kNow - 1 - longest, kNow - 1}, settings), 2U);
  EXPECT_EQ(that_matter({kNow - 2 - longest, kNow - 1}, settings), 1U);
}

TEST(CountThatMatter, WhatCameLaterIsNoPauseBeforeTheBackup) {
  StreamSettings settings;
  settings.days_to_ignore = 10;
  EXPECT_EQ(that_matter({kNow - 5 * kDay, kNow + 8 * kDay}, settings), 2U);
}

TEST(CountThatMatter, TheOldestThatCountsIsOfTheSecondOfThePurge) {
  StreamSettings settings;
  settings.purge_months = 1;
  const std::int64_t oldest = purge_cut_off(static_cast<int>(kNow), 1);
  EXPECT_EQ(that_matter({oldest}, settings), 1U);
  EXPECT_EQ(that_matter({oldest - 1}, settings), 0U);
}

TEST(CountThatMatter, AsksForTheTimeOfAnElement) {
  struct Backup {
    std::int64_t time;
  };
  const std::vector<Backup> backups{{kNow - 400 * kDay}, {kNow - kDay}};
  EXPECT_EQ(count_that_matter(std::span<const Backup>(backups), kNow, {}, &Backup::time), 1U);
}

TEST(CountThatMatter, LeavesOutWhatIsPurgedSoonerOrLater) {
  StreamSettings settings;
  settings.purge_months = 1;
  EXPECT_EQ(that_matter(nights(100, 1), settings), 30U);
  settings.purge_months = 0;
  EXPECT_EQ(that_matter(nights(100, 1), settings), 0U);
}

TEST(StateOf, IsByWhatMattersAndByTheLatest) {
  const StreamSettings settings;
  EXPECT_EQ(state_of(0, 0, kNow, settings), StreamState::kLearning);
  EXPECT_EQ(state_of(29, kNow - kDay, kNow, settings), StreamState::kLearning);
  EXPECT_EQ(state_of(30, kNow - kDay, kNow, settings), StreamState::kJudged);
  EXPECT_EQ(state_of(30, kNow - 365 * kDay, kNow, settings), StreamState::kJudged);
  EXPECT_EQ(state_of(0, kNow - 365 * kDay - 1, kNow, settings), StreamState::kDormant);
  EXPECT_EQ(state_of(0, 1, kNow, settings), StreamState::kDormant);
  EXPECT_EQ(state_of(30, 0, kNow, settings), StreamState::kJudged);
}

TEST(StreamSettingsTest, HasTheDefaultsOfTheSettings) {
  const StreamSettings settings;
  EXPECT_EQ(settings.min_observations, 30U);
  EXPECT_EQ(settings.days_to_ignore, 365);
  EXPECT_EQ(settings.max_observations, std::size_t(default_number(setting::kMaxObservations)));
  EXPECT_EQ(settings.purge_months, default_number(setting::kPurgeInterval));
}

TEST(WordsFor, CountWhatStreamsAreLearning) {
  const StreamSettings settings;
  EXPECT_EQ(words_for(StreamState::kLearning, 4, settings), "learning 4 of 30");
  EXPECT_EQ(words_for(StreamState::kJudged, 400, settings), "judged");
  EXPECT_EQ(words_for(StreamState::kDormant, 0, settings), "dormant");
}

}  // namespace
}  // namespace corvane
