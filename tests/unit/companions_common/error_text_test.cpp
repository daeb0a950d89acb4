#include "companions/common/error_text.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "sqlite/connection.h"
#include "sqlite/sqlite_exception.h"
#include "tests/fakes/platform_fake_test.h"

namespace corvane {
namespace {

using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;

TEST(ReasonOf, AddsSqlitesTextWhereItIsMissing) {
  EXPECT_EQ(reason_of(sqlite_exception("cannot begin", "database is locked")),
            "cannot begin (database is locked)");
  EXPECT_EQ(reason_of(sqlite_exception("cannot begin")), "cannot begin");
  EXPECT_EQ(reason_of(std::runtime_error("other")), "other");
}

// People get to see these: no query stands in them.
TEST(ReasonOf, AFailedQuerySaysWhatSqliteSaysOnce) {
  Connection connection(":memory:", Connection::Access::kCreate);
  try {
    connection.query("SELECT missing");
    FAIL();
  } catch (const QueryError& error) {
    EXPECT_EQ(reason_of(error), "Query failed: no such column: missing");
  }
}

using Guarded = PlatformFake;

TEST_F(Guarded, ReturnsWhatTheWorkReturns) {
  for (const int status : {0, 7}) {
    EXPECT_EQ(guarded("companion", [status] { return status; }), status);
  }
  EXPECT_TRUE(fake::log_lines().empty());
}

TEST_F(Guarded, SaysTheReasonOnScreenAndInTheLog) {
  testing::internal::CaptureStderr();
  const auto work = []() -> int { throw sqlite_exception("cannot begin", "database is locked"); };
  EXPECT_EQ(guarded("companion", work), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "companion: cannot begin (database is locked)\n");
  EXPECT_EQ(fake::log_lines(),
            (std::vector<fake::LogLine>{
                {16, "companion", "companion: cannot begin (database is locked)"}}));
}

}  // namespace
}  // namespace corvane
