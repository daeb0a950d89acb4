// Opening the database and creating its tables.
#include <optional>
#include <stdexcept>

#include "tests/unit/management/service_world.h"

namespace corvane::test {
namespace {

class Schema : public PlatformFake {
 protected:
  void SetUp() override {
    PlatformFake::SetUp();
    world.emplace();
  }

  std::string failure() {
    try {
      world->service.initializeDB();
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  }

  // Name, declared type, not null, place in the primary key.
  std::vector<SqlRow> columns(const std::string& table) {
    return query(world->handle(),
                 "SELECT name, type, \"notnull\", pk FROM pragma_table_info('" + table + "')");
  }

  std::optional<ServiceWorld> world;
};

const std::vector<std::string> kTables{"HIST_DATA",
                                       "DATA_TO_PROCESS",
                                       "ANOMALY_DATA",
                                       "ANOMALY_DATA_FEEDBACK",
                                       "LAST_BACKUP_DATA_CAPTURE",
                                       "DBSCAN_MODEL_PARAMS",
                                       "QUEUED_TO_CAPTURE_DATA"};

const std::string kTableNames = "SELECT name FROM sqlite_master WHERE type = 'table'";

// --- Opening ---

TEST_F(Schema, DatabaseLiesInItsDirectoryUnderItsName) {
  world->service.m_database_name = "other.db";
  world->service.initializeDB();
  EXPECT_TRUE(std::filesystem::exists(world->location + "/other.db"));
  EXPECT_STREQ(sqlite3_db_filename(world->handle(), "main"),
               (world->location + "/other.db").c_str());
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(Schema, ConnectionMayWriteAndHasNoMutexAndTheJournalIsWal) {
  world->service.initializeDB();
  EXPECT_EQ(sqlite3_db_readonly(world->handle(), "main"), 0);
  EXPECT_EQ(sqlite3_db_mutex(world->handle()), nullptr);
  EXPECT_EQ(query_one(world->handle(), "PRAGMA journal_mode"), "wal");
}

TEST_F(Schema, DestructorOfTheServiceClosesTheDatabase) {
  auto service = std::make_unique<ManagementService>(world->location, "CV_Anomaly.db", "", "", 0);
  service->initializeDB();
  service->store_last_gather_time(7);
  EXPECT_TRUE(std::filesystem::exists(world->database() + "-wal"));
  service.reset();
  EXPECT_FALSE(std::filesystem::exists(world->database() + "-wal"));  // the last one out removes it
}

TEST_F(Schema, DatabaseThatCannotBeOpenedIsLoggedAndThrown) {
  world->service.m_database_location += "/missing";
  EXPECT_EQ(failure(), "Failed to create database object");
  EXPECT_EQ(fake.log, (std::vector<LogLine>{{16, kProgram, "Failed to create database object"}}));
  EXPECT_EQ(world->service.m_db, nullptr);
}

TEST_F(Schema, FileThatIsNoDatabaseIsThrownAsAFailedFirstStatement) {
  write_file(world->database(), std::string(4096, 'x'));
  EXPECT_EQ(failure(),
            "Failed to create database.Query execution failed for  PRAGMA journal_mode=WAL;");
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(Schema, TableThatCannotBeCreatedEndsTheCreation) {
  world->service.m_db = std::make_unique<ManagementService::DBAccess>(
      world->database(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  query(world->handle(), "CREATE TABLE OTHER (A INT)");
  query(world->handle(), "CREATE INDEX ANOMALY_DATA ON OTHER (A)");
  const std::string text = failure();
  EXPECT_TRUE(
      text.starts_with("Failed to create database.Failed to create table with query CREATE "
                       "TABLE if not exists ANOMALY_DATA ("))
      << text;
  EXPECT_EQ(query_column(world->handle(), kTableNames),
            (std::vector<std::string>{"OTHER", "HIST_DATA", "DATA_TO_PROCESS"}));
}

// --- The statements ---

TEST_F(Schema, JournalModeIsSetFirstThenTheTablesAreCreatedInTheirOrder) {
  world->service.m_db = std::make_unique<ManagementService::DBAccess>(
      world->database(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  world->service.create_database_schema();
  EXPECT_EQ(query_column(world->handle(), kTableNames + " ORDER BY rowid"), kTables);
  SqlRecorder sql(world->handle());
  world->service.create_database_schema();
  const std::vector<std::string> beginnings{
      "PRAGMA journal_mode=WAL;",
      "CREATE  TABLE  if not exists HIST_DATA (BACKUP_ID                 INT   NOT NULL, ",
      "CREATE  TABLE  if not exists DATA_TO_PROCESS (BACKUP_ID                 INT   NOT NULL, ",
      "CREATE TABLE if not exists ANOMALY_DATA (ANOMALY_UNIQUE_ID ",
      "CREATE TABLE if not exists ANOMALY_DATA_FEEDBACK (ANOMALY_UNIQUE_ID ",
      "CREATE  TABLE  if not exists LAST_BACKUP_DATA_CAPTURE (LAST_BACKUP_TIME ",
      "CREATE TABLE IF NOT EXISTS DBSCAN_MODEL_PARAMS (CLIENT ",
      "CREATE TABLE if not exists QUEUED_TO_CAPTURE_DATA (JOB_ID "};
  ASSERT_EQ(sql.texts.size(), beginnings.size());
  for (std::size_t i = 0; i < beginnings.size(); ++i) {
    EXPECT_TRUE(sql.texts[i].starts_with(beginnings[i])) << sql.texts[i];
  }
}

TEST_F(Schema, CreatedOnAnExistingDatabaseChangesNothing) {
  world->service.initializeDB();
  query(world->handle(), "INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (7)");
  const auto before = query(world->handle(), "SELECT * FROM sqlite_master");
  world->service.initializeDB();
  EXPECT_EQ(query(world->handle(), "SELECT * FROM sqlite_master"), before);
  EXPECT_EQ(world->rows("LAST_BACKUP_DATA_CAPTURE"), "1");
}

TEST_F(Schema, KeepsATableOfAnotherShape) {
  world->service.m_db = std::make_unique<ManagementService::DBAccess>(
      world->database(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  query(world->handle(), "CREATE TABLE ANOMALY_DATA (OLD TEXT)");
  world->service.create_database_schema();
  EXPECT_EQ(columns("ANOMALY_DATA"), (std::vector<SqlRow>{{"OLD", "TEXT", "0", "0"}}));
  EXPECT_EQ(query_column(world->handle(), kTableNames).size(), 7U);
}

// --- The columns ---

std::vector<SqlRow> backup_columns(const std::string& schedule_type,
                                   const std::string& nineteenth) {
  return {{"BACKUP_ID", "INT", "1", "0"},       {"BACKUP_TIME", "INT", "1", "0"},
          {"CLIENT", "TEXT", "1", "0"},         {"POLICY", "TEXT", "1", "0"},
          {"POLICY_TYPE", "TEXT", "1", "0"},    {"SCHEDULE_TYPE", schedule_type, "1", "0"},
          {"SCHEDULE_NAME", "TEXT", "1", "0"},  {"APP_TYPE", "TEXT", "1", "0"},
          {"NUM_FILES", "INT", "1", "0"},       {"IMAGE_SIZE", "REAL", "1", "0"},
          {"JOB_ID", "INT", "1", "0"},          {"PARENT_JOB_ID", "INT", "1", "0"},
          {"KB_TRANSFERRED", "REAL", "1", "0"}, {"START_TIME", "INT", "1", "0"},
          {"END_TIME", "INT", "1", "0"},        {"TOTAL_TIME", "INT", "1", "0"},
          {"DEDUP_RATE", "REAL", "1", "0"},     {"MODE", "INT", "1", "0"},
          {nineteenth, "INT", "1", "0"},        {"DESTINATION_STORAGE_NAME", "TEXT", "1", "0"},
          {"STREAM_NUMBER", "INT", "1", "0"},   {"ASSET_ID", "TEXT", "1", "0"},
          {"UNIQUE_KEY", "TEXT", "1", "1"}};
}

TEST_F(Schema, ColumnsOfTheTwoBackupTables) {
  world->service.initializeDB();
  EXPECT_EQ(columns("HIST_DATA"), backup_columns("TEXT", "USER_IDENTIFIED_CLUSTER"));
  EXPECT_EQ(columns("DATA_TO_PROCESS"), backup_columns("INT", "PROCESSED_STATUS"));
}

TEST_F(Schema, ColumnsOfTheAnomalyTables) {
  world->service.initializeDB();
  EXPECT_EQ(columns("ANOMALY_DATA"), (std::vector<SqlRow>{{"ANOMALY_UNIQUE_ID", "TEXT", "1", "1"},
                                                          {"ANOMALY_DETAILS", "TEXT", "1", "0"},
                                                          {"PROCESSED", "INT", "1", "0"},
                                                          {"DETECTION_KEY", "TEXT", "1", "0"},
                                                          {"CLIENT", "TEXT", "1", "0"},
                                                          {"DETECTION_TIME", "INT", "1", "0"}}));
  EXPECT_EQ(columns("ANOMALY_DATA_FEEDBACK"),
            (std::vector<SqlRow>{{"ANOMALY_UNIQUE_ID", "TEXT", "1", "1"},
                                 {"FEEDBACK", "INT", "1", "0"},
                                 {"CAPTURE_TIME", "INT", "1", "0"}}));
  EXPECT_EQ(columns("DBSCAN_MODEL_PARAMS"),
            (std::vector<SqlRow>{{"CLIENT", "TEXT", "1", "1"},
                                 {"POLICY", "TEXT", "1", "2"},
                                 {"POLICY_TYPE", "TEXT", "1", "3"},
                                 {"SCHEDULE_TYPE", "INT", "1", "4"},
                                 {"SCHEDULE_NAME", "TEXT", "1", "5"},
                                 {"APP_TYPE", "TEXT", "1", "6"},
                                 {"EPS", "REAL", "1", "0"},
                                 {"CAPTURE_DATE", "INT", "1", "0"},
                                 {"DESTINATION_STORAGE_NAME", "TEXT", "1", "7"},
                                 {"ASSET_ID", "TEXT", "1", "0"}}));
}

TEST_F(Schema, ColumnsOfTheBookkeepingTables) {
  world->service.initializeDB();
  EXPECT_EQ(columns("LAST_BACKUP_DATA_CAPTURE"),
            (std::vector<SqlRow>{{"LAST_BACKUP_TIME", "INT", "1", "1"}}));
  EXPECT_EQ(columns("QUEUED_TO_CAPTURE_DATA"),
            (std::vector<SqlRow>{{"JOB_ID", "INT", "1", "1"}, {"START_TIME", "INT", "1", "0"}}));
}

TEST_F(Schema, RowidsGrowWithEveryInsertAndReplacement) {
  world->service.initializeDB();
  for (const char* table : {"HIST_DATA", "DATA_TO_PROCESS", "QUEUED_TO_CAPTURE_DATA"}) {
    // A table without rowids, or one whose key is the rowid, would refuse or misread this.
    EXPECT_NO_THROW(query(world->handle(), std::string("SELECT rowid FROM ") + table));
    EXPECT_EQ(query_one(world->handle(),
                        std::string("SELECT COUNT(*) FROM sqlite_master WHERE tbl_name = '") +
                            table + "' AND name LIKE 'sqlite_autoindex%'"),
              "1")
        << table;
  }
}

}  // namespace
}  // namespace corvane::test
