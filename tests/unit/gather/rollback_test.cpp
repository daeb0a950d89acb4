#include "gather/rollback.h"

#include "tests/unit/gather/gather_world.h"

namespace corvane {
namespace {

using test::LogLine;
using Rollback = test::GatherTest;

TEST_F(Rollback, UndoesTheTransactionAndLogsNothing) {
  world.db().begin_transaction();
  test::query(db, "INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES(7)");
  roll_back(world.db(), "some tag");
  EXPECT_EQ(world.rows("LAST_BACKUP_DATA_CAPTURE"), "0");
  EXPECT_NE(sqlite3_get_autocommit(db), 0);
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(Rollback, LogsItsOwnFailureAndThrowsNothing) {
  EXPECT_NO_THROW(roll_back(world.db(), "some tag"));
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{{16, "some tag", "ROLLBACK TRANSACTION execution failed."}}));
}

}  // namespace
}  // namespace corvane
