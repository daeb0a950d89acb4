#include "coverage/missing_backups.h"

#include <gtest/gtest.h>

#include "tests/support/scratch_dir.h"

namespace corvane::coverage {
namespace {

class MissingBackupsTest : public testing::Test {
 protected:
  const Missing late_{"late", {10, 30}, 1};
  const Missing early_{"early", {15, 20}, 2};
  test::ScratchDir directory_;
  Ledger ledger_{directory_("ledger.db")};
  MissingBackups missing_{ledger_};
};

TEST_F(MissingBackupsTest, AreRememberedByTheirEnd) {
  missing_.add(late_);
  missing_.add(early_);
  EXPECT_EQ(missing_.all(), (std::vector<Missing>{early_, late_}));
  missing_.postpone(late_, 77, true);
  missing_.add({"late", {1, 2}, 3});
  EXPECT_EQ(missing_.all()[1], (Missing{"late", {10, 30}, 1, 1, 77, 1}));
  missing_.postpone(late_, 78, false);
  EXPECT_EQ(missing_.all()[1], (Missing{"late", {10, 30}, 1, 2, 78, 1}));
  missing_.wait(late_, 79);
  EXPECT_EQ(missing_.all()[1], (Missing{"late", {10, 30}, 1, 2, 79, 1}));
  missing_.found("early");
  EXPECT_EQ(missing_.all().size(), 1U);
}

TEST_F(MissingBackupsTest, AreSettledForGood) {
  for (const bool is_refused : {true, false}) {
    const Missing one{is_refused ? "refused" : "given up", {10, 30}, 1};
    missing_.add(one);
    EXPECT_FALSE(missing_.is_settled(one.unique_key));
    if (is_refused) {
      missing_.refuse(one.unique_key);
    } else {
      missing_.give_up(one.unique_key);
    }
    EXPECT_TRUE(missing_.is_settled(one.unique_key));
    missing_.add(one);
    EXPECT_EQ(missing_.all(), std::vector<Missing>{});
    EXPECT_EQ(missing_.count_given_up(), is_refused ? 0 : 1);
    EXPECT_EQ(missing_.wanted().size(), is_refused ? 0U : 1U);
  }
  EXPECT_FALSE(missing_.is_settled("another"));
}

TEST_F(MissingBackupsTest, AreMadeDue) {
  missing_.add({"key", {10, 30}, 50});
  missing_.postpone({"key", {}, 0}, 77, true);
  missing_.make_due(60);
  EXPECT_EQ(missing_.all(), (std::vector<Missing>{{"key", {10, 30}, 50, 0, 0, 1}}));
  missing_.make_due(49);  // the clock was ahead
  EXPECT_EQ(missing_.all()[0].found, 49);
}

TEST_F(MissingBackupsTest, OldOnesAreForgotten) {
  missing_.add(late_);
  missing_.give_up("late");
  missing_.add(early_);
  missing_.refuse("early");
  missing_.forget(20, 20);
  EXPECT_TRUE(missing_.is_settled("early"));
  missing_.forget(20, 31);
  EXPECT_FALSE(missing_.is_settled("early"));
  missing_.forget(30, 31);
  EXPECT_EQ(missing_.count_given_up(), 1);
  missing_.forget(31, 0);
  EXPECT_EQ(missing_.count_given_up(), 0);
}

TEST_F(MissingBackupsTest, WhatWasRefusedMayBeAskedForAgain) {
  missing_.add(late_);
  missing_.add(early_);
  missing_.refuse("late");
  missing_.give_up("early");
  missing_.forget_refused();
  EXPECT_FALSE(missing_.is_settled("late"));
  EXPECT_TRUE(missing_.is_settled("early"));
}

TEST_F(MissingBackupsTest, TheFirstStartIsOfThoseThatEndedInARange) {
  missing_.add(late_);
  missing_.add(early_);
  missing_.give_up("late");
  EXPECT_EQ(missing_.first_start({20, 30}), 10);
  EXPECT_EQ(missing_.first_start({20, 29}), 15);
  EXPECT_EQ(missing_.first_start({30, 99}), 10);
  EXPECT_EQ(missing_.first_start({21, 29}), std::nullopt);
}

}  // namespace
}  // namespace corvane::coverage
