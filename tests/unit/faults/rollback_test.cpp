// Leaving a transaction when there is no memory any more.
#include "gather/rollback.h"

#include "tests/unit/faults/outcome.h"

namespace corvane::test {
namespace {

class RollbackWithoutMemory : public PlatformFake {
 protected:
  void roll_back_without_memory() {
    arm({Fault::kAllocation, 1, Duration::kFromThenOn});
    roll_back(*world.service.m_db, kProgram);
    disarm();
  }

  SmallWorld world;
};

TEST_F(RollbackWithoutMemory, UndoesTheTransactionAndLogsNothing) {
  world.service.m_db->begin_transaction();
  roll_back_without_memory();
  EXPECT_NE(sqlite3_get_autocommit(world.handle()), 0);
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(RollbackWithoutMemory, LogsItsOwnFailureAndThrowsNothing) {
  roll_back_without_memory();
  EXPECT_EQ(fake.log, std::vector<LogLine>{error("std::bad_alloc")});
}

}  // namespace
}  // namespace corvane::test
