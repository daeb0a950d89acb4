#include "coverage/holes.h"

#include <gtest/gtest.h>

#include "tests/support/scratch_dir.h"

namespace corvane::coverage {
namespace {

using Ranges = std::vector<TimeRange>;

class HolesTest : public testing::Test {
 protected:
  static Gather gather(std::int64_t start, std::int64_t end, Outcome outcome = Outcome::kComplete) {
    return {.start = start, .end = end, .outcome = outcome};
  }
  Ranges ranges_of(const std::vector<Hole>& holes) {
    Ranges ranges;
    for (const Hole& hole : holes) ranges.push_back(hole.range);
    return ranges;
  }

  test::ScratchDir directory_;
  Ledger ledger_{directory_("ledger.db")};
  Holes holes_{ledger_};
};

TEST_F(HolesTest, WhatWasGatheredIsCovered) {
  holes_.add(gather(10, 19));
  holes_.add(gather(20, 29));
  holes_.add(gather(25, 34, Outcome::kFailed));
  EXPECT_EQ(holes_.covered().all(), (Ranges{{10, 24}}));
  holes_.add(gather(40, 49));
  holes_.add(gather(45, 59, Outcome::kCut));
  EXPECT_EQ(holes_.covered().all(), (Ranges{{10, 24}, {40, 44}}));
  holes_.add({.began = 70, .ended = 71, .outcome = Outcome::kSkipped});
  EXPECT_EQ(holes_.covered().all(), (Ranges{{10, 24}, {40, 44}}));
}

TEST_F(HolesTest, TheHistoryCoversWhatWasBeforeTheFirstLiveGather) {
  const auto history = [](std::int64_t start, std::int64_t end) {
    return Gather{.is_live = false, .start = start, .end = end};
  };
  EXPECT_EQ(holes_.first_live(), kEver);
  holes_.add(history(10, 29));
  EXPECT_EQ(holes_.covered().all(), (Ranges{{10, 29}}));
  Gather cut = history(20, 29);
  cut.outcome = Outcome::kCut;
  holes_.add(cut);
  EXPECT_EQ(holes_.covered().all(), (Ranges{{10, 19}}));
  holes_.add(history(10, 29));
  holes_.add(gather(30, 39, Outcome::kFailed));
  EXPECT_EQ(holes_.first_live(), kEver);
  holes_.add(gather(40, 49));
  holes_.add(gather(50, 59));
  EXPECT_EQ(holes_.first_live(), 40);
  for (std::int64_t start = 0; start < 80; start += 20) holes_.add(history(start, start + 19));
  EXPECT_EQ(holes_.covered().all(), (Ranges{{0, 59}}));
  Gather failed = history(10, 49);
  failed.outcome = Outcome::kFailed;
  holes_.add(failed);
  EXPECT_EQ(holes_.covered().all(), (Ranges{{0, 59}})) << "its backups are there";
  holes_.add(gather(20, 25));
  EXPECT_EQ(holes_.first_live(), 20);
}

TEST_F(HolesTest, FindsTheHolesOfARange) {
  holes_.add(gather(10, 19));
  holes_.add(gather(30, 39));
  EXPECT_EQ(ranges_of(holes_.find({0, 50}, 7)), (Ranges{{0, 9}, {20, 29}, {40, 50}}));
  EXPECT_EQ(holes_.all().size(), 3U);
  EXPECT_EQ(holes_.all()[1], (Hole{{20, 29}, 7}));
  EXPECT_EQ(ranges_of(holes_.find({12, 35}, 8)), (Ranges{{20, 29}}));
  EXPECT_EQ(ranges_of(holes_.all()), (Ranges{{20, 29}}));
}

TEST_F(HolesTest, AHoleThatGrowsIsAsOldAsItsOldestPart) {
  holes_.add(gather(10, 19));
  holes_.find({10, 29}, 100);
  EXPECT_EQ(holes_.find({10, 39}, 200), (std::vector<Hole>{{{20, 39}, 100}}));
  holes_.cover({20, 39});
  EXPECT_EQ(holes_.find({10, 45}, 300), (std::vector<Hole>{{{40, 45}, 300}}));
}

TEST_F(HolesTest, AnAttemptIsOfTheBeginningOfAHole) {
  holes_.find({10, 59}, 100);
  holes_.postpone(holes_.all()[0], 500, "refused");
  holes_.postpone(holes_.all()[0], 600, "hangs");
  EXPECT_EQ(holes_.all()[0], (Hole{{10, 59}, 100, 2, 600, "hangs"}));
  // Its oldest part is purged.
  EXPECT_EQ(holes_.find({15, 59}, 200)[0], (Hole{{15, 59}, 100, 2, 600, "hangs"}));
  // The attempts were not made at what follows a part that is covered.
  holes_.cover({30, 39});
  EXPECT_EQ(holes_.find({15, 59}, 200), (std::vector<Hole>{{{15, 29}, 100, 2, 600, "hangs"},
                                                           {{40, 59}, 100, 2, 600, "hangs"}}));
  holes_.heal({15, 19});
  EXPECT_EQ(holes_.find({15, 59}, 200)[0], (Hole{{20, 29}, 100}));
  EXPECT_EQ(holes_.all()[1].attempts, 2);
}

TEST_F(HolesTest, WhatIsLostIsNoHole) {
  holes_.find({10, 59}, 100);
  holes_.lose({10, 29}, "refused", 100);
  EXPECT_EQ(holes_.find({10, 59}, 200), (std::vector<Hole>{{{30, 59}, 100}}));
  EXPECT_EQ(holes_.lost(), (Ranges{{10, 29}}));
}

TEST_F(HolesTest, BehindWhatIsLostAHoleBeginsAnew) {
  holes_.find({10, 59}, 100);
  holes_.postpone(holes_.all()[0], 500, "refused");
  holes_.lose({10, 29}, "refused", 100);
  EXPECT_EQ(holes_.find({10, 59}, 200), (std::vector<Hole>{{{30, 59}, 100}}));
}

TEST_F(HolesTest, RegainsWhatWasLost) {
  holes_.lose({10, 29}, "x", 5);
  holes_.lose({40, 49}, "x", 5);
  holes_.regain({30, 39});
  EXPECT_EQ(holes_.lost(), (Ranges{{10, 29}, {40, 49}}));
  holes_.regain({15, 19});
  EXPECT_EQ(holes_.lost(), (Ranges{{10, 14}, {20, 29}, {40, 49}}));
  holes_.regain({14, 40});
  EXPECT_EQ(holes_.lost(), (Ranges{{10, 13}, {41, 49}}));
  holes_.regain({41, 49});
  EXPECT_EQ(holes_.lost(), (Ranges{{10, 13}}));
  holes_.regain({10, 10});
  EXPECT_EQ(holes_.lost(), (Ranges{{11, 13}}));
}

TEST_F(HolesTest, AuditsWhatIsCovered) {
  holes_.add(gather(10, 29));
  EXPECT_EQ(holes_.to_audit(), (Ranges{{10, 29}}));
  holes_.audit({10, 14});
  holes_.audit({20, 24});
  EXPECT_EQ(holes_.to_audit(), (Ranges{{15, 19}, {25, 29}}));
  holes_.uncover({12, 21});
  EXPECT_EQ(holes_.to_audit(), (Ranges{{25, 29}}));
  holes_.cover({12, 21});
  EXPECT_EQ(holes_.to_audit(), (Ranges{{12, 21}, {25, 29}}));
}

TEST_F(HolesTest, WhatTouchesIsOneSpan) {
  const auto rows = [&] { return ledger_.number("SELECT count(*) FROM span"); };
  holes_.cover({10, 19});
  holes_.cover({30, 39});
  EXPECT_EQ(rows(), 2);
  holes_.cover({21, 28});  // touches neither
  EXPECT_EQ(rows(), 3);
  holes_.cover({20, 20});
  EXPECT_EQ(rows(), 2);
  EXPECT_EQ(holes_.covered().all(), (Ranges{{10, 28}, {30, 39}}));
  holes_.cover({12, 14});
  holes_.cover({5, 4});
  EXPECT_EQ(holes_.covered().all(), (Ranges{{10, 28}, {30, 39}}));
  holes_.cover({0, 50});
  EXPECT_EQ(rows(), 1);
  EXPECT_EQ(holes_.covered().all(), (Ranges{{0, 50}}));
}

TEST_F(HolesTest, PartsOfASpanAreUncovered) {
  holes_.cover({10, 39});
  holes_.audit({10, 39});
  holes_.uncover({20, 29});
  EXPECT_EQ(holes_.covered().all(), (Ranges{{10, 19}, {30, 39}}));
  EXPECT_EQ(ledger_.number("SELECT count(*) FROM span"), 4);
  holes_.uncover({10, 10});
  holes_.uncover({39, 39});
  holes_.uncover({50, 49});
  EXPECT_EQ(holes_.covered().all(), (Ranges{{11, 19}, {30, 38}}));
  EXPECT_EQ(ledger_.number("SELECT count(*) FROM span"), 4);
  holes_.uncover({19, kEver});
  EXPECT_EQ(holes_.covered().all(), (Ranges{{11, 18}}));
}

TEST_F(HolesTest, BetweenTwoFormerHolesThereMayBeOne) {
  holes_.cover({20, 29});
  holes_.find({10, 39}, 100);
  holes_.postpone(holes_.all()[1], 500, "refused");
  holes_.uncover({20, 29});
  EXPECT_EQ(holes_.find({10, 39}, 200), (std::vector<Hole>{{{10, 39}, 100}}));
  holes_.cover({10, 35});
  EXPECT_EQ(holes_.find({10, 39}, 300), (std::vector<Hole>{{{36, 39}, 100}}));
}

// What is missing of it is known one by one.
TEST_F(HolesTest, WhatIsLostIsComparedToo) {
  holes_.lose({10, 29}, "x", 5);
  holes_.cover({30, 39});
  EXPECT_EQ(holes_.to_audit(), (Ranges{{10, 39}}));
  holes_.audit({20, 39});
  EXPECT_EQ(holes_.lost(), (Ranges{{10, 19}}));
  EXPECT_EQ(holes_.to_audit(), (Ranges{{10, 19}}));
  EXPECT_EQ(holes_.find({10, 39}, 300), std::vector<Hole>{});
  holes_.audit({10, 15});
  EXPECT_EQ(holes_.lost(), (Ranges{{16, 19}}));
}

TEST_F(HolesTest, AnAttemptThatDoesNotCountIsWaitedFor) {
  holes_.find({10, 59}, 100);
  holes_.wait(holes_.all()[0], 500, "locked");
  EXPECT_EQ(holes_.all(), (std::vector<Hole>{{{10, 59}, 100, 0, 500, "locked"}}));
}

TEST_F(HolesTest, WhatIsCoveredIsNotLost) {
  holes_.lose({10, 29}, "x", 5);
  holes_.add(gather(15, 40));
  EXPECT_EQ(holes_.lost(), (Ranges{{10, 14}}));
  holes_.heal({10, 14});
  EXPECT_EQ(holes_.lost(), Ranges{});
}

TEST_F(HolesTest, AreMadeDue) {
  holes_.find({10, 59}, 100);
  holes_.postpone(holes_.all()[0], 500, "refused");
  holes_.make_due(200);
  EXPECT_EQ(holes_.all(), (std::vector<Hole>{{{10, 59}, 100, 0, 0, "refused"}}));
  holes_.make_due(99);  // the clock was ahead
  EXPECT_EQ(holes_.all()[0].found, 99);
}

TEST_F(HolesTest, WhatLacksMuchIsGatheredAsAWholeOnce) {
  holes_.cover({10, 39});
  holes_.audit({10, 39});
  holes_.gather_whole({20, 29});
  EXPECT_EQ(holes_.covered().all(), (Ranges{{10, 19}, {30, 39}}));
  EXPECT_EQ(holes_.gathered_whole().all(), (Ranges{{20, 29}}));
  holes_.cover({20, 29});
  EXPECT_EQ(holes_.to_audit(), (Ranges{{20, 29}}));
  holes_.gather_whole({15, 35});
  EXPECT_EQ(holes_.covered().all(), (Ranges{{10, 14}, {20, 29}, {36, 39}}));
  EXPECT_EQ(holes_.gathered_whole().all(), (Ranges{{15, 35}}));
  holes_.cover({10, 39});
  holes_.audit_again();
  EXPECT_EQ(holes_.gathered_whole().all(), Ranges{});
  EXPECT_EQ(holes_.to_audit(), (Ranges{{10, 39}}));
}

TEST_F(HolesTest, ARangeThatIsLostAgainIsLostOnce) {
  holes_.lose({10, 29}, "x", 5);
  holes_.lose({10, 39}, "y", 6);
  EXPECT_EQ(holes_.lost(), (Ranges{{10, 39}}));
}

TEST_F(HolesTest, OldOnesAreForgotten) {
  holes_.cover({10, 39});
  holes_.audit({10, 39});
  holes_.lose({1, 9}, "x", 5);
  holes_.lose({11, 29}, "x", 5);
  holes_.lose({30, 30}, "x", 5);
  holes_.lose({31, 39}, "x", 5);
  holes_.forget(30);
  EXPECT_EQ(holes_.lost(), (Ranges{{30, 30}, {31, 39}}));
  EXPECT_EQ(holes_.covered().all(), (Ranges{{30, 39}}));
  EXPECT_EQ(holes_.to_audit(), Ranges{});
}

}  // namespace
}  // namespace corvane::coverage
