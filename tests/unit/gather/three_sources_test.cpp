// One backup seen through each of the three sources: the rows side by side.
#include "tests/unit/gather/archives.h"
#include "tests/unit/gather/rest_answers.h"
#include "tests/unit/gather/tools.h"

namespace corvane::test {
namespace {

constexpr char kRestImage[] = R"("clientName": "web01", "policyName": "nightly",
    "policyType": "NAS_DATA_PROTECTION", "scheduleName": "weekly",
    "scheduleType": "CUMULATIVE_INCREMENTAL", "backupTime": "2023-05-01T10:20:30.000Z",
    "jobId": 42, "numFiles": 12, "kbytes": 1024, "streamNumber": 3,
    "providerGeneratedId": "vm-1")";
constexpr char kRestJob[] = R"("jobId": 42, "parentJobId": 41, "jobType": "BACKUP",
    "state": "DONE", "status": 0, "clientName": "web01", "policyName": "nightly",
    "policyType": "NAS_DATA_PROTECTION", "scheduleName": "weekly",
    "scheduleType": "CUMULATIVE_INCREMENTAL", "startTime": "2023-05-01T10:20:31.000Z",
    "endTime": "2023-05-01T10:21:31.000Z", "kilobytesTransferred": 512, "numberOfFiles": 12,
    "dedupRatio": 2.5, "streamNumber": 3, "destinationStorageUnitName": "disk",
    "applicationType": "NONE")";
constexpr char kListedImage[] = R"({"client_name": "web01", "policy_name": "nightly",)"
                                R"( "backupid": "web01_1", "client_type": 6, "sched_type": 4,)"
                                R"( "backup_time": 1682936430, "sched_label": "weekly",)"
                                R"( "num_files": 12, "kbytes": 1024, "job_id": 42,)"
                                R"( "stream_number": 3, "provider_generated_id": "vm-1",)"
                                R"( "elapsed_time": 60, "copies": 1, "frags": []})"
                                "\n";
constexpr char kListedJob[] = R"([{"JobId": 42, "ParentJobId": 41, "JobType": "BACKUP",
    "State": "DONE", "Status": 0, "Client": "web01", "Policy": "nightly", "Schedule": "weekly",
    "StartTime": 1682936431, "EndTime": 1682936491, "KilobytesTransferred": 512, "Files": 12,
    "StreamNumber": 3, "DestinationStorageUnitName": "disk", "DedupRatio": 2.5}])";

class ThreeSources : public ToolsTest {
 protected:
  void SetUp() override {
    ToolsTest::SetUp();
    image_list(kListedImage);
    write_file("jobs", kListedJob);
    tool("qpdbjobs", "cat jobs\n");
  }

  DataGather rest{&world.db(), world.location, kMaster};
};

SqlRow the_row(sqlite3* db, const std::string& table) {
  const auto rows = query(db, "SELECT * FROM " + table);
  EXPECT_EQ(rows.size(), 1U);
  return rows.at(0);
}

TEST_F(ThreeSources, HistoryDiffersInTheNamesOfTheTypesOnly) {
  answer(page({element("web01_1", kRestImage)}));
  rest.do_historical_gather(1000, 2000);
  const SqlRow by_rest = the_row(db, "HIST_DATA");
  gather.do_historical_gather(1000, 2000);
  const SqlRow by_tool = the_row(db, "HIST_DATA");  // the same key: it has replaced the first
  EXPECT_EQ(by_rest, (SqlRow{"web01_1",
                             "1682936430",
                             "web01",
                             "nightly",
                             "NAS_DATA_PROTECTION",
                             "CUMULATIVE_INCREMENTAL",
                             "weekly",
                             "NONE",
                             "12",
                             "1024.0",
                             "42",
                             "-1",
                             "-1.0",
                             "-1",
                             "-1",
                             "-1",
                             "-1.0",
                             "0",
                             "-1",
                             "NA",
                             "3",
                             "vm-1",
                             "data_42_web01_1"}));
  SqlRow expected = by_rest;
  expected[4] = "NAS-Data-Protection";
  EXPECT_EQ(by_tool, expected);
}

TEST_F(ThreeSources, ArchiveStoresWhatTheImageListToolStores) {
  gather.do_historical_gather(1000, 2000);
  const SqlRow by_tool = the_row(db, "HIST_DATA");
  write_file("archived", kListedImage);
  query(db, "DELETE FROM HIST_DATA");
  rest.parse_qpimagelist_input("archived", 0);
  EXPECT_EQ(the_row(db, "HIST_DATA"), by_tool);
}

