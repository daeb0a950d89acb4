#include "coverage/observer.h"

#include <gtest/gtest.h>

#include "tests/unit/coverage/healer_world.h"

namespace corvane::coverage {
namespace {

class ObserverTest : public HealerWorld {};

TEST_F(ObserverTest, ABackupThatWaitsIsKnownSinceALookFoundItFirst) {
  const auto since = [&] {
    look();
    return ledger_.number_of(kUnjudgedSince);
  };
  const auto judge = [&](const char* which) {
    Connection(database_, Connection::Access::kWrite)
        .execute((std::string("UPDATE DATA_TO_PROCESS SET PROCESSED_STATUS = 1") + which).c_str());
  };
  EXPECT_EQ(since(), 0);
  jobs_ = {{1, kStart + 10, kStart + 20}, {2, kStart + 30, kStart + 40}};
  now_ += 15 * kMinute;
  gather();
  const std::int64_t found = now_;
  EXPECT_EQ(since(), found);
  now_ += 5 * kMinute;
  EXPECT_EQ(since(), found);
  judge(" WHERE rowid = 1");
  EXPECT_EQ(since(), now_);
  judge("");
  EXPECT_EQ(since(), 0);
  judge(" + 1 - 2");  // both wait again
  EXPECT_EQ(since(), now_);
  ledger_.set_number(kUnjudgedSince, now_ + 1);  // by a clock that was ahead
  EXPECT_EQ(since(), now_);
}

TEST_F(ObserverTest, AGatherUnderWayIsNoHole) {
  now_ += 15 * kMinute;
  gather(How::kAndIsKilled);
  is_alive_ = true;
  look();
  EXPECT_EQ(holes(), std::vector<TimeRange>{});
  EXPECT_EQ(asked_, std::vector<TimeRange>{});
  EXPECT_EQ(gathers_.health().open_since, now_);
}

TEST_F(ObserverTest, AClockThatWasAheadIsNotBelieved) {
  now_ += 15 * kMinute;
  gather();
  look();
  const std::int64_t right = now_;
  now_ += 24 * kHour;  // wrong
  gather();
  look();
  now_ = right + 15 * kMinute;
  jobs_ = {{1, right + 10, right + 20}};
  look();
  EXPECT_EQ(ledger_.acts(5).back().text.substr(0, 20), "The clock was ahead.");
  now_ = right + 24 * kHour + 15 * kMinute;
  gather();
  look();
  EXPECT_EQ(stored(), 1);
  EXPECT_EQ(holes(), std::vector<TimeRange>{});
}

// Of a database from before and after a look: what the look has added is missing in the copy.
TEST_F(ObserverTest, AnOlderCopyIsFilledAgainAsOftenAsItComes) {
  jobs_ = {{1, kStart + 10, kStart + 20}};
  now_ += 15 * kMinute;
  gather(How::kNothing);
  for (int i = 0; i < 3; ++i) {
    service_->execute("DELETE FROM DATA_TO_PROCESS");
    look();
    EXPECT_EQ(stored(), 1) << i;
  }
}

TEST_F(ObserverTest, AnOlderCopyIsNoticedWhenItHasGrown) {
  jobs_ = {{1, kStart + 10, kStart + 20}};
  now_ += 15 * kMinute;
  gather();
  look();
  ASSERT_EQ(stored(), 1);
  service_->execute("DELETE FROM DATA_TO_PROCESS");
  jobs_.push_back({2, kStart + 15 * kMinute + 10, kStart + 15 * kMinute + 20});
  now_ += 15 * kMinute;
  gather();
  ASSERT_EQ(stored(), 1);  // in the place of the one that the copy lacks
  look();
  EXPECT_EQ(stored(), 2);
}

// It takes newer backups for older ones.
TEST_F(ObserverTest, WhatIsDeletedWhileTheClockIsAheadIsGatheredAgain) {
  jobs_ = {{1, kStart + 10, kStart + 20},
           {2, kStart + 15 * kMinute + 10, kStart + 15 * kMinute + 20}};
  for (int i = 0; i < 2; ++i) {
    now_ += 15 * kMinute;
    gather();
    look();
  }
  EXPECT_EQ(stored(), 2);
  const std::int64_t right = now_;
  now_ += 24 * kHour;  // wrong
  service_->execute("DELETE FROM DATA_TO_PROCESS WHERE JOB_ID = 1");
  gather();
  look();
  now_ = right + 15 * kMinute;
  look();
  EXPECT_EQ(stored(), 2);
}

TEST_F(ObserverTest, AnotherDatabaseIsFilledAgain) {
  jobs_ = {{1, kStart + 10, kStart + 20}};
  now_ += 15 * kMinute;
  gather();
  now_ += 15 * kMinute;
  gather();
  look();
  for (const char* file : {"", "-wal", "-shm"}) std::filesystem::remove(database_ + file);
  service_.emplace(make_database(database_));
  now_ += 15 * kMinute;
  gather();
  look();
  EXPECT_EQ(stored(), 1);
}

// Each sign counts by itself.
TEST_F(ObserverTest, ADatabaseIsKnownByItsFileAndItsLastRows) {
  now_ += 15 * kMinute;
  gather();
  store(database_, {{1, kStart + 10, kStart + 20}, {2, kStart + 11, kStart + 20}});
  service_->execute("INSERT INTO HIST_DATA SELECT * FROM DATA_TO_PROCESS");
  look();
  // Whether backups are compared with the server's again after this.
  const auto audits_after = [&](const char* sql) {
    service_->execute(sql);
    listed_.clear();
    look();
    return !listed_.empty();
  };
  EXPECT_FALSE(audits_after("SELECT 1"));
  EXPECT_TRUE(audits_after("DELETE FROM HIST_DATA WHERE JOB_ID = 2"));
  EXPECT_FALSE(audits_after("SELECT 1"));
  EXPECT_FALSE(
      audits_after("INSERT INTO HIST_DATA SELECT * FROM DATA_TO_PROCESS WHERE JOB_ID = 2"));
  EXPECT_TRUE(audits_after("DELETE FROM DATA_TO_PROCESS WHERE JOB_ID = 2"));
  EXPECT_TRUE(audits_after("UPDATE HIST_DATA SET UNIQUE_KEY = 'a' WHERE JOB_ID = 2"));
  EXPECT_FALSE(audits_after("DELETE FROM HIST_DATA WHERE JOB_ID = 1"));
  EXPECT_TRUE(audits_after("UPDATE DATA_TO_PROCESS SET UNIQUE_KEY = 'b'"));
  service_.reset();
  std::filesystem::copy_file(database_, directory_("copy"));
  std::filesystem::rename(directory_("copy"), database_);
  service_.emplace(database_, Connection::Access::kWrite);
  EXPECT_TRUE(audits_after("SELECT 1"));
}

// Of the gather in between nothing is known.
TEST_F(ObserverTest, ALogThatIsGoneIsAHole) {
  now_ += 15 * kMinute;
  gather();
  look();
  now_ += 15 * kMinute;
  jobs_ = {{1, now_ - 30, now_ - 20}};
  gather(How::kNothing);
  std::filesystem::remove(log_);
  now_ += 15 * kMinute;
  gather();
  look();
  EXPECT_EQ(
      asked_,
      (std::vector<TimeRange>{{kStart + 15 * kMinute + 1 - 24 * kHour, kStart + 30 * kMinute}}));
  EXPECT_EQ(stored(), 1);
  EXPECT_EQ(holes(), std::vector<TimeRange>{});
}

TEST_F(ObserverTest, WithoutALogTheDatabaseTellsHowFarTheServiceAsked) {
  jobs_ = {{1, kStart + 10, kStart + 20}};
  now_ += 15 * kMinute;
  marker_ = now_;
  mark();
  now_ += 5 * kMinute;
  look();
  EXPECT_EQ(asked_, (std::vector<TimeRange>{{kStart - 24 * kHour, marker_}}));
  EXPECT_EQ(stored(), 1);
  EXPECT_EQ(holes(), std::vector<TimeRange>{});
}

// A gather of the time that the clock was ahead says nothing of the present.
TEST_F(ObserverTest, AfterAClockThatWasAheadNothingIsGatheredTwice) {
  now_ += 15 * kMinute;
  gather();
  look();
  const std::int64_t right = now_;
  now_ += 24 * kHour;  // wrong
  gather(How::kNothing);
  now_ = right;
  for (int i = 0; i < 8; ++i) {
    now_ += 5 * kMinute;
    marker_ = right;
    if (i == 0) gather();
    look();
  }
  EXPECT_EQ(asked_.size(), 1U);
  EXPECT_EQ(holes(), std::vector<TimeRange>{});
  EXPECT_EQ(ledger_.acts(5).back().text,
            "The clock was ahead. Backups since 2026-01-31 04:15 UTC are gathered again");
}

TEST_F(ObserverTest, WithoutAnEarlierLookAClockThatWasAheadConcernsAllThatIsKept) {
  now_ += 24 * kHour;  // wrong
  gather();
  now_ -= 24 * kHour - 15 * kMinute;
  look();
  EXPECT_EQ(ledger_.acts(5).back().text,
            "The clock was ahead. Backups since 2026-01-31 04:00 UTC are gathered again");
}

TEST_F(ObserverTest, WhatAClockThatWasAheadPostponedIsDue) {
  now_ += 15 * kMinute;
  gather(How::kNothing);
  look();
  problem_ = list_problem_ = "away";
  now_ += 24 * kHour;  // wrong
  gather(How::kNothing);
  look();
  EXPECT_GT(holes_in_ledger_.all().front().next_try, now_);
  now_ -= 24 * kHour;
  problem_ = list_problem_ = "";
  look();
  EXPECT_EQ(holes(), std::vector<TimeRange>{});
}

// The service deletes by the setting that it read when it started.
TEST_F(ObserverTest, WhatTheServicePurgesIsNotGatheredAgain) {
  jobs_ = {{1, kStart + 10, kStart + 20}, {2, kStart + 1000, kStart + 1010}};
  now_ += 30 * kMinute;
  gather();
  log("Cleaning records before " + std::to_string(kStart + 900));
  service_->execute("DELETE FROM DATA_TO_PROCESS WHERE JOB_ID = 1");
  for (int i = 0; i < 3; ++i) {
    now_ += 15 * kMinute;
    gather();
    look();
  }
  EXPECT_EQ(stored(), 1);
  EXPECT_EQ(ledger_.number_of(kPurgedBefore), kStart + 900);
  EXPECT_EQ(asked_, std::vector<TimeRange>{});
  log("Cleaning records before " + std::to_string(kStart - 900));  // it was restarted
  service_->execute("DELETE FROM DATA_TO_PROCESS");
  look();
  EXPECT_EQ(stored(), 2);
}

TEST_F(ObserverTest, APurgeOfTheFutureSaysNothing) {
  jobs_ = {{1, kStart + 10, kStart + 20}};
  now_ += 15 * kMinute;
  gather();
  now_ += 400 * kDay;
  log("Cleaning records before " + std::to_string(now_ - 365 * kDay));
  now_ -= 400 * kDay;
  service_->execute("DELETE FROM DATA_TO_PROCESS");
  look();
  look();
  EXPECT_EQ(stored(), 1);
}

// Clocks differ by a minute.
TEST_F(ObserverTest, APurgeIsKnownUpToAMinuteAhead) {
  Observer observer(ledger_, surroundings().sights);
  ledger_.set_number(kPurgedBefore, kStart + 5);
  ledger_.set_number(kPurgedAt, now_ + 60);
  EXPECT_EQ(observer.not_before(kStart), kStart + 5);
  EXPECT_EQ(observer.not_before(kStart + 6), kStart + 6);
  ledger_.set_number(kPurgedAt, now_ + 61);
  EXPECT_EQ(observer.not_before(kStart), kStart);
}

TEST_F(ObserverTest, EverythingMayBeMadeDue) {
  now_ += 15 * kMinute;
  gather(How::kNothing);
  problem_ = "away";
  look();
  missing_.add({.unique_key = "a", .job = {1, 2}, .found = kStart, .next_try = now_ + 1});
  ledger_.set_number(kAuditNextTry, now_ + 1);
  ASSERT_GT(holes_in_ledger_.all().at(0).next_try, 0);
  Observer(ledger_, surroundings().sights).make_due();
  EXPECT_EQ(holes_in_ledger_.all().at(0).next_try, 0);
  EXPECT_EQ(missing_.all().at(0).next_try, 0);
  EXPECT_EQ(ledger_.number_of(kAuditNextTry), 0);
}

// They were there once, although a first start gathers only three months.
TEST_F(ObserverTest, BackupsOfAYearComeBack) {
  not_before_ = kStart - 365 * kDay;
  jobs_ = {{1, kStart - 200 * kDay, kStart - 200 * kDay + 10}};
  store(database_, jobs_);
  now_ += 15 * kMinute;
  gather();
  for (int i = 0; i < 2; ++i) look();
  service_->execute("DELETE FROM DATA_TO_PROCESS");
  for (int i = 0; i < 2; ++i) look();
  EXPECT_EQ(stored(), 1);
  EXPECT_EQ(asked_.front().end, kStart - 200 * kDay + 6 * kHour - 1);
}

TEST_F(ObserverTest, OfANewDatabaseThreeMonthsAreAskedFor) {
  not_before_ = kStart - 365 * kDay;
  now_ += 15 * kMinute;
  gather();
  look();
  EXPECT_EQ(asked_.front().begin, now_ - 91 * kDay - kDay);
}

}  // namespace
}  // namespace corvane::coverage
