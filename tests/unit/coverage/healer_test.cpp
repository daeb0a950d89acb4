#include "coverage/healer.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/unit/coverage/healer_world.h"

namespace corvane::coverage {
namespace {

class HealerTest : public HealerWorld {};

TEST_F(HealerTest, WithoutFailuresNothingIsGatheredAgain) {
  jobs_ = {{1, kStart + 10, kStart + 20}, {2, kStart + 100, kStart + 2000}};
  for (int i = 0; i < 4; ++i) {
    now_ += 15 * kMinute;
    gather();
    look();
  }
  EXPECT_EQ(stored(), 2);
  EXPECT_EQ(holes(), std::vector<TimeRange>{});
  EXPECT_EQ(asked_, std::vector<TimeRange>{});
  EXPECT_EQ(ledger_.acts(5), std::vector<Act>{});
}

TEST_F(HealerTest, AFailedGatherIsMadeGood) {
  jobs_ = {{1, kStart + 10, kStart + 20}};
  now_ += 15 * kMinute;
  gather(How::kNothing);
  now_ += 15 * kMinute;
  gather();
  EXPECT_EQ(stored(), 0);
  look();
  EXPECT_EQ(stored(), 1);
  EXPECT_EQ(holes(), std::vector<TimeRange>{});
  ASSERT_EQ(asked_.size(), 1U);
  EXPECT_EQ(asked_[0], (TimeRange{kStart - 24 * kHour, kStart + 15 * kMinute}));
  EXPECT_EQ(ledger_.acts(5),
            (std::vector<Act>{{now_,
                               "1 backup gathered again: 2026-01-31 04:00 UTC to 2026-01-31 "
                               "04:15 UTC"}}));
}

// The service has lost the time of its last gather, and gathers the history again.
TEST_F(HealerTest, WhatOnlyARepeatedHistoryBringsIsGatheredAgainToBeJudged) {
  jobs_ = {{1, kStart - 100, kStart - 90},
           {2, kStart + 10, kStart + 20},
           {3, kStart + 910, kStart + 920}};
  not_before_ = kStart - kHour;
  const auto gather_history = [&] {
    for (const Job& job : jobs_within({kStart - kHour, now_})) {
      service_->execute(
          ("DELETE FROM HIST_DATA WHERE UNIQUE_KEY = '" + job.row().unique_key + "'").c_str());
      BackupRow row = job.row();
      row.mode = 0;
      row.cluster_or_status = -1;
      DBAccess access(database_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX);
      insert_row(access, kInsertHistData, row);
    }
    const std::string range = "Capturing data between " + std::to_string(kStart - kHour) + " & " +
                              std::to_string(now_) + " ";
    log_history("Capturing historical data.");
    log_history(range);  // as a whole, and of the only slice
    log_history(range);
    log(range);
    log("Done capturing historical data.");
    log("Total time taken for historical gather 0.");
    marker_ = now_;
    mark();
  };
  gather_history();
  look();
  now_ += 15 * kMinute;
  gather();
  look();
  EXPECT_EQ(stored(), 1);
  now_ += 15 * kMinute;
  gather_history();
  now_ += 15 * kMinute;
  gather();
  look();
  EXPECT_EQ(stored(), 2);
  EXPECT_EQ(test::query(service_->handle(), "SELECT JOB_ID FROM DATA_TO_PROCESS ORDER BY 1"),
            (std::vector<test::SqlRow>{{"2"}, {"3"}}));
  EXPECT_EQ(holes(), std::vector<TimeRange>{});
}

TEST_F(HealerTest, AGatherThatWasKilledIsMadeGood) {
  jobs_ = {{1, kStart + 10, kStart + 20}};
  now_ += 15 * kMinute;
  gather();
  now_ += 15 * kMinute;
  jobs_.push_back({2, now_ - 60, now_ - 50});
  gather(How::kAndIsKilled);
  look();
  EXPECT_EQ(stored(), 2);
  EXPECT_EQ(holes(), std::vector<TimeRange>{});
}

TEST_F(HealerTest, ThePausesGrowAndHaveAnEnd) {
  jobs_ = {{1, kStart + 10, kStart + 20}};
  now_ += 15 * kMinute;
  gather(How::kNothing);
  now_ += 15 * kMinute;
  gather();
  problem_ = list_problem_ = "refused";
  std::vector<std::int64_t> attempts;
  for (int i = 0; i < 300; ++i) {
    now_ += kMinute;
    if (i % 15 == 14) gather();
    const std::size_t before = asked_.size();
    look();
    if (asked_.size() > before) attempts.push_back(i);
  }
  EXPECT_EQ(attempts, (std::vector<std::int64_t>{0, 5, 15, 35, 75}));
  EXPECT_EQ(holes(), std::vector<TimeRange>{});
  EXPECT_EQ(holes_in_ledger_.lost(), (std::vector<TimeRange>{{kStart, kStart + 15 * kMinute}}));
  EXPECT_EQ(ledger_.acts(1)[0].text,
            "A range was given up after 5 attempts: 2026-01-31 04:00 UTC to 2026-01-31 04:15 UTC. "
            "refused");
}

// One backup that makes every gather fail must not cost the others.
TEST_F(HealerTest, WhatIsMissingOfALostRangeIsGatheredOneByOne) {
  store(database_, {{1, kStart - 20, kStart - 10}});
  for (int i = 0; i < 8; ++i) {
    jobs_.push_back({i + 2, kStart + i * kHour + 2, kStart + i * kHour + 12});
  }
  now_ += 8 * kHour;
  gather(How::kNothing);
  const auto is_poisoned = [this] {
    const TimeRange& asked = asked_.back();
    return asked.begin <= jobs_[3].start && jobs_[3].end <= asked.end;
  };
  on_gathered_ = [&](const std::string& scratch) {
    if (is_poisoned()) test::write_file(scratch, std::string(5000, 'x'));
  };
  for (int i = 0; i < 60; ++i) {
    now_ += 15 * kMinute;
    gather();
    look();
  }
  EXPECT_EQ(stored(), 8);
  EXPECT_EQ(holes_in_ledger_.lost(), std::vector<TimeRange>{});
  EXPECT_EQ(missing_.count_given_up(), 1);
}

TEST_F(HealerTest, NothingIsGivenUpWhileTheServicesOwnGathersFail) {
  jobs_ = {{1, kStart + 10, kStart + 20}};
  problem_ = list_problem_ = "away";
  for (int i = 0; i < 4 * 24; ++i) {
    now_ += 15 * kMinute;
    gather(How::kNothing);
    look();
  }
  EXPECT_EQ(holes_in_ledger_.lost(), std::vector<TimeRange>{});
  EXPECT_LT(asked_.size(), 20U);
  problem_ = list_problem_ = "";
  now_ += 6 * kHour;
  gather();
  look();
  EXPECT_EQ(stored(), 1);
  EXPECT_EQ(holes(), std::vector<TimeRange>{});
}

TEST_F(HealerTest, WithoutADatabaseNothingIsHealed) {
  now_ += 15 * kMinute;
  gather(How::kNothing);
  service_.reset();
  for (const char* file : {"", "-wal", "-shm"}) std::filesystem::remove(database_ + file);
  look();
  EXPECT_EQ(asked_, std::vector<TimeRange>{});
  EXPECT_EQ(holes(), (std::vector<TimeRange>{{kStart, now_}}));
}

TEST_F(HealerTest, StopsBetweenTwoPortions) {
  now_ += 10 * kDay;
  marker_ = now_ - 10;
  gather();
  stops_after_ = 3;
  look();
  EXPECT_EQ(asked_.size(), 3U);
  EXPECT_EQ(holes().front().begin, asked_.back().end + 1);
  stops_after_ = -1;
  look();
  EXPECT_EQ(holes(), std::vector<TimeRange>{});
}

TEST_F(HealerTest, MoreIsAskedForAsLongAsTheAnswersComeQuickly) {
  store(database_, {{1, kStart - 20, kStart - 10}});
  now_ += 60 * kDay;
  marker_ = now_ - 10;
  gather();
  std::int64_t takes = 15;
  on_gathered_ = [&](const std::string&) {
    now_ += takes;
    if (asked_.size() == 4) takes = 16;
  };
  look();
  std::vector<std::int64_t> hours;
  for (const TimeRange& range : asked_) hours.push_back((range.end - range.begin) / kHour);
  ASSERT_GE(hours.size(), 7U);
  hours.resize(7);
  EXPECT_EQ(hours, (std::vector<std::int64_t>{6, 12, 24, 48, 96, 96, 96}));
}

TEST_F(HealerTest, AfterAFailureLittleIsAskedFor) {
  store(database_, {{1, kStart - 20, kStart - 10}});
  now_ += 60 * kDay;
  marker_ = now_ - 10;
  gather();
  on_gathered_ = [&](const std::string&) { problem_ = asked_.size() == 3 ? "slow" : ""; };
  look();
  ASSERT_EQ(asked_.size(), 4U);
  problem_ = "";
  on_gathered_ = nullptr;
  now_ += kHour;
  look();
  EXPECT_EQ((asked_[4].end - asked_[4].begin) / kHour, 3);
  EXPECT_EQ((asked_[5].end - asked_[5].begin) / kHour, 6);
}

TEST_F(HealerTest, ARangeIsGatheredByHand) {
  jobs_ = {{1, kStart + 10, kStart + 20}};
  now_ += kDay;
  EXPECT_EQ(gather_by_hand({kStart, kStart + 30}).added, 1);
  EXPECT_EQ(gather_by_hand({kStart, kStart + 30}).added, 0);
  // It reaches back by a day, and then by the longest backup that is known.
  EXPECT_EQ(asked_,
            (std::vector<TimeRange>{{kStart - kDay, kStart + 30}, {kStart - 10, kStart + 30}}));
  EXPECT_EQ(ledger_.acts(5).back().text,
            "1 backup gathered by hand: 2026-01-31 04:00 UTC to 2026-01-31 04:00 UTC");
  asked_.clear();
  // In portions, of which each reaches back by the longest backup.
  EXPECT_EQ(gather_by_hand({kStart, kStart + 12 * kHour}).added, 0);
  EXPECT_EQ(asked_, (std::vector<TimeRange>{{kStart - 10, kStart + 6 * kHour - 1},
                                            {kStart + 6 * kHour - 10, kStart + 12 * kHour - 1},
                                            {kStart + 12 * kHour - 10, kStart + 12 * kHour}}));
  problem_ = "away";
  EXPECT_THROW(gather_by_hand({kStart, kStart + 30}), std::runtime_error);
}

TEST_F(HealerTest, ByHandItGoesOnWhereItHasStopped) {
  store(database_, {{1, kStart - 20, kStart - 10}});
  jobs_ = {{2, kStart + 10, kStart + 20}};
  now_ += 7 * kHour;
  Healer::ByHand done = gather_by_hand({kStart, kStart + kDay}, true);
  EXPECT_FALSE(done.is_whole);
  EXPECT_EQ(done.added, 1);
  EXPECT_EQ(done.next, kStart + 6 * kHour);
  EXPECT_EQ(ledger_.acts(1)[0].text,
            "1 backup gathered by hand: 2026-01-31 04:00 UTC to 2026-01-31 09:59 UTC");
  done = gather_by_hand({done.next, kStart + kDay}, true);
  EXPECT_TRUE(done.is_whole);
  EXPECT_EQ(done.added, 0);
  EXPECT_EQ(ledger_.acts(1)[0].text,
            "0 backups gathered by hand: 2026-01-31 10:00 UTC to 2026-02-01 04:00 UTC");
  EXPECT_EQ(asked_, (std::vector<TimeRange>{{kStart - 10, kStart + 6 * kHour - 1},
                                            {kStart + 6 * kHour - 10, now_}}));
  // Of what has not come yet there is nothing to gather.
  EXPECT_TRUE(gather_by_hand({now_ + 1, now_ + 2}).is_whole);
  EXPECT_EQ(asked_.size(), 2U);
}

TEST_F(HealerTest, ByHandASlowServerIsAskedForLess) {
  store(database_, {{1, kStart - 20, kStart - 10}});
  now_ += kDay;
  problem_ = "slow";
  EXPECT_THROW(gather_by_hand({kStart, kStart + 12 * kHour}), std::runtime_error);
  std::vector<std::int64_t> minutes;
  for (const TimeRange& range : asked_) minutes.push_back((range.end - kStart + 1) / kMinute);
  EXPECT_EQ(minutes, (std::vector<std::int64_t>{360, 90, 22, 15}));
}

TEST_F(HealerTest, ByHandALongBackupThatIsMissingIsReached) {
  store(database_, {{1, kStart - 20, kStart - 10}});
  jobs_ = {{2, kStart - 30 * kHour, kStart + 10}};
  now_ += kDay;
  missing_.add({jobs_[0].row().unique_key, {jobs_[0].start, jobs_[0].end}, now_});
  not_before_ = kStart - 40 * kHour;
  EXPECT_EQ(gather_by_hand({kStart, kStart + kHour}).added, 1);
}

TEST_F(HealerTest, WhatIsGatheredByHandIsNotLost) {
  now_ += 10 * kHour;
  holes_in_ledger_.lose({kStart, kStart + 9 * kHour}, "refused", now_);
  gather_by_hand({kStart + kHour, kStart + 20 * kHour});
  EXPECT_EQ(holes_in_ledger_.lost(), (std::vector<TimeRange>{{kStart, kStart + kHour - 1}}));
  // What has not come yet is not covered.
  EXPECT_EQ(holes_in_ledger_.covered().all(), (std::vector<TimeRange>{{kStart + kHour, now_}}));
}

TEST_F(HealerTest, WhatWaitsIsTriedWhenTheServicesGathersSucceedAgain) {
  jobs_ = {{1, kStart + 10, kStart + 20}};
  problem_ = list_problem_ = "away";
  for (int i = 0; i < 12; ++i) {
    now_ += 15 * kMinute;
    gather(How::kNothing);
    look();
  }
  EXPECT_GT(holes_in_ledger_.all().front().next_try, now_ + 15 * kMinute);
  problem_ = list_problem_ = "";
  now_ += 15 * kMinute;
  gather();
  look();
  EXPECT_EQ(stored(), 1);
}

TEST_F(HealerTest, AGatherThatIsInterruptedIsNoAttempt) {
  jobs_ = {{1, kStart + 10, kStart + 20}};
  now_ += 15 * kMinute;
  gather(How::kNothing);
  interrupts_ = true;
  look();
  EXPECT_EQ(holes_in_ledger_.all().front().attempts, 0);
  EXPECT_EQ(holes_in_ledger_.all().front().next_try, 0);
  interrupts_ = false;
  look();
  EXPECT_EQ(stored(), 1);
}

TEST_F(HealerTest, ASlowServerIsAskedForLessEachTime) {
  store(database_, {{1, kStart - 3 * 24 * kHour, kStart - 24 * kHour}});  // took two days
  now_ += 3 * 24 * kHour;
  marker_ = kStart - 1;
  gather(How::kNothing);
  now_ += 15 * kMinute;
  gather();
  problem_ = "slow";
  for (int i = 0; i < 4; ++i) {
    look();
    now_ += kHour;
  }
  const std::int64_t two_days = 48 * kHour;
  EXPECT_EQ(asked_, (std::vector<TimeRange>{
                        {kStart - two_days, kStart + two_days - 1},
                        {kStart - two_days / 4, kStart + two_days / 2 - 1},
                        {kStart - two_days / 16, kStart + two_days / 4 - 1},
                        {kStart - two_days / 64, kStart + two_days / 8 - 1},
                    }));
}

TEST_F(HealerTest, ALongBackupDoesNotMakeTheWindowsEndless) {
  store(database_, {{1, kStart - 20 * 24 * kHour, kStart - kHour}});
  now_ += 15 * kMinute;
  gather(How::kNothing);
  look();
  EXPECT_EQ(asked_[0].begin, kStart - 7 * 24 * kHour);
}

TEST_F(HealerTest, NoWindowBeginsBefore1970) {
  not_before_ = 0;
  gather_by_hand({100, 200});
  EXPECT_EQ(asked_, (std::vector<TimeRange>{{0, 200}}));
}

// The process was killed while it wrote.
TEST_F(HealerTest, RowsThatCannotBeReadAreAnAttemptThatFailed) {
  jobs_ = {{1, kStart + 10, kStart + 20}};
  now_ += 15 * kMinute;
  gather(How::kNothing);
  on_gathered_ = [](const std::string& scratch) {
    test::write_file(scratch, std::string(5000, 'x'));
  };
  look();
  EXPECT_EQ(holes_in_ledger_.all().front().attempts, 1);
  EXPECT_EQ(holes_in_ledger_.all().front().reason, "The rows cannot be read");
  on_gathered_ = nullptr;
  now_ += kHour;
  look();
  EXPECT_EQ(stored(), 1);
}

TEST_F(HealerTest, WhatCannotBeAddedIsNotGivenUp) {
  jobs_ = {{1, kStart + 10, kStart + 20}};
  now_ += 15 * kMinute;
  gather(How::kNothing);
  now_ += 15 * kMinute;
  gather();
  service_->execute(
      "CREATE TRIGGER full BEFORE INSERT ON DATA_TO_PROCESS BEGIN SELECT RAISE(ABORT, 'disk is "
      "full'); END");
  for (int i = 0; i < 10; ++i) {
    now_ += 6 * kHour;
    gather();
    look();
  }
  EXPECT_GE(asked_.size(), 10U);
  EXPECT_EQ(holes_in_ledger_.all().front().reason, "Query failed: disk is full");
  EXPECT_EQ(holes_in_ledger_.lost(), std::vector<TimeRange>{});
  service_->execute("DROP TRIGGER full");
  now_ += 6 * kHour;
  look();
  EXPECT_EQ(stored(), 1);
}

// While the service's own gathers fail, nothing is given up, however long that takes.
TEST_F(HealerTest, AnyNumberOfAttemptsIsNoProblem) {
  now_ += 15 * kMinute;
  gather(How::kNothing);
  problem_ = list_problem_ = "away";
  for (int i = 0; i < 70; ++i) {
    now_ += 6 * kHour;
    look();
  }
  EXPECT_EQ(asked_.size(), 70U);
  EXPECT_EQ(asked_.back().begin, kStart);
  EXPECT_EQ(asked_.back().end, kStart + 15 * kMinute - 1);
}

TEST_F(HealerTest, AHoleThatIsHealedByHandIsGoneAtOnce) {
  now_ += 15 * kMinute;
  gather(How::kNothing);
  problem_ = list_problem_ = "away";
  look();
  EXPECT_EQ(holes().size(), 1U);
  problem_ = list_problem_ = "";
  gather_by_hand({kStart, now_});
  EXPECT_EQ(holes(), std::vector<TimeRange>{});
}

TEST_F(HealerTest, AGatherByHandThatFailsTellsWhatItHasAdded) {
  jobs_ = {{1, kStart + 10, kStart + 20}};
  now_ += kDay;
  on_gathered_ = [this](const std::string&) { problem_ = "away"; };
  store(database_, {{2, kStart - 100, kStart - 90}});
  EXPECT_THROW(gather_by_hand({kStart, kStart + 12 * kHour}), std::runtime_error);
  EXPECT_EQ(ledger_.acts(1)[0].text,
            "1 backup gathered by hand: 2026-01-31 04:00 UTC to 2026-01-31 09:59 UTC");
}

// Whatever fails on the way: when it is over, every backup is there once.
TEST_F(HealerTest, AfterAnythingEveryBackupIsThere) {
  for (unsigned seed = 1; seed <= 3; ++seed) {
    std::mt19937 draw(seed);
    const auto drawn = [&](int most) {
      return static_cast<int>(draw() % static_cast<unsigned>(most));
    };
    const std::int64_t begin = now_;
    for (int i = 0; i < 40; ++i) {
      const std::int64_t start = begin + drawn(24 * 3600);
      jobs_.push_back({static_cast<int>(jobs_.size()) + 1, start, start + 1 + drawn(5 * 3600)});
    }
    for (int i = 0; i < 4 * 24; ++i) {
      now_ += 15 * kMinute;
      problem_ = drawn(4) == 0 ? "drawn" : "";
      list_problem_ = drawn(4) == 0 ? "drawn" : "";
      is_alive_ = true;
      gather(static_cast<How>(std::max(0, drawn(6) - 3)));
      if (drawn(3) == 0) look();
    }
    problem_ = list_problem_ = "";
    is_alive_ = true;
    for (int i = 0; i < 4 * 7; ++i) {
      now_ += 15 * kMinute;
      gather();
      look();
    }
    ASSERT_EQ(stored(), static_cast<std::int64_t>(jobs_.size())) << seed;
    EXPECT_EQ(holes(), std::vector<TimeRange>{});
  }
}

}  // namespace
}  // namespace corvane::coverage