TEST_F(ThreeSources, LiveRecordsDifferInTheNameOfThePolicyTypeAndTheApplicationType) {
  rest.set_detection_state(0);
  answer(page({element("web01_1", kRestImage)}));
  answer(page({element("42", kRestJob)}));
  rest.do_live_gather(1000, 2000);
  const SqlRow by_rest = the_row(db, "DATA_TO_PROCESS");
  gather.do_live_gather(1000, 2000);
  const SqlRow by_tool = the_row(db, "DATA_TO_PROCESS");
  EXPECT_EQ(by_rest, (SqlRow{"web01_1",
                             "1682936430",
                             "web01",
                             "nightly",
                             "NAS_DATA_PROTECTION",
                             "CUMULATIVE_INCREMENTAL",
                             "weekly",
                             "NONE",
                             "12",
                             "1024.0",
                             "42",
                             "41",
                             "512.0",
                             "1682936431",
                             "1682936491",
                             "60",
                             "2.5",
                             "1",
                             "0",
                             "disk",
                             "3",
                             "vm-1",
                             "data_42_web01_1"}));
  SqlRow expected = by_rest;
  expected[4] = "NAS-Data-Protection";
  expected[7] = "";
  EXPECT_EQ(by_tool, expected);
}

TEST_F(ThreeSources, KilobytesWithAFractionAreCutByRestOnly) {
  answer(page({element("web01_1", R"("policyType": "STANDARD", "jobId": 42, "kbytes": 10.75)")}));
  rest.do_historical_gather(1000, 2000);
  EXPECT_EQ(query_one(db, "SELECT IMAGE_SIZE FROM HIST_DATA"), "10.0");
  image_list("{\"backupid\": \"web01_1\", \"job_id\": 42, \"kbytes\": 10.75}\n");
  gather.do_historical_gather(1000, 2000);
  EXPECT_EQ(query_one(db, "SELECT IMAGE_SIZE FROM HIST_DATA"), "10.75");
}

TEST_F(ThreeSources, KilobytesOver31BitsWrapByRestOnly) {
  answer(page({element("web01_1", R"("policyType": "STANDARD", "jobId": 42,
                                     "kbytes": 5000000000)")}));
  rest.do_historical_gather(1000, 2000);
  EXPECT_EQ(query_one(db, "SELECT IMAGE_SIZE FROM HIST_DATA"), "705032704.0");
  image_list("{\"backupid\": \"web01_1\", \"job_id\": 42, \"kbytes\": 5000000000}\n");
  gather.do_historical_gather(1000, 2000);
  EXPECT_EQ(query_one(db, "SELECT IMAGE_SIZE FROM HIST_DATA"), "5000000000.0");
}

TEST_F(ThreeSources, FiguresThatAreMissingAreMinusOneByRestAndZeroFromTheTools) {
  const std::string columns =
      "SELECT BACKUP_TIME, POLICY_TYPE, SCHEDULE_TYPE, NUM_FILES, IMAGE_SIZE, JOB_ID, UNIQUE_KEY "
      "FROM HIST_DATA ORDER BY ROWID DESC LIMIT 1";
  answer(page({element("web01_1", R"("policyType": "STANDARD")")}));
  rest.do_historical_gather(1000, 2000);
  EXPECT_EQ(query(db, columns).at(0),
            (SqlRow{"-1", "STANDARD", "", "-1", "-1.0", "-1", "data_-1_web01_1"}));
  image_list("{\"backupid\": \"web01_1\"}\n");
  gather.do_historical_gather(1000, 2000);
  EXPECT_EQ(query(db, columns).at(0),
            (SqlRow{"0", "Standard", "FULL", "0", "0.0", "0", "data_0_web01_1"}));
}

TEST_F(ThreeSources, RunningJobIsQueuedByRestAndStoredAsItIsFromTheTools) {
  rest.set_detection_state(0);
  answer(page({}));
  answer(page({element("42", R"("policyType": "STANDARD", "jobId": 42, "state": "ACTIVE",
      "startTime": "2023-05-01T10:20:31.000Z", "endTime": "1970-01-01T00:00:00.000Z")")}));
  rest.do_live_gather(1000, 2000);
  EXPECT_EQ(query(db, "SELECT * FROM QUEUED_TO_CAPTURE_DATA"),
            (std::vector<SqlRow>{{"42", "1682936431"}}));
  EXPECT_EQ(world.rows("DATA_TO_PROCESS"), "0");
  write_file("jobs",
             R"([{"JobId": 42, "State": "ACTIVE", "StartTime": 1682936431, "EndTime": 0}])");
  gather.do_live_gather(1000, 2000);
  EXPECT_EQ(world.rows("DATA_TO_PROCESS"), "1");
}

}  // namespace
}  // namespace corvane::test
