#include "anomaly_database/schema.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/support/sql.h"

namespace corvane {
namespace {

// What the tables of installed machines were made with.
constexpr char kHistData[] =
    "CREATE  TABLE  if not exists HIST_DATA ("
    "BACKUP_ID                 INT   NOT NULL, "
    "BACKUP_TIME               INT   NOT NULL, "
    "CLIENT                    TEXT  NOT NULL, "
    "POLICY                    TEXT  NOT NULL, "
    "POLICY_TYPE               TEXT  NOT NULL, "
    "SCHEDULE_TYPE             TEXT  NOT NULL, "
    "SCHEDULE_NAME             TEXT  NOT NULL, "
    "APP_TYPE                  TEXT  NOT NULL, "
    "NUM_FILES                 INT   NOT NULL, "
    "IMAGE_SIZE                REAL  NOT NULL, "
    "JOB_ID                    INT   NOT NULL, "
    "PARENT_JOB_ID             INT   NOT NULL, "
    "KB_TRANSFERRED            REAL  NOT NULL, "
    "START_TIME                INT   NOT NULL, "
    "END_TIME                  INT   NOT NULL, "
    "TOTAL_TIME                INT   NOT NULL, "
    "DEDUP_RATE                REAL  NOT NULL, "
    "MODE                      INT   NOT NULL, "
    "USER_IDENTIFIED_CLUSTER   INT   NOT NULL, "
    "DESTINATION_STORAGE_NAME  TEXT  NOT NULL, "
    "STREAM_NUMBER             INT   NOT NULL, "
    "ASSET_ID                  TEXT  NOT NULL, "
    "UNIQUE_KEY                TEXT  PRIMARY KEY NOT NULL);";

constexpr char kDataToProcess[] =
    "CREATE  TABLE  if not exists DATA_TO_PROCESS ("
    "BACKUP_ID                 INT   NOT NULL, "
    "BACKUP_TIME               INT   NOT NULL, "
    "CLIENT                    TEXT  NOT NULL, "
    "POLICY                    TEXT  NOT NULL, "
    "POLICY_TYPE               TEXT  NOT NULL, "
    "SCHEDULE_TYPE             INT   NOT NULL, "
    "SCHEDULE_NAME             TEXT  NOT NULL, "
    "APP_TYPE                  TEXT  NOT NULL, "
    "NUM_FILES                 INT   NOT NULL, "
    "IMAGE_SIZE                REAL  NOT NULL, "
    "JOB_ID                    INT   NOT NULL, "
    "PARENT_JOB_ID             INT   NOT NULL, "
    "KB_TRANSFERRED            REAL  NOT NULL, "
    "START_TIME                INT   NOT NULL, "
    "END_TIME                  INT   NOT NULL, "
    "TOTAL_TIME                INT   NOT NULL, "
    "DEDUP_RATE                REAL  NOT NULL, "
    "MODE                      INT   NOT NULL, "
    "PROCESSED_STATUS          INT   NOT NULL, "
    "DESTINATION_STORAGE_NAME  TEXT  NOT NULL, "
    "STREAM_NUMBER             INT   NOT NULL, "
    "ASSET_ID                  TEXT  NOT NULL, "
    "UNIQUE_KEY                TEXT  PRIMARY KEY NOT NULL);";

constexpr char kAnomalyData[] =
    "CREATE TABLE if not exists ANOMALY_DATA ("
    "ANOMALY_UNIQUE_ID         TEXT  PRIMARY KEY NOT NULL, "
    "ANOMALY_DETAILS           TEXT  NOT NULL, "
    "PROCESSED                 INT   NOT NULL, "
    "DETECTION_KEY             TEXT  NOT NULL, "
    "CLIENT                    TEXT  NOT NULL, "
    "DETECTION_TIME            INT   NOT NULL);";

constexpr char kAnomalyDataFeedback[] =
    "CREATE TABLE if not exists ANOMALY_DATA_FEEDBACK ("
    "ANOMALY_UNIQUE_ID         TEXT  PRIMARY KEY NOT NULL, "
    "FEEDBACK                  INT   NOT NULL, "
    "CAPTURE_TIME              INT   NOT NULL);";

constexpr char kLastBackupDataCapture[] =
    "CREATE  TABLE  if not exists LAST_BACKUP_DATA_CAPTURE ("
    "LAST_BACKUP_TIME          INT   PRIMARY KEY NOT NULL);";

constexpr char kDbscanModelParams[] =
    "CREATE TABLE IF NOT EXISTS DBSCAN_MODEL_PARAMS ("
    "CLIENT                    TEXT  NOT NULL, "
    "POLICY                    TEXT  NOT NULL, "
    "POLICY_TYPE               TEXT  NOT NULL, "
    "SCHEDULE_TYPE             INT   NOT NULL, "
    "SCHEDULE_NAME             TEXT  NOT NULL, "
    "APP_TYPE                  TEXT  NOT NULL, "
    "EPS                       REAL  NOT NULL, "
    "CAPTURE_DATE              INT   NOT NULL, "
    "DESTINATION_STORAGE_NAME  TEXT  NOT NULL, "
    "ASSET_ID                  TEXT  NOT NULL, "
    "PRIMARY KEY (CLIENT, POLICY, POLICY_TYPE, SCHEDULE_TYPE, SCHEDULE_NAME, APP_TYPE, "
    "DESTINATION_STORAGE_NAME));";

constexpr char kQueuedToCaptureData[] =
    "CREATE TABLE if not exists QUEUED_TO_CAPTURE_DATA ("
    "JOB_ID                    INT   PRIMARY KEY NOT NULL, "
    "START_TIME                INT   NOT NULL);";

class SchemaTest : public ::testing::Test {
 protected:
  SchemaTest() {
    for (const std::string& table : anomaly_schema()) database.execute(table.c_str());
  }
  Connection database{":memory:", Connection::Access::kCreate};
};

TEST(AnomalySchema, IsTheTextsOfInstalledMachines) {
  const std::vector<std::string> tables(anomaly_schema().begin(), anomaly_schema().end());
  EXPECT_EQ(tables, (std::vector<std::string>{kHistData, kDataToProcess, kAnomalyData,
                                              kAnomalyDataFeedback, kLastBackupDataCapture,
                                              kDbscanModelParams, kQueuedToCaptureData}));
}

TEST_F(SchemaTest, TablesThatAreThereAreKept) {
  database.execute("INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (7)");
  for (const std::string& table : anomaly_schema()) database.execute(table.c_str());
  EXPECT_EQ(test::count(database.handle(), "LAST_BACKUP_DATA_CAPTURE"), "1");
}

TEST_F(SchemaTest, ColumnsAreThoseOfBothTables) {
  const auto names = [&](const char* table) {
    std::string all;
    for (const std::string& name :
         test::query_column(database.handle(),
                            std::string("SELECT name FROM pragma_table_info('") + table + "')")) {
      all += all.empty() ? name : ", " + name;
    }
    return all;
  };
  EXPECT_EQ(backup_columns("USER_IDENTIFIED_CLUSTER"), names("HIST_DATA"));
  EXPECT_EQ(backup_columns("PROCESSED_STATUS"), names("DATA_TO_PROCESS"));
}

TEST_F(SchemaTest, NothingOfAWholeOneIsMissing) { EXPECT_EQ(missing_part(database), ""); }

TEST_F(SchemaTest, MoreThanTheSchemaIsNoMatter) {
  database.execute("CREATE TABLE OF_ANOTHER_VERSION (x)");
  database.execute("ALTER TABLE HIST_DATA ADD COLUMN OF_ANOTHER_VERSION INT");
  database.execute("CREATE VIEW VIEW_OF_IT AS SELECT 1");
  EXPECT_EQ(missing_part(database), "");
}

TEST_F(SchemaTest, EachTableAndColumnIsMissed) {
  const auto tables = test::query_column(
      database.handle(), "SELECT name FROM sqlite_schema WHERE type = 'table' ORDER BY rowid");
  ASSERT_EQ(tables.size(), 7U);
  for (const std::string& table : tables) {
    Connection part(":memory:", Connection::Access::kCreate);
    for (const std::string& one : anomaly_schema()) part.execute(one.c_str());
    part.execute(("ALTER TABLE " + table + " RENAME TO HIDDEN").c_str());
    EXPECT_EQ(missing_part(part), "table " + table);
    part.execute(("ALTER TABLE HIDDEN RENAME TO " + table).c_str());
    for (const std::string& column :
         test::query_column(part.handle(), "SELECT name FROM pragma_table_info('" + table + "')")) {
      part.execute(("ALTER TABLE " + table + " RENAME COLUMN " + column + " TO HIDDEN").c_str());
      EXPECT_EQ(missing_part(part), "column " + column + " in table " + table);
      part.execute(("ALTER TABLE " + table + " RENAME COLUMN HIDDEN TO " + column).c_str());
    }
  }
}

TEST(MissingPart, OfAnEmptyDatabaseIsTheFirstTable) {
  Connection empty(":memory:", Connection::Access::kCreate);
  EXPECT_EQ(missing_part(empty), "table HIST_DATA");
}

}  // namespace
}  // namespace corvane
