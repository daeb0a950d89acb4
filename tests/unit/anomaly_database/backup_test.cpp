#include "anomaly_database/backup.h"

#include "tests/support/anomaly_tables.h"

namespace corvane {
namespace {

// A number for each column, so that none can stand for another.
constexpr char kInsert[] =
    "INSERT INTO HIST_DATA (BACKUP_ID, BACKUP_TIME, CLIENT, POLICY, POLICY_TYPE, SCHEDULE_TYPE, "
    "SCHEDULE_NAME, APP_TYPE, NUM_FILES, IMAGE_SIZE, JOB_ID, PARENT_JOB_ID, KB_TRANSFERRED, "
    "START_TIME, END_TIME, TOTAL_TIME, DEDUP_RATE, MODE, USER_IDENTIFIED_CLUSTER, "
    "DESTINATION_STORAGE_NAME, STREAM_NUMBER, ASSET_ID, UNIQUE_KEY) VALUES ('id-1', 2, "
    "'client-3', 'policy-4', 'type-5', '4', 'name-7', 'app-8', 9, 10.5, 11, 12, 13.25, 14, 15, 16, "
    "17.75, 18, 19, 'disk-20', 21, 'asset-22', 'key-23')";

using BackupTest = test::AnomalyTables;

TEST_F(BackupTest, IsReadFromItsColumns) {
  sql(kInsert);
  Query& rows = database.query("SELECT 0, 0, " BACKUP_COLUMNS ", 24 FROM HIST_DATA");
  ASSERT_TRUE(rows.step());
  Backup backup;
  read_backup(rows, 2, backup);
  EXPECT_EQ(backup.unique_key, "key-23");
  EXPECT_EQ(backup.backup_id, "id-1");
  EXPECT_EQ(backup.job_id, 11);
  EXPECT_EQ(backup.time, 2);
  EXPECT_EQ(backup.figures.files, 9);
  EXPECT_EQ(backup.figures.size_kb, 10.5);
  EXPECT_EQ(backup.figures.transferred_kb, 13.25);
  EXPECT_EQ(backup.figures.ratio, 17.75);
  EXPECT_EQ(backup.figures.seconds, 16);
  EXPECT_EQ(backup.stream, (StreamKey{"client-3", "policy-4", "TYPE_5", "CUMULATIVE_INCREMENTAL",
                                      "name-7", "app-8", "disk-20"}));
  EXPECT_EQ(rows.integer(2 + 9 + kStreamKeyColumns), 24);  // so many, and no more
}

TEST(BackupFigures, AreUnknownUntilTheyAreRead) {
  const Backup backup;
  EXPECT_EQ(backup.job_id, -1);
  EXPECT_EQ(backup.time, 0);
  const Figures& figures = backup.figures;
  for (const double figure :
       {figures.files, figures.size_kb, figures.transferred_kb, figures.ratio, figures.seconds}) {
    EXPECT_EQ(figure, -1);
  }
}

}  // namespace
}  // namespace corvane
