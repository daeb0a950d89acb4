#include "sqlite/query.h"

#include <gtest/gtest.h>

#include <functional>

#include "sqlite/db_access.h"
#include "sqlite/sqlite_exception.h"
#include "tests/support/sql.h"

namespace corvane {
namespace {

using Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess;
using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;

enum class Colour { kBlue = 7 };

class QueryTest : public ::testing::Test {
 protected:
  QueryTest() {
    database.execute_query("CREATE TABLE t (number INT, real REAL, text TEXT NOT NULL UNIQUE);");
  }
  sqlite3* db() { return database.get_db_handle(); }
  DBAccess database{":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX};
  static constexpr char kInsert[] = "INSERT INTO t VALUES (?, ?, ?)";
  static constexpr char kSelect[] = "SELECT number, real, text FROM t ORDER BY number";
};

TEST_F(QueryTest, BindsAnewEachTime) {
  Query insert(db(), kInsert);
  const std::string big(1 << 20, 'x');
  insert.bind(std::int64_t{1} << 40).bind(0.25).bind("two\nlines").run();
  insert.restart().bind(std::int64_t{1}).bind(2.0).bind(big).run();
  Query rows(db(), kSelect);
  ASSERT_TRUE(rows.step());
  EXPECT_EQ(rows.text(2), big);
  ASSERT_TRUE(rows.step());
  EXPECT_EQ(rows.integer(0), std::int64_t{1} << 40);
  EXPECT_EQ(rows.real(1), 0.25);
  EXPECT_EQ(rows.view(2), "two\nlines");
  EXPECT_FALSE(rows.step());
  EXPECT_TRUE(rows.restart().step());
}

TEST_F(QueryTest, AnEmptyTextIsNoNull) {
  Query(db(), kInsert).bind(std::int64_t{1}).bind(1.0).bind(std::string_view()).run();
  EXPECT_EQ(test::query_one(db(), "SELECT typeof(text) FROM t"), "text");
}

TEST_F(QueryTest, TheFirstIntegerEndsTheRun) {
  Query asked(db(), "SELECT number FROM t ORDER BY number");
  EXPECT_EQ(asked.first_integer(), 0);
  Query insert(db(), kInsert);
  for (const std::int64_t number : {8, 9}) {
    insert.restart().bind(number).bind(1.0).bind(std::to_string(number)).run();
  }
  EXPECT_EQ(asked.restart().first_integer(), 8);
  EXPECT_EQ(asked.restart().first_integer(), 8);
  EXPECT_NO_THROW(database.execute_query("DROP TABLE t;"));  // no reader is left
}

TEST_F(QueryTest, FailuresThrowAndTheQueryCanBeUsedAgain) {
  EXPECT_THROW(Query(db(), "SELECT nothing"), sqlite_exception);
  Query insert(db(), kInsert);
  insert.bind(std::int64_t{1}).bind(1.0).bind("a").run();
  insert.restart().bind(std::int64_t{2}).bind(1.0).bind("a");
  EXPECT_THROW(insert.run(), sqlite_exception);
  insert.restart().bind(std::int64_t{2}).bind(1.0).bind("b").run();
  EXPECT_EQ(test::count(db(), "t"), "2");
}

// People get to see these: no query stands in them.
TEST_F(QueryTest, FailuresSayWhatSqliteSays) {
  const auto expect_failure = [](const std::string& why, const std::function<void()>& failing) {
    try {
      failing();
      ADD_FAILURE() << why;
    } catch (const sqlite_exception& error) {
      EXPECT_EQ(error.what(), "Query failed: " + why);
      EXPECT_EQ(error.inner_message(), why);
    }
  };
  expect_failure("no such column: missing", [&] { Query(db(), "SELECT missing"); });
  expect_failure("column index out of range", [&] { Query(db(), "SELECT 1").bind("more"); });
  Query insert(db(), kInsert);
  insert.bind(std::int64_t{1}).bind(1.0).bind("a").run();
  insert.restart().bind(std::int64_t{2}).bind(1.0).bind("a");
  expect_failure("UNIQUE constraint failed: t.text", [&] { insert.run(); });
}

TEST_F(QueryTest, BindsAndReadsEveryType) {
  Query echo(db(), "SELECT ?1, ?2, ?3, ?4, ?1, ?5");
  echo.bind(std::int64_t{-9000000000}).bind(2.5).bind(std::string_view("a\0b", 3)).bind("");
  echo.bind(Colour::kBlue);
  ASSERT_TRUE(echo.step());
  EXPECT_EQ(echo.integer(0), -9000000000);
  EXPECT_EQ(echo.real(1), 2.5);
  EXPECT_EQ(echo.view(2), std::string_view("a\0b", 3));
  EXPECT_EQ(echo.text(2), std::string("a\0b", 3));
  EXPECT_EQ(echo.view(3), "");
  EXPECT_EQ(echo.integer(4), -9000000000) << "one parameter in two places";
  EXPECT_EQ(echo.integer(5), 7);
  EXPECT_FALSE(echo.step());
}

TEST_F(QueryTest, NullIsZeroAndTheEmptyText) {
  Query null(db(), "SELECT NULL");
  ASSERT_TRUE(null.step());
  EXPECT_EQ(null.integer(0), 0);
  EXPECT_EQ(null.real(0), 0.0);
  EXPECT_EQ(null.text(0), "");
}

TEST_F(QueryTest, BoundTextIsCopied) {
  std::string text = "kept";
  Query echo(db(), "SELECT ?");
  echo.bind(text);
  text = "gone";
  ASSERT_TRUE(echo.step());
  EXPECT_EQ(echo.view(0), "kept");
}

TEST_F(QueryTest, HasRowEndsTheRun) {
  Query asked(db(), "SELECT number FROM t");
  EXPECT_FALSE(asked.has_row());
  Query(db(), kInsert).bind(std::int64_t{1}).bind(1.0).bind("a").run();
  Query(db(), kInsert).bind(std::int64_t{2}).bind(1.0).bind("b").run();
  EXPECT_TRUE(asked.has_row());
  EXPECT_NO_THROW(database.execute_query("DROP TABLE t;"));  // no reader is left
}

TEST_F(QueryTest, AQueryFollowsAChangedSchema) {
  Query all(db(), "SELECT count(*) FROM t WHERE number > ?");
  EXPECT_EQ(all.bind(std::int64_t{0}).first_integer(), 0);
  database.execute_query("ALTER TABLE t ADD COLUMN more INT;");
  EXPECT_EQ(all.restart().bind(std::int64_t{0}).first_integer(), 0);
}

}  // namespace
}  // namespace corvane
