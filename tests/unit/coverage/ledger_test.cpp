#include "coverage/ledger.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/scratch_dir.h"

namespace corvane::coverage {
namespace {

class LedgerTest : public testing::Test {
 protected:
  test::ScratchDir directory_;
  std::string path_ = directory_("ledger.db");
  Ledger ledger_{path_};
};

TEST_F(LedgerTest, KeepsEverythingForTheNextOne) {
  ledger_.note(5, "did it");
  ledger_.set_number("n", 7);
  ledger_.set_text("t", "x");
  ledger_.add_look(8);
  Ledger next(path_);
  EXPECT_EQ(next.acts(5), (std::vector<Act>{{5, "did it"}}));
  EXPECT_EQ(next.number_of("n"), 7);
  EXPECT_EQ(next.text_of("t"), "x");
  EXPECT_EQ(next.last_look(), 8);
}

TEST_F(LedgerTest, ANewOneKnowsNothing) {
  EXPECT_EQ(ledger_.last_look(), 0);
  EXPECT_EQ(ledger_.acts(5), std::vector<Act>{});
  EXPECT_EQ(ledger_.number_of("x"), 0);
  EXPECT_EQ(ledger_.text_of("x"), "");
}

TEST_F(LedgerTest, IsReadWithoutBeingWritten) {
  EXPECT_EQ(Ledger(path_, false).last_look(), 0);
  EXPECT_THROW(Ledger(directory_("none.db"), false), QueryError);
  EXPECT_THROW(Ledger(path_, false).note(1, "x"), QueryError);
}

TEST_F(LedgerTest, OfALaterVersionIsRefused) {
  ledger_.execute("PRAGMA user_version = 2");
  EXPECT_THROW(Ledger{path_}, std::runtime_error);
}

TEST_F(LedgerTest, ADamagedOneIsReplaced) {
  const std::string path = directory_("other.db");
  test::write_file(path, std::string(5000, 'x'));
  EXPECT_EQ(open_ledger(path).last_look(), 0);
  EXPECT_EQ(test::read_file(path + ".damaged"), std::string(5000, 'x'));
  {
    Ledger filled(path);
    for (int i = 0; i < 500; ++i) filled.note(i, std::string(100, 'y'));
  }
  std::string text = test::read_file(path);
  text.replace(text.size() / 2, 4096, 4096, 'z');  // a page of it
  test::write_file(path, text);
  EXPECT_EQ(open_ledger(path).acts(1), std::vector<Act>{});
  EXPECT_EQ(test::read_file(path + ".damaged"), text);
}

TEST_F(LedgerTest, ASoundOneIsKept) {
  ledger_.add_look(7);
  EXPECT_EQ(open_ledger(path_).last_look(), 7);
}

TEST_F(LedgerTest, ShowsTheLatestActsFirst) {
  for (int i = 1; i <= 3; ++i) ledger_.note(i, "act " + std::to_string(i));
  EXPECT_EQ(ledger_.acts(2), (std::vector<Act>{{3, "act 3"}, {2, "act 2"}}));
}

TEST_F(LedgerTest, ForgetsOldActs) {
  ledger_.note(33, "old");
  ledger_.note(34, "new");
  ledger_.forget_acts(34);
  EXPECT_EQ(ledger_.acts(5), (std::vector<Act>{{34, "new"}}));
}

TEST_F(LedgerTest, ForgetsLooksOfTheFuture) {
  EXPECT_EQ(ledger_.forget_looks_after(5), 0);
  for (const std::int64_t look : {10, 20, 30}) ledger_.add_look(look);
  EXPECT_EQ(ledger_.forget_looks_after(20), 20);
  EXPECT_EQ(ledger_.last_look(), 20);
  EXPECT_EQ(ledger_.forget_looks_after(9), 0);
}

TEST_F(LedgerTest, KeepsAThousandLooks) {
  for (int i = 1; i <= 1002; ++i) ledger_.add_look(i);
  EXPECT_EQ(ledger_.number("SELECT min(time) FROM look"), 3);
  EXPECT_EQ(ledger_.last_look(), 1002);
}

}  // namespace
}  // namespace corvane::coverage
