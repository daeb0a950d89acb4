#include "anomaly_database/gather_marks.h"

#include "tests/support/anomaly_tables.h"

namespace corvane {
namespace {

using GatherMarks = test::AnomalyTables;

TEST_F(GatherMarks, OfADatabaseWithoutAGatherAreNone) {
  EXPECT_EQ(last_gather(database), 0);
  EXPECT_EQ(count_queued_jobs(database), 0);
}

TEST_F(GatherMarks, TheLatestGatherCounts) {
  sql("INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (5), (7), (6)");
  EXPECT_EQ(last_gather(database), 7);
}

TEST_F(GatherMarks, EachQueuedJobCounts) {
  sql("INSERT INTO QUEUED_TO_CAPTURE_DATA VALUES (9, 1), (8, 2), (7, 2)");
  EXPECT_EQ(count_queued_jobs(database), 3);
}

}  // namespace
}  // namespace corvane
