#include "anomaly_database/missing_rows.h"

#include "tests/support/anomaly_tables.h"

namespace corvane {
namespace {

using Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess;
using test::key_of;
using test::kNow;
using test::TestBackup;

class MissingRows : public test::AnomalyTables {
 protected:
  MissingRows() {
    Connection other(other_, Connection::Access::kCreate);
    for (const std::string& table : anomaly_schema()) other.execute(table.c_str());
  }
  void other_has(const TestBackup& backup) {
    DBAccess other(other_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX);
    test::insert(other, "DATA_TO_PROCESS", backup);
  }
  std::int64_t add(const RowsWanted& wanted = {}) {
    return add_missing_rows(database, other_, wanted);
  }
  std::vector<test::SqlRow> rows(const std::string& sql) {
    return test::query(database.handle(), sql);
  }

  std::string other_ = directory_("other.db");
};

TEST_F(MissingRows, AreAddedToBeJudgedTheOldestFirst) {
  other_has({.client = "late", .time = kNow, .mark = 5});
  other_has({.client = "early", .time = kNow - 10, .mark = 5});
  EXPECT_EQ(add(), 2);
  EXPECT_EQ(rows("SELECT CLIENT, PROCESSED_STATUS, MODE FROM DATA_TO_PROCESS ORDER BY rowid"),
            (std::vector<test::SqlRow>{{"early", "0", "1"}, {"late", "0", "1"}}));
  EXPECT_EQ(add(), 0);
}

TEST_F(MissingRows, AreTheSameInEveryColumn) {
  other_has({.client = "a", .mark = 0});
  add();
  const std::vector<test::SqlRow> added = rows("SELECT * FROM DATA_TO_PROCESS");
  rows("DELETE FROM DATA_TO_PROCESS");
  insert("DATA_TO_PROCESS", {.client = "a", .mark = 0});
  EXPECT_EQ(added, rows("SELECT * FROM DATA_TO_PROCESS"));
}

TEST_F(MissingRows, JoinTheHistoryWhileTheDetectionIsDisabled) {
  other_has({.client = "a", .mark = 0});
  EXPECT_EQ(add({RowsFor::kHistory}), 1);
  EXPECT_EQ(rows("SELECT CLIENT, USER_IDENTIFIED_CLUSTER FROM HIST_DATA"),
            (std::vector<test::SqlRow>{{"a", "-1"}}));
  EXPECT_EQ(test::count(database.handle(), "DATA_TO_PROCESS"), "0");
  EXPECT_EQ(add(), 0);
  EXPECT_EQ(add({RowsFor::kHistory}), 0);
}

TEST_F(MissingRows, LeaveWhatIsThere) {
  const TestBackup judged{.client = "judged", .mark = 2, .files = 1};
  const TestBackup accepted{.client = "accepted", .files = 2};
  insert("DATA_TO_PROCESS", judged);
  insert("HIST_DATA", accepted);
  other_has({.client = "judged", .mark = 0, .files = 77});
  other_has({.client = "accepted", .mark = 0, .files = 77});
  for (const RowsFor rows_for : {RowsFor::kDetection, RowsFor::kHistory}) {
    EXPECT_EQ(add({rows_for}), 0);
    EXPECT_EQ(rows("SELECT NUM_FILES, PROCESSED_STATUS FROM DATA_TO_PROCESS"),
              (std::vector<test::SqlRow>{{"1", "2"}}));
    EXPECT_EQ(rows("SELECT NUM_FILES FROM HIST_DATA"), (std::vector<test::SqlRow>{{"2"}}));
  }
}

TEST_F(MissingRows, ThatWouldBePurgedAreNotAdded) {
  other_has({.client = "a", .time = kNow - 1});
  other_has({.client = "b", .time = kNow});
  EXPECT_EQ(add({.not_before = kNow}), 1);
  EXPECT_EQ(rows("SELECT CLIENT FROM DATA_TO_PROCESS"), (std::vector<test::SqlRow>{{"b"}}));
}

// A gather of the history that is repeated has brought it, unjudged.
TEST_F(MissingRows, ThatOnlyTheHistoryHasAreAddedToBeJudged) {
  const TestBackup backup{.client = "a", .mark = 0};  // takes 60 s
  insert("HIST_DATA", {.client = "a"});
  other_has(backup);
  EXPECT_EQ(add({.judged_since = 0}), 0) << "it was accepted";
  sql("UPDATE HIST_DATA SET MODE = 0");
  EXPECT_EQ(add(), 0);
  const std::int64_t end =
      database.number("SELECT BACKUP_TIME + TOTAL_TIME FROM HIST_DATA WHERE CLIENT = 'a'");
  EXPECT_EQ(add({.judged_since = end + 1}), 0) << "it belongs to the baseline";
  EXPECT_EQ(add({.rows_for = RowsFor::kHistory, .judged_since = kNow + 1'000'000}), 0);
  EXPECT_EQ(add({.judged_since = end}), 1);
  EXPECT_EQ(rows("SELECT CLIENT, PROCESSED_STATUS FROM DATA_TO_PROCESS"),
            (std::vector<test::SqlRow>{{"a", "0"}}));
  EXPECT_EQ(test::count(database.handle(), "HIST_DATA"), "1");
  EXPECT_EQ(add({.judged_since = end}), 0);
}

TEST_F(MissingRows, OfSeveralTransactionsAreAllAdded) {
  for (int i = 0; i < 130; ++i) other_has({.client = "a", .time = kNow - i});
  EXPECT_EQ(add(), 130);
}

TEST_F(MissingRows, AnotherDatabaseThatCannotBeReadAddsNothing) {
  test::write_file(other_, "no database at all, and long enough to be one");
  EXPECT_THROW(add(), QueryError);
  std::filesystem::remove(other_);
  EXPECT_THROW(add(), QueryError);
  EXPECT_EQ(test::count(database.handle(), "DATA_TO_PROCESS"), "0");
}

TEST_F(MissingRows, ABackupIsInEitherTable) {
  insert("DATA_TO_PROCESS", {.client = "a"});
  insert("HIST_DATA", {.client = "b"});
  EXPECT_TRUE(has_backup(database, key_of({.client = "a"})));
  EXPECT_TRUE(has_backup(database, key_of({.client = "b"})));
  EXPECT_FALSE(has_backup(database, key_of({.client = "c"})));
}

TEST_F(MissingRows, ARowOfTheHistoryAloneIsNoJudgedOne) {
  insert("DATA_TO_PROCESS", {.client = "a"});
  insert("HIST_DATA", {.client = "b"});
  EXPECT_TRUE(has_judged_backup(database, key_of({.client = "a"}), 20, 10));
  EXPECT_TRUE(has_judged_backup(database, key_of({.client = "b"}), 20, 10));
  EXPECT_FALSE(has_judged_backup(database, key_of({.client = "c"}), 20, 10));
  sql("UPDATE HIST_DATA SET MODE = 0");
  sql("UPDATE DATA_TO_PROCESS SET MODE = 0");
  EXPECT_TRUE(has_judged_backup(database, key_of({.client = "a"}), 20, 10));
  EXPECT_FALSE(has_judged_backup(database, key_of({.client = "b"}), 20, 10));
  EXPECT_FALSE(has_judged_backup(database, key_of({.client = "b"}), 10, 10));
  EXPECT_TRUE(has_judged_backup(database, key_of({.client = "b"}), 9, 10));
}

TEST_F(MissingRows, TheLongestBackupIsOfEitherTable) {
  EXPECT_EQ(longest_backup(database), 0);
  insert("HIST_DATA", {});
  EXPECT_EQ(longest_backup(database), 60);
  sql("UPDATE HIST_DATA SET TOTAL_TIME = -1");
  EXPECT_EQ(longest_backup(database), 0);
  insert("DATA_TO_PROCESS", {});
  sql("UPDATE DATA_TO_PROCESS SET TOTAL_TIME = 77");
  EXPECT_EQ(longest_backup(database), 77);
  sql("UPDATE HIST_DATA SET TOTAL_TIME = 2592000");
  EXPECT_EQ(longest_backup(database), 2'592'000);
  sql("UPDATE HIST_DATA SET TOTAL_TIME = 2592001");  // a mistake
  EXPECT_EQ(longest_backup(database), 77);
}

TEST_F(MissingRows, TheOldestBackupIsOfEitherTable) {
  EXPECT_EQ(oldest_backup(database), 0);
  insert("HIST_DATA", {});
  sql("UPDATE HIST_DATA SET BACKUP_TIME = 0");
  EXPECT_EQ(oldest_backup(database), 0);
  sql("UPDATE HIST_DATA SET BACKUP_TIME = 9");
  insert("DATA_TO_PROCESS", {});
  EXPECT_EQ(oldest_backup(database), 9);
  sql("UPDATE DATA_TO_PROCESS SET BACKUP_TIME = 1");
  EXPECT_EQ(oldest_backup(database), 1);
}

}  // namespace
}  // namespace corvane
