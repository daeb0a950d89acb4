#include "embedded_host/sql.h"

#include <gtest/gtest.h>

#include "tests/support/scratch_dir.h"

namespace corvane::host {
namespace {

class Sql : public ::testing::Test {
 protected:
  std::string count() {
    Statement statement(database_, "SELECT count(*) FROM t");
    statement.step();
    return std::string(statement.text(0));
  }

  corvane::test::ScratchDir dir_;
  Database database_{dir_("x.db"), OpenMode::kCreate};
};

TEST_F(Sql, BindsAndReadsEveryType) {
  Statement statement(database_, "SELECT ?1, ?2, ?3, ?4");
  statement.bind(1, std::int64_t{-9000000000});
  statement.bind(2, 2.5);
  statement.bind(3, std::string_view("a\0b", 3));
  statement.bind(4, std::string_view());
  ASSERT_TRUE(statement.step());
  EXPECT_EQ(statement.integer(0), -9000000000);
  EXPECT_EQ(statement.real(1), 2.5);
  EXPECT_EQ(statement.text(2), std::string_view("a\0b", 3));
  EXPECT_EQ(statement.text(3), "");
  EXPECT_FALSE(statement.step());
}

TEST_F(Sql, AStatementRunsAgain) {
  database_.execute("CREATE TABLE t(x PRIMARY KEY)");
  Statement insert(database_, "INSERT INTO t VALUES(?)");
  insert.bind(1, "a");
  EXPECT_FALSE(insert.step());
  EXPECT_THROW(insert.step(), SqlError) << "the same key again";
  insert.bind(1, "b");
  EXPECT_FALSE(insert.step());
  EXPECT_EQ(count(), "2");
}

TEST_F(Sql, ErrorsHaveSqlitesWordsAndCode) {
  try {
    database_.execute("CREATE NONSENSE");
    FAIL();
  } catch (const SqlError& error) {
    EXPECT_STREQ(error.what(), "near \"NONSENSE\": syntax error");
    EXPECT_EQ(error.code(), SQLITE_ERROR);
  }
  EXPECT_THROW(Statement(database_, "SELECT nothing FROM nowhere"), SqlError);
  EXPECT_THROW(Statement(database_, "SELECT ?1").bind(2, 1.0), SqlError);
}

TEST_F(Sql, ATransactionIsUndoneUnlessCommitted) {
  database_.execute("CREATE TABLE t(x)");
  {
    const Transaction undone(database_, "BEGIN IMMEDIATE");
    database_.execute("INSERT INTO t VALUES(1)");
  }
  EXPECT_EQ(count(), "0");
  {
    Transaction kept(database_, "BEGIN IMMEDIATE");
    database_.execute("INSERT INTO t VALUES(1)");
    kept.commit();
  }
  EXPECT_EQ(count(), "1");
}

}  // namespace
}  // namespace corvane::host
