// One record to one row: keys, defaults, conversions, column types, storage errors.
#include <stdexcept>

#include "tests/support/leaks_ignored.h"
#include "tests/unit/gather/gather_world.h"

namespace corvane::test {
namespace {

using Record = DataGather::Record;

const std::string kInsertText =
    "INSERT OR REPLACE INTO HIST_DATA  VALUES ( ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
    "?, ?, ?, ?, ?, ? );";

class RecordStorage : public GatherTest {
 protected:
  // The value of one column after a historical record has been stored.
  std::string stored(const Record& record, const std::string& column) {
    gather.store_to_database(record, 0);
    return query_one(db, "SELECT " + column + " FROM HIST_DATA ORDER BY ROWID DESC LIMIT 1");
  }
};

TEST_F(RecordStorage, HistoricalRecordWithoutKeysIsStoredWithEveryDefault) {
  gather.store_to_database({}, 0);
  EXPECT_EQ(query(db, "SELECT * FROM HIST_DATA"),
            (std::vector<SqlRow>{{"",     "-1",   "",   "",   "",     "",   "",        "NONE",
                                  "-1",   "-1.0", "-1", "-1", "-1.0", "-1", "-1",      "-1",
                                  "-1.0", "0",    "-1", "NA", "0",    "NA", "data_-1_"}}));
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(RecordStorage, EachKeyHasItsColumn) {
  gather.store_to_database({{"backupId", "client1_1700000000"},
                            {"backupTime", "2023-05-01T10:20:30.000Z"},
                            {"clientName", "client1"},
                            {"policyName", "nightly"},
                            {"policyType", "CLOUD"},
                            {"scheduleType", "FULL"},
                            {"scheduleName", "weekly"},
                            {"applicationType", "oracle"},
                            {"numFiles", "12"},
                            {"kbytes", "1024"},
                            {"jobId", "4711"},
                            {"parentJobId", "4710"},
                            {"kilobytesTransferred", "2048"},
                            {"startTime", "2023-05-01T10:20:31.000Z"},
                            {"endTime", "2023-05-01T10:21:31.000Z"},
                            {"dedupRatio", "3.25"},
                            {"state", "ACTIVE"},
                            {"status", "150"},
                            {"destinationStorageUnitName", "disk"},
                            {"streamNumber", "3"},
                            {"providerGeneratedId", "vm-1"},
                            {"unknownKey", "ignored"}},
                           0);
  EXPECT_EQ(query(db, "SELECT * FROM HIST_DATA"),
            (std::vector<SqlRow>{{"client1_1700000000",
                                  "1682936430",
                                  "client1",
                                  "nightly",
                                  "CLOUD",
                                  "FULL",
                                  "weekly",
                                  "oracle",
                                  "12",
                                  "1024.0",
                                  "4711",
                                  "4710",
                                  "2048.0",
                                  "1682936431",
                                  "1682936491",
                                  "-1",
                                  "3.25",
                                  "0",
                                  "-1",
                                  "disk",
                                  "3",
                                  "vm-1",
                                  "data_4711_client1_1700000000"}}));
}

TEST_F(RecordStorage, HistoricalRecordIsStoredByOneInsertWithoutAnyCheck) {
  SqlRecorder sql(db);
  gather.store_to_database({{"state", "ACTIVE"}, {"scheduleName", "-"}}, 0);
  EXPECT_EQ(sql.texts, std::vector<std::string>{kInsertText});
}

TEST_F(RecordStorage, HistoricalRecordGoesToHistDataWhateverTheDetectionState) {
  gather.set_detection_state(0);
  gather.store_to_database({{"jobId", "1"}}, 0);
  gather.set_detection_state(1);
  gather.store_to_database({{"jobId", "2"}}, 0);
  EXPECT_EQ(world.rows("HIST_DATA"), "2");
  EXPECT_EQ(world.rows("DATA_TO_PROCESS"), "0");
}

TEST_F(RecordStorage, ModeOtherThanOneIsStoredAsItIs) {
  gather.store_to_database({}, 7);
  EXPECT_EQ(query(db, "SELECT MODE, TOTAL_TIME, USER_IDENTIFIED_CLUSTER FROM HIST_DATA"),
            (std::vector<SqlRow>{{"7", "-1", "-1"}}));
}

// --- Conversions ---

TEST_F(RecordStorage, NumbersAreReadAsFarAsTheyGo) {
  EXPECT_EQ(stored({{"numFiles", "12abc"}}, "NUM_FILES"), "12");
  EXPECT_EQ(stored({{"numFiles", "many"}}, "NUM_FILES"), "0");
  EXPECT_EQ(stored({{"numFiles", ""}}, "NUM_FILES"), "0");
  EXPECT_EQ(stored({{"numFiles", " -3"}}, "NUM_FILES"), "-3");
  EXPECT_EQ(stored({{"kbytes", "10.9"}}, "IMAGE_SIZE"), "10.0");
  EXPECT_EQ(stored({{"kilobytesTransferred", "1.23457e+08"}}, "KB_TRANSFERRED"), "1.0");
  EXPECT_EQ(stored({{"parentJobId", "0x10"}}, "PARENT_JOB_ID"), "0");
  EXPECT_EQ(stored({{"streamNumber", "x"}}, "STREAM_NUMBER"), "0");
}

TEST_F(RecordStorage, NumbersKeepTheirLow32Bits) {
  EXPECT_EQ(stored({{"kbytes", "4294967297"}}, "IMAGE_SIZE"), "1.0");
  EXPECT_EQ(stored({{"kbytes", "3000000000"}}, "IMAGE_SIZE"), "-1294967296.0");
  EXPECT_EQ(stored({{"numFiles", "99999999999999999999"}}, "NUM_FILES"), "-1");
  EXPECT_EQ(stored({{"jobId", "4294967338"}, {"backupId", "b"}}, "UNIQUE_KEY"), "data_42_b");
}

TEST_F(RecordStorage, DedupRatioIsReadAsAReal) {
  EXPECT_EQ(stored({{"dedupRatio", "87.5 %"}}, "DEDUP_RATE"), "87.5");
  EXPECT_EQ(stored({{"dedupRatio", ""}}, "DEDUP_RATE"), "0.0");
  EXPECT_EQ(stored({{"dedupRatio", "1e2"}}, "DEDUP_RATE"), "100.0");
}

TEST_F(RecordStorage, PresentButEmptyTextsStayEmptyExceptTheAssetId) {
  const Record empty{
      {"applicationType", ""}, {"destinationStorageUnitName", ""}, {"providerGeneratedId", ""}};
  EXPECT_EQ(stored(empty, "APP_TYPE"), "");
  EXPECT_EQ(stored(empty, "DESTINATION_STORAGE_NAME"), "");
  EXPECT_EQ(stored(empty, "ASSET_ID"), "NA");
  EXPECT_EQ(stored({{"providerGeneratedId", " "}}, "ASSET_ID"), " ");
}

TEST_F(RecordStorage, MissingJobIdGivesMinusOneInTheKeyAndAMissingBackupIdNothing) {
  EXPECT_EQ(stored({{"backupId", "b_1"}}, "UNIQUE_KEY"), "data_-1_b_1");
  EXPECT_EQ(stored({{"jobId", "5"}}, "UNIQUE_KEY"), "data_5_");
}

TEST_F(RecordStorage, TimesOf17CharactersCountAndShorterOnesThrowBeforeAnythingIsStored) {
  EXPECT_EQ(stored({{"backupTime", "2023-05-01T10:20:"}}, "BACKUP_TIME"), "1682936400");
  EXPECT_EQ(stored({{"startTime", "1970-01-01T00:00:00.000Z"}}, "START_TIME"), "0");
  SqlRecorder sql(db);
  for (const char* key : {"backupTime", "startTime", "endTime"}) {
    for (const unsigned long mode : {0UL, 1UL}) {
      EXPECT_THROW(gather.store_to_database({{"state", "ACTIVE"}, {key, ""}}, mode),
                   std::out_of_range)
          << key;
      EXPECT_THROW(gather.store_to_database({{"state", "ACTIVE"}, {key, "2023-05-01T10:20"}}, mode),
                   std::out_of_range)
          << key;
    }
  }
  EXPECT_TRUE(sql.texts.empty());
}

// --- Column types ---

std::vector<std::string> types(sqlite3* db, const std::string& table) {
  std::vector<std::string> found;
  for (const SqlRow& column : query(db, "PRAGMA table_info(" + table + ")")) {
    found.push_back(query_one(db, "SELECT typeof(" + column.at(1) + ") FROM " + table));
  }
  return found;
}

TEST_F(RecordStorage, DedupRatioIsBoundAsARealAndEveryOtherFigureAsAnInteger) {
  SqlRecorder sql(db);
  gather.store_to_database({}, 0);
  gather.store_to_database(
      {{"backupId", "7"}, {"kbytes", "5"}, {"dedupRatio", "2"}, {"kilobytesTransferred", "6"}}, 0);
  EXPECT_EQ(sql.expanded,
            (std::vector<std::string>{
                "INSERT OR REPLACE INTO HIST_DATA  VALUES ( '', -1, '', '', '', '', '', 'NONE', "
                "-1, -1, -1, -1, -1, -1, -1, -1, -1.0, 0, -1, 'NA', 0, 'NA', 'data_-1_' );",
                "INSERT OR REPLACE INTO HIST_DATA  VALUES ( '7', -1, '', '', '', '', '', 'NONE', "
                "-1, 5, -1, -1, 6, -1, -1, -1, 2.0, 0, -1, 'NA', 0, 'NA', 'data_-1_7' );"}));
}

const Record kDone{{"backupId", "client_17"}, {"backupTime", "2023-05-01T10:20:30.000Z"},
                   {"scheduleType", "FULL"},  {"state", "DONE"},
                   {"status", "0"},           {"startTime", "2023-05-01T10:20:30.000Z"},
                   {"numFiles", "1"},         {"endTime", "2023-05-01T10:20:40.000Z"}};

TEST_F(RecordStorage, ColumnsOfHistDataHoldTheseTypes) {
  gather.store_to_database(kDone, 0);
  EXPECT_EQ(
      types(db, "HIST_DATA"),
      (std::vector<std::string>{"text",    "integer", "text",    "text",    "text",    "text",
                                "text",    "text",    "integer", "real",    "integer", "integer",
                                "real",    "integer", "integer", "integer", "real",    "integer",
                                "integer", "text",    "integer", "text",    "text"}));
}

TEST_F(RecordStorage, ColumnsOfDataToProcessHoldTheSameTypesAndTheScheduleTypeIsText) {
  gather.set_detection_state(0);
  gather.store_to_database(kDone, 1);
  EXPECT_EQ(
      types(db, "DATA_TO_PROCESS"),
      (std::vector<std::string>{"text",    "integer", "text",    "text",    "text",    "text",
                                "text",    "text",    "integer", "real",    "integer", "integer",
                                "real",    "integer", "integer", "integer", "real",    "integer",
                                "integer", "text",    "integer", "text",    "text"}));
}

TEST_F(RecordStorage, BackupIdThatLooksLikeANumberBecomesOneButTheKeyKeepsItsText) {
  gather.store_to_database({{"jobId", "1"}, {"backupId", "007"}}, 0);
  EXPECT_EQ(query(db, "SELECT BACKUP_ID, typeof(BACKUP_ID), UNIQUE_KEY FROM HIST_DATA"),
            (std::vector<SqlRow>{{"7", "integer", "data_1_007"}}));
  EXPECT_EQ(stored({{"backupId", "1e3"}}, "BACKUP_ID"), "1000");
  EXPECT_EQ(stored({{"backupId", "12345.5"}}, "typeof(BACKUP_ID)"), "real");
  EXPECT_EQ(stored({{"backupId", "0x10"}}, "BACKUP_ID"), "0x10");
}

// --- Replacing ---

TEST_F(RecordStorage, StoringTheSameJobTwiceReplacesTheFirstRow) {
  gather.store_to_database({{"jobId", "5"}, {"backupId", "b"}, {"kbytes", "1"}}, 0);
  gather.store_to_database({{"jobId", "5"}, {"backupId", "b"}, {"kbytes", "2"}}, 0);
  gather.store_to_database({{"jobId", "5"}, {"backupId", "c"}}, 0);
  EXPECT_EQ(query(db, "SELECT BACKUP_ID, IMAGE_SIZE FROM HIST_DATA ORDER BY ROWID"),
            (std::vector<SqlRow>{{"b", "2.0"}, {"c", "-1.0"}}));
}

// --- Storage errors ---

TEST_F(RecordStorage, RecordThatTheDatabaseRefusesIsLoggedAndLostAndTheNextIsStored) {
  query(db,
        "CREATE TRIGGER refuse BEFORE INSERT ON HIST_DATA WHEN NEW.CLIENT = 'poison' "
        "BEGIN SELECT RAISE(ABORT, 'no'); END");
  std::vector<Record> no_jobs;
  gather.process_gathered_data(no_jobs,
                               {{1, {{"jobId", "1"}}},
                                {2, {{"jobId", "2"}, {"clientName", "poison"}}},
                                {3, {{"jobId", "3"}}}},
                               0);
  EXPECT_EQ(query_column(db, "SELECT JOB_ID FROM HIST_DATA"), (std::vector<std::string>{"1", "3"}));
  EXPECT_EQ(fake.log, (std::vector<LogLine>{
                          {16, kProgram, "Error inserting data: sqlite query execution failed."}}));
}

TEST_F(RecordStorage, MissingTableIsLoggedWithTheWholeStatement) {
  query(db, "DROP TABLE HIST_DATA");
  EXPECT_NO_THROW(gather.store_to_database({}, 0));
  EXPECT_EQ(
      fake.log,
      (std::vector<LogLine>{{16, kProgram,
                             "Error inserting data: sqlite prepare statement failed for query - " +
                                 kInsertText + " "}}));
}

// SQLite's trace callback is a place from which any exception can be let loose.
template <typename Error>
int throw_error(unsigned, void*, void*, void*) {
  throw Error("what went wrong");
}

struct AlienError {
  explicit AlienError(const char*) {}
};

TEST_F(RecordStorage, ErrorsThatAreNotTheDatabasesLeaveTheStorage) {
  sqlite3_trace_v2(db, SQLITE_TRACE_STMT, throw_error<std::runtime_error>, nullptr);
  EXPECT_THROW(gather.store_to_database({}, 0), std::runtime_error);
  sqlite3_trace_v2(db, 0, nullptr, nullptr);
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(RecordStorage, QueueCatchesAnyErrorOfTheStandardFamilyAndNoOther) {
  const corvane::test::LeaksIgnored leaks_ignored;
  sqlite3_trace_v2(db, SQLITE_TRACE_STMT, throw_error<std::runtime_error>, nullptr);
  EXPECT_NO_THROW(gather.store_to_queue_db(1, 2));
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{{16, kProgram, "Error inserting data in what went wrong"}}));
  sqlite3_trace_v2(db, SQLITE_TRACE_STMT, throw_error<AlienError>, nullptr);
  EXPECT_THROW(gather.store_to_queue_db(1, 2), AlienError);
  sqlite3_trace_v2(db, 0, nullptr, nullptr);
  EXPECT_EQ(fake.log.size(), 1U);
}

TEST_F(RecordStorage, ReadOnlyDatabaseIsLogged) {
  DBAccess read_only(world.location + "/CV_Anomaly.db", SQLITE_OPEN_READONLY);
  DataGather reader(&read_only, world.location, kMaster);
  reader.store_to_database({}, 0);
  EXPECT_EQ(fake.log, (std::vector<LogLine>{
                          {16, kProgram, "Error inserting data: sqlite query execution failed."}}));
  EXPECT_EQ(world.rows("HIST_DATA"), "0");
}

TEST_F(RecordStorage, DatabaseThatStaysLockedLosesTheRecordWithALogLine) {
  DBAccess other(world.location + "/CV_Anomaly.db", SQLITE_OPEN_READWRITE);
  query(other.get_db_handle(), "BEGIN IMMEDIATE");
  sqlite3_busy_timeout(db, 0);
  gather.store_to_database({}, 0);
  other.rollback_transaction();
  gather.store_to_database({{"jobId", "2"}}, 0);
  EXPECT_EQ(fake.log, (std::vector<LogLine>{
                          {16, kProgram, "Error inserting data: sqlite query execution failed."}}));
  EXPECT_EQ(query_column(db, "SELECT JOB_ID FROM HIST_DATA"), std::vector<std::string>{"2"});
}

}  // namespace
}  // namespace corvane::test
