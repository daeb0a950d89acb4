#include "sqlite/sqlite_exception.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <type_traits>

using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;

namespace {

static_assert(std::is_base_of_v<std::exception, sqlite_exception>);

TEST(SqliteExceptionTest, MessageAloneHasNoInnerMessage) {
  const sqlite_exception error(std::string("message"));
  EXPECT_STREQ(error.what(), "message");
  EXPECT_EQ(error.inner_message(), "");
}

TEST(SqliteExceptionTest, InnerMessageIsNotPartOfWhat) {
  const sqlite_exception error(std::string("message"), "inner");
  EXPECT_STREQ(error.what(), "message");
  EXPECT_EQ(error.inner_message(), "inner");
}

TEST(SqliteExceptionTest, StreamGivesItsCurrentText) {
  std::stringstream stream;
  stream << "row " << 7;
  const sqlite_exception error(stream);
  const sqlite_exception with_inner(stream, "inner");
  stream << " changed";
  EXPECT_STREQ(error.what(), "row 7");
  EXPECT_EQ(error.inner_message(), "");
  EXPECT_STREQ(with_inner.what(), "row 7");
  EXPECT_EQ(with_inner.inner_message(), "inner");
}

TEST(SqliteExceptionTest, StreamThatWasReadStillGivesItsWholeText) {
  std::stringstream stream("one two");
  std::string word;
  stream >> word;
  EXPECT_STREQ(sqlite_exception(stream).what(), "one two");
}

TEST(SqliteExceptionTest, CopyKeepsBothTexts) {
  try {
    throw sqlite_exception("message", "inner");
  } catch (const std::exception& error) {
    EXPECT_STREQ(error.what(), "message");
    EXPECT_EQ(dynamic_cast<const sqlite_exception&>(error).inner_message(), "inner");
  }
}

}  // namespace
