#include "anomaly_database/backup_row.h"

#include "sqlite/sqlite_exception.h"
#include "tests/unit/gather/gather_world.h"

namespace corvane {
namespace {

using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;
using test::GatherTest;
using test::query;
using test::SqlRow;

// A row with another value in each column.
BackupRow numbered_row() {
  BackupRow row;
  row.backup_id = "id-1";
  row.backup_time = 2;
  row.client = "client-3";
  row.policy = "policy-4";
  row.policy_type = "type-5";
  row.schedule_type = "schedule-6";
  row.schedule_name = "name-7";
  row.app_type = "app-8";
  row.num_files = 9;
  row.image_size = 10;
  row.job_id = 11;
  row.parent_job_id = 12;
  row.kb_transferred = 13;
  row.start_time = 14;
  row.end_time = 15;
  row.total_time = 16;
  row.dedup_rate = 17.5;
  row.mode = 18;
  row.cluster_or_status = 19;
  row.destination = "disk-20";
  row.stream_number = 21;
  row.asset_id = "asset-22";
  row.unique_key = "key-23";
  return row;
}

const SqlRow kNumberedColumns{"id-1",   "2",       "client-3", "policy-4", "type-5", "schedule-6",
                              "name-7", "app-8",   "9",        "10.0",     "11",     "12",
                              "13.0",   "14",      "15",       "16",       "17.5",   "18",
                              "19",     "disk-20", "21",       "asset-22", "key-23"};

using BackupRowTest = GatherTest;

TEST_F(BackupRowTest, InsertsAreTheTextsThatAppearInErrorMessages) {
  EXPECT_EQ(kInsertHistData,
            "INSERT OR REPLACE INTO HIST_DATA  VALUES ( ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
            "?, ?, ?, ?, ?, ?, ?, ?, ? ); ");
  EXPECT_EQ(kInsertDataToProcess,
            "INSERT OR REPLACE INTO DATA_TO_PROCESS  VALUES ( ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
            "?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ? ); ");
}

TEST_F(BackupRowTest, KeyIsMadeOfJobAndBackupId) {
  BackupRow row;
  row.set_unique_key();
  EXPECT_EQ(row.unique_key, "data_-1_");
  row.job_id = 4711;
  row.backup_id = "client1_1700000000";
  row.set_unique_key();
  EXPECT_EQ(row.unique_key, "data_4711_client1_1700000000");
}

TEST_F(BackupRowTest, BindsEachColumnOfHistDataInItsPlace) {
  insert_row(world.db(), kInsertHistData, numbered_row());
  EXPECT_EQ(query(db, "SELECT * FROM HIST_DATA"), std::vector<SqlRow>{kNumberedColumns});
  EXPECT_EQ(world.rows("DATA_TO_PROCESS"), "0");
}

TEST_F(BackupRowTest, BindsEachColumnOfDataToProcessInItsPlace) {
  insert_row(world.db(), kInsertDataToProcess, numbered_row());
  EXPECT_EQ(query(db, "SELECT * FROM DATA_TO_PROCESS"), std::vector<SqlRow>{kNumberedColumns});
  EXPECT_EQ(world.rows("HIST_DATA"), "0");
}

TEST_F(BackupRowTest, StoresAnImageSizeThatIsARealWithItsFraction) {
  BackupRow row = numbered_row();
  row.image_size = 10.25;
  insert_row(world.db(), kInsertHistData, row);
  EXPECT_EQ(test::query_one(db, "SELECT IMAGE_SIZE FROM HIST_DATA"), "10.25");
}

TEST_F(BackupRowTest, BindsImageSizeAndDedupRateAsTheTypeTheyHold) {
  BackupRow row = numbered_row();
  test::SqlRecorder sql(db);
  insert_row(world.db(), kInsertHistData, row);
  row.image_size = 10.0;
  row.dedup_rate = 17;
  insert_row(world.db(), kInsertHistData, row);
  const std::string begin =
      "INSERT OR REPLACE INTO HIST_DATA  VALUES ( 'id-1', 2, 'client-3', 'policy-4', 'type-5', "
      "'schedule-6', 'name-7', 'app-8', 9, ";
  const std::string end = ", 18, 19, 'disk-20', 21, 'asset-22', 'key-23' );";
  EXPECT_EQ(sql.expanded,
            (std::vector<std::string>{begin + "10, 11, 12, 13, 14, 15, 16, 17.5" + end,
                                      begin + "10.0, 11, 12, 13, 14, 15, 16, 17" + end}));
}

TEST_F(BackupRowTest, ReplacesARowOfTheSameKeyUnderALargerRowid) {
  insert_row(world.db(), kInsertHistData, numbered_row());
  const std::string first = test::query_one(db, "SELECT ROWID FROM HIST_DATA");
  BackupRow row = numbered_row();
  row.client = "another";
  insert_row(world.db(), kInsertHistData, row);
  EXPECT_EQ(world.rows("HIST_DATA"), "1");
  EXPECT_EQ(test::query_one(db, "SELECT CLIENT FROM HIST_DATA"), "another");
  EXPECT_EQ(first, "1");
  EXPECT_EQ(test::query_one(db, "SELECT ROWID FROM HIST_DATA"), "2");
}

TEST_F(BackupRowTest, StoresTextsVerbatimWhateverTheyHold) {
  BackupRow row = numbered_row();
  row.client = "o'neil\"); DROP TABLE HIST_DATA; --";
  row.policy = "\xC3\xA9\n\t%s";
  insert_row(world.db(), kInsertHistData, row);
  EXPECT_EQ(query(db, "SELECT CLIENT, POLICY FROM HIST_DATA"),
            (std::vector<SqlRow>{{row.client, row.policy}}));
}

TEST_F(BackupRowTest, ThrowsWhenTheTableIsMissing) {
  query(db, "DROP TABLE HIST_DATA");
  try {
    insert_row(world.db(), kInsertHistData, numbered_row());
    FAIL() << "nothing thrown";
  } catch (const sqlite_exception& error) {
    EXPECT_EQ(error.what(), "sqlite prepare statement failed for query - " + kInsertHistData);
  }
}

}  // namespace
}  // namespace corvane
