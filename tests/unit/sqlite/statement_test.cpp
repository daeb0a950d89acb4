#include "sqlite/statement.h"

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "sqlite/query_result.h"
#include "tests/unit/sqlite/sqlite_test_support.h"

namespace {

using corvane::test::expect_sqlite_exception;
using corvane::test::kServiceFlags;
using corvane::test::Texts;
using corvane::test::texts;
using corvane::test::sqlite::DBAccess;
using corvane::test::sqlite::QueryResult;
using corvane::test::sqlite::Row;
using corvane::test::sqlite::Statement;

class StatementTest : public ::testing::Test {
 protected:
  sqlite3* handle() { return db_.get_db_handle(); }

  Texts rows_of(const std::string& query) {
    std::vector<Row> rows;
    db_.read_data(query, rows);
    return texts(rows);
  }

  DBAccess db_{":memory:", kServiceFlags};
};

TEST_F(StatementTest, NullDatabaseThrows) {
  expect_sqlite_exception([] { Statement(nullptr, "SELECT 1;"); },
                          "Invalid database object received.");
}

TEST_F(StatementTest, QueryThatCannotBePreparedThrowsWithTheQuery) {
  expect_sqlite_exception([this] { Statement(handle(), "SELECT * FROM NOWHERE;"); },
                          "sqlite prepare statement failed for query - SELECT * FROM NOWHERE;");
}

TEST_F(StatementTest, ParametersCountFromOne) {
  db_.execute_query("CREATE TABLE T (A TEXT, B REAL, C INT);");
  Statement insert(handle(), "INSERT INTO T VALUES (?, ?, ?);");
  const std::string text = "client'1";
  insert.bind(1, text);
  insert.bind(2, 2.5);
  insert.bind(3, -3);
  db_.execute_query_prepared(insert);
  EXPECT_EQ(rows_of("SELECT * FROM T;"), (Texts{{{"A", "client'1"}, {"B", "2.5"}, {"C", "-3"}}}));
}

TEST_F(StatementTest, IndexOutOfRangeThrowsAndLeavesTheStatementAsItWas) {
  Statement select(handle(), "SELECT ? AS V;");
  const std::string text = "kept";
  select.bind(1, text);
  expect_sqlite_exception([&] { select.bind(0, text); }, "sqlite bind failed.");
  expect_sqlite_exception([&] { select.bind(2, 1); }, "sqlite bind failed.");
  expect_sqlite_exception([&] { select.bind(2, 1.0); }, "sqlite bind failed.");
  std::vector<Row> rows;
  db_.read_data_prepared(select, rows);
  EXPECT_EQ(texts(rows), (Texts{{{"V", "kept"}}}));
}

TEST_F(StatementTest, BindWhileRowsAreLeftThrows) {
  Statement select(handle(), "SELECT ? AS V;");
  select.bind(1, 1);
  QueryResult result(select);
  expect_sqlite_exception([&] { select.bind(1, 2); }, "sqlite bind failed.");
}

TEST_F(StatementTest, TextIsBoundWithoutACopy) {
  Statement select(handle(), "SELECT ? AS V;");
  std::string text = "before the step";
  select.bind(1, text);
  text[0] = 'B';
  std::vector<Row> rows;
  db_.read_data_prepared(select, rows);
  EXPECT_EQ(texts(rows), (Texts{{{"V", "Before the step"}}}));
}

TEST_F(StatementTest, TextEndsAtItsFirstNul) {
  Statement select(handle(), "SELECT ? AS V;");
  const std::string text("ab\0cd", 5);
  select.bind(1, text);
  std::vector<Row> rows;
  db_.read_data_prepared(select, rows);
  EXPECT_EQ(texts(rows), (Texts{{{"V", "ab"}}}));
}

TEST_F(StatementTest, ResetKeepsBindingsAndLetsTheStatementRunAgain) {
  db_.execute_query("CREATE TABLE T (A TEXT, B INT);");
  Statement insert(handle(), "INSERT INTO T VALUES (?, ?);");
  const std::string text = "same";
  insert.bind(1, text);
  insert.bind(2, 1);
  db_.execute_query_prepared(insert);
  EXPECT_EQ(insert.reset(), SQLITE_OK);
  insert.bind(2, 2);
  db_.execute_query_prepared(insert);
  EXPECT_EQ(rows_of("SELECT * FROM T ORDER BY B;"),
            (Texts{{{"A", "same"}, {"B", "1"}}, {{"A", "same"}, {"B", "2"}}}));
}

TEST_F(StatementTest, BrokenConstraintStepsToStatus1AndResetTellsTheConstraint) {
  db_.execute_query("CREATE TABLE T (A INT PRIMARY KEY); INSERT INTO T VALUES (1);");
  Statement insert(handle(), "INSERT INTO T VALUES (1);");
  EXPECT_EQ(sqlite3_step(insert.get_compiled_statement()), 1);
  EXPECT_EQ(insert.reset(), 19);
  expect_sqlite_exception([&] { QueryResult result(insert); }, "sqlite query execution failed.");
}

TEST_F(StatementTest, DestructorFinalizes) {
  { Statement select(handle(), "SELECT 1;"); }
  EXPECT_EQ(sqlite3_next_stmt(handle(), nullptr), nullptr);
}

TEST_F(StatementTest, CopiesShareOneCompiledStatement) {
  // Of the copies only `original` may run its destructor: each one finalizes.
  Statement original(handle(), "SELECT 1;");
  alignas(Statement) unsigned char place[sizeof(Statement)];
  Statement* const copy = new (place) Statement(original);
  EXPECT_NE(copy->get_compiled_statement(), nullptr);
  EXPECT_EQ(copy->get_compiled_statement(), original.get_compiled_statement());
}

TEST_F(StatementTest, AssignmentTakesThePointerAndForgetsItsOwn) {
  Statement source(handle(), "SELECT 1;");
  alignas(Statement) unsigned char place[sizeof(Statement)];
  Statement* const target = new (place) Statement(handle(), "SELECT 2;");
  sqlite3_stmt* const forgotten = target->get_compiled_statement();
  *target = source;
  EXPECT_EQ(target->get_compiled_statement(), source.get_compiled_statement());
  EXPECT_EQ(sqlite3_finalize(forgotten), SQLITE_OK);
}

TEST_F(StatementTest, AssignmentToItselfChangesNothing) {
  Statement select(handle(), "SELECT 1 AS V;");
  sqlite3_stmt* const before = select.get_compiled_statement();
  Statement& same = select;
  select = same;
  EXPECT_EQ(select.get_compiled_statement(), before);
  std::vector<Row> rows;
  db_.read_data_prepared(select, rows);
  EXPECT_EQ(texts(rows), (Texts{{{"V", "1"}}}));
}

TEST_F(StatementTest, TextInAnIntColumnBecomesWhatItsAffinityMakesOfIt) {
  db_.execute_query("CREATE TABLE T (V INT);");
  Statement insert(handle(), "INSERT INTO T VALUES (?);");
  const std::vector<std::string> bound{
      "123",  " 123 ", "+5",        "007", "1e3", "12345.5", "9223372036854775808",
      "0x10", "",      "client_17", "FULL"};
  for (const std::string& text : bound) {
    insert.bind(1, text);
    db_.execute_query_prepared(insert);
    insert.reset();
  }
  EXPECT_EQ(rows_of("SELECT typeof(V) AS T, V FROM T ORDER BY rowid;"),
            (Texts{{{"T", "integer"}, {"V", "123"}},
                   {{"T", "integer"}, {"V", "123"}},
                   {{"T", "integer"}, {"V", "5"}},
                   {{"T", "integer"}, {"V", "7"}},
                   {{"T", "integer"}, {"V", "1000"}},
                   {{"T", "real"}, {"V", "12345.5"}},
                   {{"T", "real"}, {"V", "9.22337203685478e+18"}},
                   {{"T", "text"}, {"V", "0x10"}},
                   {{"T", "text"}, {"V", ""}},
                   {{"T", "text"}, {"V", "client_17"}},
                   {{"T", "text"}, {"V", "FULL"}}}));
}

TEST_F(StatementTest, IntInARealColumnReadsBackWithAFraction) {
  db_.execute_query("CREATE TABLE T (V REAL);");
  Statement insert(handle(), "INSERT INTO T VALUES (?);");
  insert.bind(1, 1024);
  db_.execute_query_prepared(insert);
  EXPECT_EQ(rows_of("SELECT V FROM T;"), (Texts{{{"V", "1024.0"}}}));
}

}  // namespace
