// Jobs of the jobs tool completed from the image list: process_jobs_info_live_gather.
#include "sqlite/sqlite_exception.h"
#include "tests/unit/gather/gather_world.h"

namespace corvane::test {
namespace {

using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;
using Record = DataGather::Record;

class ToolJobs : public GatherTest {
 protected:
  void process(std::vector<Record> jobs) { gather.process_jobs_info_live_gather(jobs, images); }

  std::map<int, Record> images{{42,
                                {{"backupid", "h_1"},
                                 {"backup_time", "1700000000"},
                                 {"client_name", "h"},
                                 {"policy_name", "nightly"},
                                 {"client_type", "6"},
                                 {"sched_type", "4"},
                                 {"sched_label", "weekly"},
                                 {"app_type", "db"},
                                 {"num_files", "12"},
                                 {"kbytes", "1024.5"},
                                 {"job_id", "42"},
                                 {"stream_number", "9"},
                                 {"provider_generated_id", "vm-1"}}}};
  const Record job{{"JobId", "42"},
                   {"ParentJobId", "41"},
                   {"KilobytesTransferred", "2048"},
                   {"StartTime", "1700000100"},
                   {"EndTime", "1700000400"},
                   {"DedupRatio", "2.5x"},
                   {"DestinationStorageUnitName", "disk"},
                   {"StreamNumber", "3"},
                   {"State", "ACTIVE"},
                   {"Status", "150"}};
};

TEST_F(ToolJobs, EachColumnComesFromImageOrJobWhateverTheJobsState) {
  process({job});
  EXPECT_EQ(query(db, "SELECT * FROM DATA_TO_PROCESS"),
            (std::vector<SqlRow>{{"h_1",
                                  "1700000000",
                                  "h",
                                  "nightly",
                                  "NAS-Data-Protection",
                                  "CUMULATIVE_INCREMENTAL",
                                  "weekly",
                                  "db",
                                  "12",
                                  "1024.5",
                                  "42",
                                  "41",
                                  "2048.0",
                                  "1700000100",
                                  "1700000400",
                                  "300",
                                  "2.5",
                                  "1",
                                  "0",
                                  "disk",
                                  "3",
                                  "vm-1",
                                  "data_42_h_1"}}));
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(ToolJobs, SizeAndDedupRatioAreBoundAsRealsAndTheOtherFiguresAsIntegers) {
  images[42]["kbytes"] = "1024";
  Record without = job;
  without.erase("DedupRatio");
  SqlRecorder sql(db);
  process({job, without});
  const auto bound = [](const std::string& dedup_ratio) {
    return "INSERT OR REPLACE INTO DATA_TO_PROCESS  VALUES ( 'h_1', 1700000000, 'h', 'nightly', "
           "'NAS-Data-Protection', 'CUMULATIVE_INCREMENTAL', 'weekly', 'db', 12, 1024.0, 42, 41, "
           "2048, 1700000100, 1700000400, 300, " +
           dedup_ratio + ", 1, 0, 'disk', 3, 'vm-1', 'data_42_h_1' );";
  };
  EXPECT_EQ(sql.expanded, (std::vector<std::string>{bound("2.5"), bound("-1.0")}));
}

TEST_F(ToolJobs, RowsGoToDataToProcessWithDetectionOnAndOff) {
  SqlRecorder sql(db);
  gather.set_detection_state(1);
  process({job});
  gather.set_detection_state(0);
  process({job});
  const std::string insert =
      "INSERT OR REPLACE INTO DATA_TO_PROCESS  VALUES ( ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
      "?, ?, ?, ?, ?, ?, ?, ?, ? );";
  EXPECT_EQ(sql.texts, (std::vector<std::string>{insert, insert}));
  EXPECT_EQ(world.rows("HIST_DATA"), "0");
}

TEST_F(ToolJobs, JobWithoutAnImageStillGivesARow) {
  process({Record{{"JobId", "77"}}});
  EXPECT_EQ(query(db, "SELECT * FROM DATA_TO_PROCESS"),
            (std::vector<SqlRow>{{"",     "0",   "",   "",  "Standard", "FULL", "",        "",
                                  "0",    "0.0", "77", "0", "0.0",      "0",    "0",       "0",
                                  "-1.0", "1",   "0",  "",  "0",        "NA",   "data_77_"}}));
  EXPECT_TRUE(images.contains(77));
  EXPECT_TRUE(images.at(77).empty());
}

TEST_F(ToolJobs, UnknownCodesGiveEmptyNames) {
  images[42]["client_type"] = "99";
  images[42]["sched_type"] = "7";
  process({job});
  EXPECT_EQ(query(db, "SELECT POLICY_TYPE, SCHEDULE_TYPE FROM DATA_TO_PROCESS"),
            (std::vector<SqlRow>{{"", ""}}));
  EXPECT_EQ(gather.policy_types.size(), 52U);
  EXPECT_EQ(gather.schedule_types.size(), 6U);
}

TEST_F(ToolJobs, DedupRatioIsMinusOneOnlyWhenItIsAbsent) {
  Record without = job;
  without.erase("DedupRatio");
  process({without});
  EXPECT_EQ(query_one(db, "SELECT DEDUP_RATE FROM DATA_TO_PROCESS"), "-1.0");
  Record empty = job;
  empty["DedupRatio"] = "";
  process({empty});
  EXPECT_EQ(query_one(db, "SELECT DEDUP_RATE FROM DATA_TO_PROCESS"), "0.0");
}

TEST_F(ToolJobs, TotalTimeIsEndMinusStartIn32Bits) {
  Record running = job;
  running["EndTime"] = "0";
  process({running});
  EXPECT_EQ(query_one(db, "SELECT TOTAL_TIME FROM DATA_TO_PROCESS"), "-1700000100");
  Record huge = job;
  huge["StartTime"] = "-2147483648";
  huge["EndTime"] = "1";
  process({huge});
  EXPECT_EQ(query_one(db, "SELECT TOTAL_TIME FROM DATA_TO_PROCESS"), "-2147483647");
}

TEST_F(ToolJobs, EmptyProviderIdIsNotAvailable) {
  images[42]["provider_generated_id"] = "";
  process({job});
  EXPECT_EQ(query_one(db, "SELECT ASSET_ID FROM DATA_TO_PROCESS"), "NA");
}

TEST_F(ToolJobs, JobsAreStoredInOrderAndTheSameJobReplacesItself) {
  process({Record{{"JobId", "9"}}, job, Record{{"JobId", "9"}, {"ParentJobId", "5"}}});
  EXPECT_EQ(query(db, "SELECT JOB_ID, PARENT_JOB_ID FROM DATA_TO_PROCESS ORDER BY ROWID"),
            (std::vector<SqlRow>{{"42", "41"}, {"9", "5"}}));
}

TEST_F(ToolJobs, StorageErrorLeavesTheFunctionAndTheRowsBeforeItStay) {
  query(db,
        "CREATE TRIGGER refuse BEFORE INSERT ON DATA_TO_PROCESS WHEN NEW.JOB_ID = 8 "
        "BEGIN SELECT RAISE(ABORT, 'no'); END");
  EXPECT_THROW(process({Record{{"JobId", "7"}}, Record{{"JobId", "8"}}, Record{{"JobId", "9"}}}),
               sqlite_exception);
  EXPECT_EQ(query_column(db, "SELECT JOB_ID FROM DATA_TO_PROCESS"), std::vector<std::string>{"7"});
  EXPECT_TRUE(fake.log.empty());
}

}  // namespace
}  // namespace corvane::test
