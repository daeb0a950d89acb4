#include "coverage/gathers.h"

#include <gtest/gtest.h>

#include "tests/support/scratch_dir.h"
#include "tests/support/sql.h"

namespace corvane::coverage {
namespace {

class GathersTest : public testing::Test {
 protected:
  static Gather gather(std::int64_t start, std::int64_t end, Outcome outcome = Outcome::kComplete) {
    return {true,
            start,
            end,
            end + 1,
            end + 5,
            outcome,
            outcome == Outcome::kComplete ? "" : "why " + std::to_string(end)};
  }

  test::ScratchDir directory_;
  Ledger ledger_{directory_("ledger.db")};
  Gathers gathers_{ledger_};
};

TEST_F(GathersTest, TheLogIsReadOnFromWhereItWasRead) {
  EXPECT_EQ(gathers_.log_position().first_line, "");
  EXPECT_EQ(gathers_.log_position().offset, 0);
  EXPECT_EQ(gathers_.reader_state(), ReaderState{});
  const ReaderState state{42,   true, true, true, true,
                          true, 77,   78,   79,   {false, 1, 2, 3, 4, Outcome::kFailed, "why"}};
  gathers_.set_log_position({"first", 99}, state);
  Ledger next(directory_("ledger.db"));
  EXPECT_EQ(Gathers(next).log_position().first_line, "first");
  EXPECT_EQ(Gathers(next).log_position().offset, 99);
  EXPECT_EQ(Gathers(next).reader_state(), state);
  EXPECT_EQ(next.number_of(kPurgedBefore), 77);
  EXPECT_EQ(next.number_of(kPurgedAt), 78);
  EXPECT_EQ(next.number_of(kInterval), 79);
}

TEST_F(GathersTest, CountsLiveGathersByTheirEnd) {
  EXPECT_EQ(gathers_.counts(0), GatherCounts{});
  gathers_.add({.start = 1, .end = 90, .began = 91, .ended = 99, .outcome = Outcome::kFailed});
  gathers_.add({.start = 91, .end = 100, .began = 95, .ended = 100});
  gathers_.add({.start = 101, .end = 110, .began = 111, .ended = 115, .outcome = Outcome::kCut});
  gathers_.add({.start = 0, .end = 0, .began = 116, .ended = 118, .outcome = Outcome::kSkipped});
  gathers_.add({.start = 111, .end = 120, .began = 121, .ended = 128});
  gathers_.add({.is_live = false,
                .start = 1,
                .end = 2,
                .began = 5,
                .ended = 200,
                .outcome = Outcome::kFailed});
  EXPECT_EQ(gathers_.counts(100), (GatherCounts{.from = 91,
                                                .gathers = 4,
                                                .failed = 2,
                                                .last_failed = 118,
                                                .last_end = 128,
                                                .last_seconds = 7}));
  EXPECT_EQ(gathers_.counts(99).gathers, 5);
  EXPECT_EQ(gathers_.counts(99).failed, 3);
  EXPECT_EQ(gathers_.counts(119).last_failed, 0);
  EXPECT_EQ(gathers_.counts(129).gathers, 0);
  EXPECT_EQ(gathers_.counts(129).last_end, 128);
  EXPECT_EQ(gathers_.last_end(), 200);
}

TEST_F(GathersTest, KnowsUntilWhenTheServiceHasAsked) {
  gathers_.add(gather(10, 19));
  EXPECT_EQ(gathers_.asked_until(), 19);
  gathers_.add(gather(20, 29, Outcome::kFailed));
  EXPECT_EQ(gathers_.asked_until(), 29);
  gathers_.add({.began = 40, .ended = 41, .outcome = Outcome::kSkipped});
  EXPECT_EQ(gathers_.asked_until(), 40);
  gathers_.add(gather(30, 35));
  EXPECT_EQ(gathers_.asked_until(), 40);
}

TEST_F(GathersTest, KnowsTheGathersThatFailedInARow) {
  gathers_.add(gather(10, 19, Outcome::kFailed));
  gathers_.add(gather(20, 29));
  EXPECT_EQ(gathers_.health(), (GatherHealth{0, 0, "", 34, 0}));
  gathers_.add(gather(30, 39, Outcome::kFailed));
  gathers_.add(gather(40, 49, Outcome::kCut));
  Gather slice = gather(1, 2);
  slice.is_live = false;
  gathers_.add(slice);
  EXPECT_EQ(gathers_.health(), (GatherHealth{2, 40, "why 49", 34, 0}));
  gathers_.set_log_position({}, {.is_open = true, .gather = {.began = 77}});
  EXPECT_EQ(gathers_.health().open_since, 77);
  gathers_.set_log_position({}, {.is_open = false, .gather = {.began = 77}});
  gathers_.add(gather(50, 59));
  EXPECT_EQ(gathers_.health(), (GatherHealth{0, 0, "", 64, 0}));
}

TEST_F(GathersTest, OfNoneNothingIsKnown) {
  EXPECT_EQ(gathers_.health(), GatherHealth{});
  EXPECT_EQ(gathers_.last_end(), 0);
  EXPECT_EQ(gathers_.asked_until(), 0);
}

// Others read the table.
TEST_F(GathersTest, StoresEachOfThemWithItsOutcome) {
  const auto made = [](bool is_live, Outcome outcome) {
    return Gather{is_live, 1, 2, 3, 4, outcome, "why"};
  };
  gathers_.add(made(true, Outcome::kComplete));
  gathers_.add(made(false, Outcome::kFailed));
  gathers_.add(made(true, Outcome::kCut));
  gathers_.add(made(true, Outcome::kSkipped));
  EXPECT_EQ(test::query(ledger_.handle(),
                        "SELECT is_live, start, until, began, ended, outcome, reason FROM gather "
                        "ORDER BY id"),
            (std::vector<test::SqlRow>{{"1", "1", "2", "3", "4", "0", "why"},
                                       {"0", "1", "2", "3", "4", "1", "why"},
                                       {"1", "1", "2", "3", "4", "2", "why"},
                                       {"1", "1", "2", "3", "4", "3", "why"}}));
}

TEST_F(GathersTest, ForgetsOldOnes) {
  gathers_.add(gather(10, 19));
  gathers_.add(gather(20, 29));
  gathers_.forget(34);
  EXPECT_EQ(ledger_.number("SELECT count(*) FROM gather"), 1);
  EXPECT_EQ(gathers_.asked_until(), 29);
}

TEST_F(GathersTest, ForgetsThoseOfTheFuture) {
  gathers_.add({.start = 1, .end = 20, .began = 18, .ended = 20});
  gathers_.add({.start = 1, .end = 21, .began = 18, .ended = 20});
  gathers_.add({.start = 1, .end = 2, .began = 18, .ended = 21});
  gathers_.forget_after(20);
  EXPECT_EQ(ledger_.number("SELECT count(*) FROM gather"), 1);
  EXPECT_EQ(gathers_.asked_until(), 20);
}

}  // namespace
}  // namespace corvane::coverage
