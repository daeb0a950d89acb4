#include "sqlite/query_result.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "tests/support/scratch_dir.h"
#include "tests/unit/sqlite/sqlite_test_support.h"

namespace {

using corvane::test::expect_sqlite_exception;
using corvane::test::kServiceFlags;
using corvane::test::ScratchDir;
using corvane::test::texts;
using corvane::test::sqlite::DBAccess;
using corvane::test::sqlite::QueryResult;
using corvane::test::sqlite::Row;
using corvane::test::sqlite::Statement;
using corvane::test::sqlite::Value;

using RowTexts = std::map<std::string, std::string>;

class QueryResultTest : public ::testing::Test {
 protected:
  sqlite3* handle() { return db_.get_db_handle(); }

  DBAccess db_{":memory:", kServiceFlags};
};

TEST_F(QueryResultTest, NullStatementThrows) {
  Statement nothing(handle(), "");
  expect_sqlite_exception([&] { QueryResult result(nothing); },
                          "Invalid statement object received.");
}

TEST_F(QueryResultTest, ConstructorStepsOnce) {
  db_.execute_query("CREATE TABLE T (A INT);");
  Statement insert(handle(), "INSERT INTO T VALUES (1);");
  QueryResult result(insert);
  EXPECT_EQ(result.get_last_status(), 101);
  EXPECT_EQ(sqlite3_total_changes(handle()), 1);
}

TEST_F(QueryResultTest, FirstStepThatFailsThrows) {
  Statement select(handle(), "SELECT abs(-9223372036854775808);");
  expect_sqlite_exception([&] { QueryResult result(select); }, "sqlite query execution failed.");
}

TEST_F(QueryResultTest, HandsOutEveryRowFromTheFirstOn) {
  Statement select(handle(), "SELECT 1 AS V UNION ALL SELECT 2 UNION ALL SELECT 3;");
  QueryResult result(select);
  EXPECT_EQ(result.get_last_status(), 100);
  for (const char* expected : {"1", "2", "3"}) {
    Row row;
    ASSERT_TRUE(result.get_next_record(row));
    EXPECT_EQ(texts(row), (RowTexts{{"V", expected}}));
  }
  Row row;
  EXPECT_FALSE(result.get_next_record(row));
  EXPECT_EQ(result.get_last_status(), 101);
}

TEST_F(QueryResultTest, WithoutRowsFalseTwiceWithoutSteppingAgain) {
  db_.execute_query("CREATE TABLE T (A INT);");
  Statement select(handle(), "SELECT A FROM T;");
  QueryResult result(select);
  Row row{{"KEPT", Value("1")}};
  EXPECT_FALSE(result.get_next_record(row));
  // A step would start the finished statement over and find this row.
  db_.execute_query("INSERT INTO T VALUES (1);");
  EXPECT_FALSE(result.get_next_record(row));
  EXPECT_EQ(texts(row), (RowTexts{{"KEPT", "1"}}));
}

TEST_F(QueryResultTest, AfterTheLastRowThereIsNoStepMore) {
  Statement select(handle(), "SELECT 1 AS V;");
  QueryResult result(select);
  Row row;
  EXPECT_TRUE(result.get_next_record(row));
  EXPECT_FALSE(result.get_next_record(row));
  EXPECT_FALSE(result.get_next_record(row));
  EXPECT_EQ(result.get_last_status(), 101);
}

TEST_F(QueryResultTest, FirstRowReplacesAllThatTheMapHeld) {
  Statement select(handle(), "SELECT 1 AS V;");
  QueryResult result(select);
  Row row{{"OTHER", Value("x")}, {"V", Value("old")}};
  ASSERT_TRUE(result.get_next_record(row));
  EXPECT_EQ(texts(row), (RowTexts{{"V", "1"}}));
}

TEST_F(QueryResultTest, LaterRowsOverwriteEqualNamesAndLeaveOthers) {
  Statement select(handle(), "SELECT 1 AS V UNION ALL SELECT 2;");
  QueryResult result(select);
  Row row;
  ASSERT_TRUE(result.get_next_record(row));
  row["OTHER"] = Value("x");
  ASSERT_TRUE(result.get_next_record(row));
  EXPECT_EQ(texts(row), (RowTexts{{"OTHER", "x"}, {"V", "2"}}));
}

TEST_F(QueryResultTest, OfEqualColumnNamesTheLastCounts) {
  Statement select(handle(), "SELECT 1 AS V, 2 AS V;");
  QueryResult result(select);
  Row row;
  ASSERT_TRUE(result.get_next_record(row));
  EXPECT_EQ(texts(row), (RowTexts{{"V", "2"}}));
}

TEST_F(QueryResultTest, NullColumnBecomesTheEmptyTextAndTheInt0) {
  Statement select(handle(), "SELECT NULL AS V UNION ALL SELECT NULL;");
  QueryResult result(select);
  Row first;
  ASSERT_TRUE(result.get_next_record(first));
  EXPECT_EQ(texts(first), (RowTexts{{"V", ""}}));
  EXPECT_EQ(static_cast<int>(first["V"]), 0);
  Row second;
  ASSERT_TRUE(result.get_next_record(second));
  EXPECT_EQ(texts(second), (RowTexts{{"V", ""}}));
}

TEST_F(QueryResultTest, ErrorOfALaterStepIsFalseAndKeptAsStatus) {
  Statement select(handle(), "SELECT 1 AS V UNION ALL SELECT abs(-9223372036854775808);");
  QueryResult result(select);
  Row row;
  ASSERT_TRUE(result.get_next_record(row));
  EXPECT_FALSE(result.get_next_record(row));
  EXPECT_EQ(result.get_last_status(), 1);
  EXPECT_EQ(texts(row), (RowTexts{{"V", "1"}}));
}

TEST(QueryResultBusyTest, BusyFirstStepIsKeptAsStatusAndTheNextCallStepsAgain) {
  const ScratchDir scratch;
  DBAccess db(scratch("test.db"), kServiceFlags);
  db.execute_query("CREATE TABLE T (V INT); INSERT INTO T VALUES (1);");
  Statement select(db.get_db_handle(), "SELECT V FROM T;");
  DBAccess other(scratch("test.db"), kServiceFlags);
  other.execute_query("BEGIN EXCLUSIVE TRANSACTION;");
  sqlite3_busy_timeout(db.get_db_handle(), 0);

  QueryResult result(select);
  EXPECT_EQ(result.get_last_status(), 5);
  Row row;
  EXPECT_FALSE(result.get_next_record(row));
  EXPECT_EQ(result.get_last_status(), 5);

  other.execute_query("COMMIT;");
  EXPECT_TRUE(result.get_next_record(row));
  EXPECT_EQ(texts(row), (RowTexts{{"V", "1"}}));
}

}  // namespace
