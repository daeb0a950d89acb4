#include <gtest/gtest.h>

#include "coverage/healer.h"
#include "tests/unit/coverage/healer_world.h"

namespace corvane::coverage {
namespace {

class MissingTest : public HealerWorld {};

// The jobs that were under way at the failed gather are asked for by no later one.
TEST_F(MissingTest, ALongJobThatWasForgottenIsFound) {
  now_ += 15 * kMinute;
  gather();
  jobs_ = {{1, now_ + 10, now_ + 3 * kHour}};
  now_ += 15 * kMinute;
  gather(How::kNothing);
  for (int i = 0; i < 14; ++i) {
    now_ += 15 * kMinute;
    gather();
    look();
  }
  EXPECT_EQ(stored(), 1);
  EXPECT_EQ(missing_.all(), std::vector<Missing>{});
  EXPECT_EQ(ledger_.acts(1)[0].text.substr(0, 26), "1 missing backup gathered:");
}

// It is neither running nor ended when the gather asks.
TEST_F(MissingTest, AJobThatEndsWhileTheAnswerIsMadeIsFound) {
  now_ += 15 * kMinute;
  gather();
  jobs_ = {{1, now_ - 100, now_ + 1}};  // not known when it was asked for
  for (int i = 0; i < 2; ++i) {
    now_ += 15 * kMinute;
    gather();
    look();
  }
  EXPECT_EQ(stored(), 1);
}

TEST_F(MissingTest, WhatTheServerListsButDoesNotKeepIsAskedForThreeTimes) {
  jobs_ = {{1, kStart + 10, kStart + 20, false}};
  for (int i = 0; i < 6; ++i) {
    now_ += 15 * kMinute;
    gather();
    look();
  }
  EXPECT_EQ(asked_, (std::vector<TimeRange>(3, {kStart + 10 - kHour, kStart + 20 + kClockSkew})));
  EXPECT_EQ(missing_.all(), std::vector<Missing>{});
  EXPECT_EQ(missing_.count_given_up(), 0);
}

// Neither attempts that failed nor a purge decide what the server has.
TEST_F(MissingTest, OnlyAnswersDecideThatOneIsNotKept) {
  jobs_ = {{1, kStart + 10, kStart + 20, false}};
  now_ += 15 * kMinute;
  gather();
  problem_ = "503";
  for (int i = 0; i < 3; ++i) {
    look();
    now_ += 15 * kMinute;
    gather();
  }
  problem_ = "";
  look();
  jobs_[0].is_kept = true;
  now_ += kHour;
  gather();
  look();
  EXPECT_EQ(stored(), 1);
}

TEST_F(MissingTest, WhatIsPurgedWaits) {
  jobs_ = {{1, kStart + 3 * kHour, kStart + 3 * kHour + 20, false}};
  now_ += 4 * kHour;
  gather();
  look();
  jobs_[0].is_kept = true;
  not_before_ = now_;  // a mistake in the configuration
  for (int i = 0; i < 6; ++i) {
    now_ += kHour;
    gather();
    look();
  }
  EXPECT_EQ(stored(), 0);
  EXPECT_EQ(missing_.all(), std::vector<Missing>{});
  not_before_ = kStart;
  look();
  EXPECT_EQ(stored(), 1);
}

TEST_F(MissingTest, WhatWasRefusedWhileItWasPurgedIsAskedForAgain) {
  jobs_ = {{1, kStart + 2 * kHour, kStart + 2 * kHour + 20, false, false}};
  now_ += 4 * kHour;
  gather();
  look();
  EXPECT_TRUE(missing_.is_settled(jobs_[0].row().unique_key));
  jobs_[0].is_kept = true;
  not_before_ = now_ + 2 * kDay;
  look();
  not_before_ = kStart;
  look();
  look();
  EXPECT_EQ(stored(), 1);
}

// One failure after an outage is one failure.
TEST_F(MissingTest, AnOutageUsesUpNoAttempts) {
  jobs_ = {{1, kStart + 10, kStart + 20, false}};
  now_ += 15 * kMinute;
  gather();
  look();
  jobs_[0].is_kept = true;
  problem_ = list_problem_ = "away";
  for (int i = 0; i < 20; ++i) {
    now_ += 15 * kMinute;
    gather(How::kNothing);
    look();
  }
  now_ += 15 * kMinute;
  gather();
  look();  // fails, too
  EXPECT_EQ(missing_.count_given_up(), 0);
  problem_ = list_problem_ = "";
  now_ += kHour;
  gather();
  look();
  EXPECT_EQ(stored(), 1);
}

TEST_F(MissingTest, WithoutASuccessInBetweenNothingIsGivenUp) {
  jobs_ = {{1, kStart + 10, kStart + 20, false}};
  now_ += 15 * kMinute;
  gather();
  lacks_images_ = true;
  for (int i = 0; i < 10; ++i) {
    look();
    now_ += 6 * kHour;
  }
  EXPECT_EQ(missing_.count_given_up(), 0);
  gather();
  look();
  EXPECT_EQ(missing_.count_given_up(), 1);
}

TEST_F(MissingTest, OfASlowServerLessIsAskedForEachTime) {
  now_ += 15 * kMinute;
  gather();
  store(database_, {{9, kStart + 1, kStart + 7}});
  for (int i = 0; i < 12; ++i) {
    jobs_.push_back({i + 1, kStart + i * kHour + 10, kStart + i * kHour + 20, false});
  }
  now_ = kStart + 13 * kHour;
  gather();
  problem_ = "slow";
  std::vector<std::size_t> asked;
  for (int i = 0; i < 3; ++i) {
    asked_.clear();
    look();
    asked.push_back(asked_.size());
    now_ += kHour;
    gather();
  }
  EXPECT_EQ(asked, (std::vector<std::size_t>{1, 4, 12}));
}

TEST_F(MissingTest, ABackupWithoutDataIsAskedForOnce) {
  jobs_ = {{1, kStart + 10, kStart + 20, false, false}};
  for (int i = 0; i < 4; ++i) {
    now_ += 15 * kMinute;
    gather();
    look();
  }
  EXPECT_EQ(asked_.size(), 1U);
}

TEST_F(MissingTest, OneWhoseImageComesLaterIsFound) {
  jobs_ = {{1, kStart + 10, kStart + 20, false}};
  for (int i = 0; i < 2; ++i) {
    now_ += 15 * kMinute;
    gather();
    look();
  }
  EXPECT_EQ(asked_.size(), 2U);
  jobs_[0].is_kept = true;
  now_ += 15 * kMinute;
  look();
  EXPECT_EQ(stored(), 1);
}

TEST_F(MissingTest, OneThatCannotBeHadIsGivenUpAndCounted) {
  jobs_ = {{1, kStart + 10, kStart + 20, false}};
  lacks_images_ = true;
  for (int i = 0; i < 12; ++i) {
    now_ += 15 * kMinute;
    gather();
    look();
  }
  EXPECT_EQ(asked_.size(), 5U);
  EXPECT_EQ(missing_.all(), std::vector<Missing>{});
  EXPECT_EQ(missing_.count_given_up(), 1);
  EXPECT_EQ(ledger_.acts(1)[0].text,
            "Backup " + jobs_[0].row().unique_key +
                " was given up after 5 attempts. The master server does not give its image");
  jobs_[0].is_kept = true;
  gather_by_hand({kStart, kStart + kHour});
  EXPECT_EQ(stored(), 1);
  EXPECT_EQ(missing_.count_given_up(), 0);
}

// Whatever is listed: nothing is gathered for ever.
TEST_F(MissingTest, APortionWithMuchMissingIsGatheredAsAWholeOnce) {
  for (int i = 0; i < 1001; ++i) jobs_.push_back({i + 1, kStart + 10 + i / 2, kStart + 600, false});
  for (int i = 0; i < 3; ++i) {
    now_ += 15 * kMinute;
    gather();
    look();
    if (i == 0) {
      EXPECT_EQ(asked_, std::vector<TimeRange>{});
      EXPECT_EQ(holes_in_ledger_.covered().all().front().begin, now_ - kClockSkew + 1);
    }
    if (i == 1) {
      EXPECT_EQ(missing_.all().size(), 1001U);
      EXPECT_EQ(Missing{}.next_try, 0);
    }
  }
  for (int i = 0; i < 10; ++i) {
    now_ += 15 * kMinute;
    gather();
    look();
  }
  EXPECT_EQ(asked_.size(), 1U + 3);
  EXPECT_EQ(holes(), std::vector<TimeRange>{});
  EXPECT_EQ(missing_.all(), std::vector<Missing>{});
}

TEST_F(MissingTest, APortionWithMuchMissingIsFilled) {
  now_ += 15 * kMinute;
  gather();
  for (int i = 0; i < 1001; ++i) jobs_.push_back({i + 1, kStart + 10 + i / 2, kStart + 600});
  look();
  look();
  EXPECT_EQ(stored(), 1001);
  EXPECT_EQ(asked_.size(), 1U);
}

TEST_F(MissingTest, AnAuditThatFailsIsTriedWithAShorterListAndLater) {
  now_ += 24 * kHour;
  marker_ = kStart - 1;
  gather();
  list_problem_ = "503";
  std::vector<std::int64_t> at;
  for (int minute = 0; minute <= 140; ++minute) {
    now_ += kMinute;
    const std::size_t before = listed_.size();
    look();
    if (listed_.size() > before) at.push_back(minute);
  }
  EXPECT_EQ(at, (std::vector<std::int64_t>{0, 5, 15, 35, 75, 135}));
  std::vector<std::int64_t> lengths;
  for (const TimeRange& range : listed_) lengths.push_back(range.end - range.begin - kHour + 1);
  EXPECT_EQ(lengths, (std::vector<std::int64_t>{6 * kHour, 3 * kHour, 90 * kMinute, 45 * kMinute,
                                                1350, 15 * kMinute}));
  EXPECT_NE(ledger_.number_of(kUnauditedSince), 0);
  list_problem_ = "";
  now_ += kHour;
  listed_.clear();
  look();
  EXPECT_EQ(ledger_.number_of(kUnauditedSince), 0);
  EXPECT_EQ(listed_[1].end - listed_[1].begin - kHour + 1, 30 * kMinute);
}

TEST_F(MissingTest, AnAuditThatIsInterruptedHasNotFailed) {
  now_ += 15 * kMinute;
  gather();
  interrupts_ = true;
  look();
  look();
  EXPECT_EQ(listed_.size(), 2U);
  interrupts_ = false;
  look();
  look();
  EXPECT_EQ(listed_.size(), 3U);
}

}  // namespace
}  // namespace corvane::coverage
