#include "sqlite/db_access.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/support/scratch_dir.h"
#include "tests/unit/sqlite/sqlite_test_support.h"

namespace {

using corvane::test::expect_sqlite_exception;
using corvane::test::kServiceFlags;
using corvane::test::ScratchDir;
using corvane::test::Texts;
using corvane::test::texts;
using corvane::test::sqlite::DBAccess;
using corvane::test::sqlite::read_query_callback;
using corvane::test::sqlite::Row;
using corvane::test::sqlite::Statement;
using corvane::test::sqlite::Value;

static_assert(!std::is_copy_constructible_v<DBAccess> && !std::is_copy_assignable_v<DBAccess>);

Texts rows_of(DBAccess& db, const std::string& query) {
  std::vector<Row> rows;
  db.read_data(query, rows);
  return texts(rows);
}

class DBAccessTest : public ::testing::Test {
 protected:
  DBAccess db_{":memory:", kServiceFlags};
};

TEST(DBAccessOpenTest, ServiceFlagsCreateAMissingFile) {
  const ScratchDir scratch;
  DBAccess db(scratch("new.db"), kServiceFlags);
  EXPECT_NE(db.get_db_handle(), nullptr);
  EXPECT_TRUE(std::filesystem::exists(scratch("new.db")));
}

TEST(DBAccessOpenTest, FlagsArePassedOn) {
  const ScratchDir scratch;
  const std::string path = scratch("missing.db");
  expect_sqlite_exception([&] { DBAccess db(path, SQLITE_OPEN_READWRITE); },
                          "Could not open database " + path);
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(DBAccessOpenTest, DirectoryThatDoesNotExistThrowsWithThePath) {
  const ScratchDir scratch;
  const std::string path = scratch("nowhere/test.db");
  expect_sqlite_exception([&] { DBAccess db(path, kServiceFlags); },
                          "Could not open database " + path);
}

TEST(DBAccessOpenTest, FailedOpenReleasesWhatSqliteHandedOut) {
  const ScratchDir scratch;
  const auto fail = [&] { DBAccess db(scratch("nowhere/test.db"), kServiceFlags); };
  EXPECT_THROW(fail(), std::exception);
  const auto before = sqlite3_memory_used();
  EXPECT_THROW(fail(), std::exception);
  EXPECT_EQ(sqlite3_memory_used(), before);
}

TEST(DBAccessOpenTest, LeavesTheJournalModeAlone) {
  const ScratchDir scratch;
  DBAccess db(scratch("test.db"), kServiceFlags);
  EXPECT_EQ(rows_of(db, "PRAGMA journal_mode;"), (Texts{{{"journal_mode", "delete"}}}));
}

TEST(DBAccessOpenTest, ClosedConnectionHasNoHandleAndMayBeClosedAgain) {
  DBAccess db(":memory:", kServiceFlags);
  db.close_database();
  EXPECT_EQ(db.get_db_handle(), nullptr);
  db.close_database();
  expect_sqlite_exception([&] { db.execute_query("SELECT 1;"); },
                          "Query execution failed for  SELECT 1;");
}

TEST(DBAccessOpenTest, ClosedDatabaseCanBeOpenedAgain) {
  const ScratchDir scratch;
  DBAccess db(scratch("test.db"), kServiceFlags);
  db.execute_query("CREATE TABLE T (V INT); INSERT INTO T VALUES (1);");
  db.close_database();
  db.open_database();
  EXPECT_EQ(rows_of(db, "SELECT V FROM T;"), (Texts{{{"V", "1"}}}));
}

TEST(DBAccessOpenTest, DestructorClosesTheFile) {
  const ScratchDir scratch;
  const auto before = sqlite3_memory_used();
  { DBAccess db(scratch("test.db"), kServiceFlags); }
  EXPECT_EQ(sqlite3_memory_used(), before);
}

TEST_F(DBAccessTest, BusyTimeOutIsFiveSeconds) {
  EXPECT_EQ(rows_of(db_, "PRAGMA busy_timeout;"), (Texts{{{"timeout", "5000"}}}));
}

TEST(DBAccessLockTest, StatementWaitsForAnotherConnectionsShortWrite) {
  const ScratchDir scratch;
  DBAccess db(scratch("test.db"), kServiceFlags);
  db.execute_query("CREATE TABLE T (V INT);");
  std::atomic<bool> locked = false;
  std::thread writer([&] {
    DBAccess other(scratch("test.db"), kServiceFlags);
    other.execute_query("BEGIN IMMEDIATE TRANSACTION; INSERT INTO T VALUES (1);");
    locked = true;
    locked.notify_one();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // the length of the transaction
    other.execute_query("COMMIT;");
  });
  locked.wait(false);
  Statement insert(db.get_db_handle(), "INSERT INTO T VALUES (2);");
  EXPECT_NO_THROW(db.execute_query_prepared(insert));
  writer.join();
  EXPECT_EQ(rows_of(db, "SELECT V FROM T ORDER BY V;"), (Texts{{{"V", "1"}}, {{"V", "2"}}}));
}

TEST(DBAccessLockTest, LockThatOutlastsTheTimeOutIsAFailure) {
  const ScratchDir scratch;
  DBAccess db(scratch("test.db"), kServiceFlags);
  db.execute_query("CREATE TABLE T (V INT);");
  sqlite3_busy_timeout(db.get_db_handle(), 10);
  DBAccess other(scratch("test.db"), kServiceFlags);
  other.execute_query("BEGIN IMMEDIATE TRANSACTION;");
  Statement insert(db.get_db_handle(), "INSERT INTO T VALUES (2);");
  expect_sqlite_exception([&] { db.execute_query_prepared(insert); },
                          "sqlite query execution failed.");
  expect_sqlite_exception([&] { db.execute_query("INSERT INTO T VALUES (3);"); },
                          "Query execution failed for  INSERT INTO T VALUES (3);",
                          "database is locked");
}

TEST_F(DBAccessTest, CommitKeepsAndRollbackDiscards) {
  db_.create_table("CREATE TABLE T (V INT);");
  db_.begin_transaction();
  db_.execute_query("INSERT INTO T VALUES (1);");
  db_.commit_transaction();
  db_.begin_transaction();
  db_.execute_query("INSERT INTO T VALUES (2);");
  db_.rollback_transaction();
  EXPECT_EQ(rows_of(db_, "SELECT V FROM T;"), (Texts{{{"V", "1"}}}));
}

TEST_F(DBAccessTest, BeginInsideATransactionThrows) {
  db_.begin_transaction();
  expect_sqlite_exception([this] { db_.begin_transaction(); },
                          "BEGIN TRANSACTION execution failed.",
                          "cannot start a transaction within a transaction");
}

TEST_F(DBAccessTest, CommitWithoutATransactionThrows) {
  expect_sqlite_exception([this] { db_.commit_transaction(); }, "END TRANSACTION execution failed.",
                          "cannot commit - no transaction is active");
}

TEST_F(DBAccessTest, RollbackWithoutATransactionThrows) {
  expect_sqlite_exception([this] { db_.rollback_transaction(); },
                          "ROLLBACK TRANSACTION execution failed.",
                          "cannot rollback - no transaction is active");
}

TEST_F(DBAccessTest, IsAutoCommitOnAlwaysThrowsNotImplemented) {
  expect_sqlite_exception([this] { db_.is_auto_commit_on(); }, "Not implemented");
  db_.begin_transaction();
  expect_sqlite_exception([this] { db_.is_auto_commit_on(); }, "Not implemented");
}

TEST_F(DBAccessTest, FailedQueryIsNamedAfterTwoBlanks) {
  expect_sqlite_exception([this] { db_.execute_query("DROP TABLE NOWHERE;"); },
                          "Query execution failed for  DROP TABLE NOWHERE;",
                          "no such table: NOWHERE");
}

TEST_F(DBAccessTest, FailedTableCreationNamesItsQuery) {
  const std::string query = "CREATE TABLE T (V INT);";
  db_.create_table(query);
  expect_sqlite_exception([&] { db_.create_table(query); },
                          "Failed to create table with query CREATE TABLE T (V INT);",
                          "table T already exists");
}

TEST_F(DBAccessTest, ReadDataAppendsToTheRowsThatAreThere) {
  std::vector<Row> rows{{{"KEPT", Value("1")}}};
  db_.read_data("SELECT 'a' AS A, 2 AS B UNION ALL SELECT 'b', 2.50;", rows);
  EXPECT_EQ(texts(rows),
            (Texts{{{"KEPT", "1"}}, {{"A", "a"}, {"B", "2"}}, {{"A", "b"}, {"B", "2.5"}}}));
}

TEST_F(DBAccessTest, ReadDataOfEqualColumnNamesKeepsTheFirst) {
  EXPECT_EQ(rows_of(db_, "SELECT 1 AS V, 2 AS V;"), (Texts{{{"V", "1"}}}));
}

TEST_F(DBAccessTest, ReadDataThatFailsHasTheMessageOfExecuteQuery) {
  std::vector<Row> rows;
  expect_sqlite_exception([&] { db_.read_data("SELECT V FROM NOWHERE;", rows); },
                          "Query execution failed for  SELECT V FROM NOWHERE;",
                          "no such table: NOWHERE");
  EXPECT_TRUE(rows.empty());
}

TEST_F(DBAccessTest, ReadDataOfNullIsAnEmptyText) {
  EXPECT_EQ(rows_of(db_, "SELECT MIN(V) AS V FROM (SELECT 1 AS V WHERE 0);"), (Texts{{{"V", ""}}}));
}

TEST_F(DBAccessTest, ReadDataPreparedAppendsARowOfItsOwnForEachRecord) {
  Statement select(db_.get_db_handle(), "SELECT 1 AS V UNION ALL SELECT 2;");
  std::vector<Row> rows{{{"KEPT", Value("1")}}};
  db_.read_data_prepared(select, rows);
  EXPECT_EQ(texts(rows), (Texts{{{"KEPT", "1"}}, {{"V", "1"}}, {{"V", "2"}}}));
}

TEST_F(DBAccessTest, ReadDataPreparedWithoutRowsAddsNothing) {
  Statement select(db_.get_db_handle(), "SELECT 1 AS V WHERE 0;");
  std::vector<Row> rows;
  db_.read_data_prepared(select, rows);
  EXPECT_TRUE(rows.empty());
}

TEST_F(DBAccessTest, ExecuteQueryPreparedOnAnInsertReturns) {
  db_.create_table("CREATE TABLE T (V INT);");
  Statement insert(db_.get_db_handle(), "INSERT INTO T VALUES (1);");
  EXPECT_NO_THROW(db_.execute_query_prepared(insert));
  EXPECT_EQ(rows_of(db_, "SELECT V FROM T;"), (Texts{{{"V", "1"}}}));
}

TEST_F(DBAccessTest, ExecuteQueryPreparedOnASelectThatYieldsARowThrows) {
  Statement select(db_.get_db_handle(), "SELECT 1;");
  expect_sqlite_exception([&] { db_.execute_query_prepared(select); },
                          "sqlite query execution failed.");
}

TEST_F(DBAccessTest, ExecuteQueryPreparedOnASelectWithoutRowsReturns) {
  Statement select(db_.get_db_handle(), "SELECT 1 WHERE 0;");
  EXPECT_NO_THROW(db_.execute_query_prepared(select));
}

void insert_kept(DBAccess& db, int number) {
  db.execute_query_kept("INSERT INTO T VALUES (?)",
                        [&](Statement& statement) { statement.bind(1, number); });
}

TEST_F(DBAccessTest, ExecuteQueryKeptRunsAgainWithOtherParameters) {
  db_.create_table("CREATE TABLE T (A INT)");
  for (const int number : {1, 2, 3}) insert_kept(db_, number);
  EXPECT_EQ(rows_of(db_, "SELECT GROUP_CONCAT(A) FROM T"), (Texts{{{"GROUP_CONCAT(A)", "1,2,3"}}}));
}

TEST_F(DBAccessTest, ExecuteQueryKeptFailsLikeANewStatement) {
  const std::string cannot_prepare =
      "sqlite prepare statement failed for query - INSERT INTO T VALUES (?)";
  expect_sqlite_exception([&] { insert_kept(db_, 1); }, cannot_prepare);
  db_.create_table("CREATE TABLE T (A INT UNIQUE)");
  insert_kept(db_, 1);
  expect_sqlite_exception([&] { insert_kept(db_, 1); }, "sqlite query execution failed.");
  insert_kept(db_, 2);
  db_.execute_query("DROP TABLE T");
  expect_sqlite_exception([&] { insert_kept(db_, 3); }, cannot_prepare);
  db_.create_table("CREATE TABLE T (A INT)");
  insert_kept(db_, 4);
  EXPECT_EQ(rows_of(db_, "SELECT A FROM T"), (Texts{{{"A", "4"}}}));
}

TEST_F(DBAccessTest, ExecuteQueryKeptPassesOnWhatBindingThrows) {
  db_.create_table("CREATE TABLE T (A INT)");
  insert_kept(db_, 1);
  int bound = 0;
  const auto fail = [&](Statement&) {
    ++bound;
    throw std::out_of_range("bind");
  };
  EXPECT_THROW(db_.execute_query_kept("INSERT INTO T VALUES (?)", fail), std::out_of_range);
  EXPECT_EQ(bound, 1);
  insert_kept(db_, 2);
  EXPECT_EQ(rows_of(db_, "SELECT COUNT(*) FROM T"), (Texts{{{"COUNT(*)", "2"}}}));
}

TEST_F(DBAccessTest, ExecuteQueryKeptFailsInATransactionThatSqliteHasRolledBack) {
  db_.create_table("CREATE TABLE T (A INT UNIQUE)");
  db_.begin_transaction();
  insert_kept(db_, 1);
  EXPECT_ANY_THROW(db_.execute_query("INSERT OR ROLLBACK INTO T VALUES (1)"));
  expect_sqlite_exception([&] { insert_kept(db_, 2); }, "sqlite query execution failed.");
  EXPECT_ANY_THROW(db_.commit_transaction());
  expect_sqlite_exception([&] { insert_kept(db_, 3); }, "sqlite query execution failed.");
  EXPECT_ANY_THROW(db_.rollback_transaction());
  insert_kept(db_, 4);
  EXPECT_EQ(rows_of(db_, "SELECT A FROM T"), (Texts{{{"A", "4"}}}));
}

TEST_F(DBAccessTest, ExecuteQueryKeptGoesOnAfterATransactionThatAQueryHasEnded) {
  db_.create_table("CREATE TABLE T (A INT)");
  int number = 0;
  for (const char* end : {"END TRANSACTION;", "ROLLBACK TRANSACTION;"}) {
    db_.begin_transaction();
    insert_kept(db_, ++number);
    db_.execute_query(end);
    insert_kept(db_, ++number);
  }
  EXPECT_EQ(rows_of(db_, "SELECT GROUP_CONCAT(A) FROM T"), (Texts{{{"GROUP_CONCAT(A)", "1,2,4"}}}));
}

TEST_F(DBAccessTest, ExecuteQueryKeptFailsOnAClosedDatabaseAndGoesOnWhenItIsOpenAgain) {
  db_.begin_transaction();
  db_.close_database();
  expect_sqlite_exception([&] { insert_kept(db_, 1); }, "Invalid database object received.");
  db_.open_database();
  db_.create_table("CREATE TABLE T (A INT)");
  insert_kept(db_, 2);
  EXPECT_EQ(rows_of(db_, "SELECT A FROM T"), (Texts{{{"A", "2"}}}));
}

TEST(DBAccessFileTest, ExecuteQueryKeptSeesASchemaThatAnotherProcessHasChanged) {
  const ScratchDir scratch;
  DBAccess db(scratch("a.db"), kServiceFlags);
  DBAccess other(scratch("a.db"), kServiceFlags);
  db.create_table("CREATE TABLE T (A INT)");
  insert_kept(db, 1);
  other.create_table("CREATE TABLE U (A INT)");
  insert_kept(db, 2);
  other.execute_query("VACUUM");
  insert_kept(db, 3);
  EXPECT_EQ(rows_of(other, "SELECT COUNT(*) FROM T"), (Texts{{{"COUNT(*)", "3"}}}));
}

TEST(DBAccessFileTest, ExecuteQueryKeptHoldsNoLockAfterwards) {
  const ScratchDir scratch;
  DBAccess db(scratch("a.db"), kServiceFlags);
  DBAccess other(scratch("a.db"), kServiceFlags);
  db.create_table("CREATE TABLE T (A INT UNIQUE)");
  insert_kept(db, 1);
  other.execute_query("INSERT INTO T VALUES (2)");
  EXPECT_ANY_THROW(insert_kept(db, 2));
  other.execute_query("INSERT INTO T VALUES (3)");
}

TEST(DBAccessFileTest, AKeptStatementDoesNotKeepTheFileOpen) {
  const ScratchDir scratch;
  DBAccess db(scratch("a.db"), kServiceFlags);
  db.execute_query("PRAGMA journal_mode=WAL");
  db.create_table("CREATE TABLE T (A INT)");
  insert_kept(db, 1);
  db.close_database();
  EXPECT_FALSE(std::filesystem::exists(scratch("a.db-wal")));  // the last one to close removes it
}

TEST(ReadQueryCallbackTest, AppendsOneRowAndGoesOn) {
  char a[] = "1";
  char b[] = "two words";
  char name_a[] = "A";
  char name_b[] = "B";
  char* values[] = {a, b, nullptr};
  char* names[] = {name_a, name_b, name_b};
  std::vector<Row> rows;
  EXPECT_EQ(read_query_callback(&rows, 2, values, names), 0);
  EXPECT_EQ(read_query_callback(&rows, 2, values, names), 0);
  EXPECT_EQ(texts(rows),
            (Texts{{{"A", "1"}, {"B", "two words"}}, {{"A", "1"}, {"B", "two words"}}}));
}

TEST(ReadQueryCallbackTest, RowOfZeroColumnsAppendsAnEmptyMap) {
  std::vector<Row> rows;
  EXPECT_EQ(read_query_callback(&rows, 0, nullptr, nullptr), 0);
  EXPECT_EQ(texts(rows), (Texts{{}}));
}

TEST(ReadQueryCallbackTest, NullIsAnEmptyText) {
  char name[] = "A";
  char* names[] = {name};
  char* values[] = {nullptr};
  std::vector<Row> rows;
  EXPECT_EQ(read_query_callback(&rows, 1, values, names), 0);
  EXPECT_EQ(texts(rows), (Texts{{{"A", ""}}}));
}

}  // namespace
