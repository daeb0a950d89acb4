// The entry points for a range, and one image by its backup id.
#include <stdexcept>

#include "tests/unit/gather/gather_world.h"
#include "tests/unit/gather/rest_answers.h"
#include "tests/unit/gather/tools.h"

namespace corvane::test {
namespace {

using Record = DataGather::Record;

// --- do_live_gather, do_historical_gather ---

using LiveGather = GatherTest;

TEST_F(LiveGather, RestHistoricalGatherStoresImagesIntoHistDataWithModeZero) {
  answer(page({image(7, "web01_1")}));
  gather.do_historical_gather(1000, 2000);
  EXPECT_EQ(fake.log.front(), (LogLine{2, kProgram, "Capturing data between 1000 & 2000 "}));
  EXPECT_EQ(query(db, "SELECT UNIQUE_KEY, MODE FROM HIST_DATA"),
            (std::vector<SqlRow>{{"data_7_web01_1", "0"}}));
  EXPECT_EQ(world.rows("DATA_TO_PROCESS"), "0");
}

TEST_F(LiveGather, RestLiveGatherStoresOnlyJobsWithModeOne) {
  gather.set_detection_state(0);
  answer(page({image(7, "web01_1"), image(8, "web01_2")}));
  answer(page({job(7)}));
  gather.do_live_gather(1000, 2000);
  EXPECT_EQ(fake.log.front(), (LogLine{2, kProgram, "Capturing data between 1000 & 2000 "}));
  EXPECT_EQ(query(db, "SELECT UNIQUE_KEY, MODE FROM DATA_TO_PROCESS"),
            (std::vector<SqlRow>{{"data_7_web01_1", "1"}}));
  EXPECT_EQ(world.rows("HIST_DATA"), "0");
}

TEST_F(LiveGather, ErrorInsideTheGatherIsLoggedAndDoesNotLeaveIt) {
  fail_request();
  EXPECT_NO_THROW(gather.do_live_gather(1000, 2000));
  EXPECT_EQ(fake.log.back(),
            (LogLine{16, kProgram, "Could not capture data between 1000 & 2000 "}));
  answer("garbage");
  EXPECT_NO_THROW(gather.do_historical_gather(-5, 0));
  EXPECT_EQ(fake.log.back(), (LogLine{16, kProgram, "Could not capture data between -5 & 0 "}));
}

TEST_F(LiveGather, ExceptionOfAnyTypeInsideTheGatherDoesNotLeaveIt) {
  fake.handler = [](const corvane::fake::HttpRequest&) -> corvane::fake::HttpAnswer { throw 42; };
  EXPECT_NO_THROW(gather.do_live_gather(1000, 2000));
  EXPECT_EQ(fake.log.back(),
            (LogLine{16, kProgram, "Could not capture data between 1000 & 2000 "}));
}

TEST_F(LiveGather, RecordsStoredBeforeAnErrorStayStored) {
  answer(page(
      {image(1, "first"), image(2, "second", R"("backupTime": "2026-01")"), image(3, "third")}));
  gather.do_historical_gather(1000, 2000);
  EXPECT_EQ(query_column(db, "SELECT BACKUP_ID FROM HIST_DATA"), std::vector<std::string>{"first"});
  EXPECT_EQ(fake.log.back(),
            (LogLine{16, kProgram, "Could not capture data between 1000 & 2000 "}));
}

TEST_F(LiveGather, RunningJobWithANullEndTimeEndsTheStoringOfItsRange) {
  answer(page({}));
  answer(page({job(1), job(2, R"("state": "ACTIVE", "endTime": null)"), job(3)}));
  gather.do_live_gather(1000, 2000);
  EXPECT_EQ(query_column(db, "SELECT JOB_ID FROM HIST_DATA"), std::vector<std::string>{"1"});
  EXPECT_EQ(world.rows("QUEUED_TO_CAPTURE_DATA"), "0");
  EXPECT_EQ(fake.log.back(),
            (LogLine{16, kProgram, "Could not capture data between 1000 & 2000 "}));
}

using LiveGatherWithTools = ToolsTest;

TEST_F(LiveGatherWithTools, WithoutAMasterServerBothEntryPointsRunTheImageListTool) {
  image_list("no entity was found\n");
  gather.do_live_gather(1000, 2000);
  gather.do_historical_gather(3000, 4000);
  EXPECT_EQ(calls(), (std::vector<std::string>{"<-X><-d><1000><-e><2000><-json_compact>",
                                               "<-X><-d><3000><-e><4000><-json_compact>"}));
  EXPECT_TRUE(fake.requests.empty());
  EXPECT_EQ(fake.log.front(), (LogLine{2, kProgram, "Capturing data between 1000 & 2000 "}));
  EXPECT_TRUE(corvane::fake::log_lines(16).empty());
}

TEST_F(LiveGatherWithTools, EachEntryPointPassesOnItsMode) {
  image_list(R"({"backupid": "h_1", "job_id": 42})");
  jobs_tool();
  gather.do_historical_gather(1000, 2000);
  EXPECT_EQ(query(db, "SELECT UNIQUE_KEY, MODE FROM HIST_DATA"),
            (std::vector<SqlRow>{{"data_42_h_1", "0"}}));
  EXPECT_EQ(world.rows("DATA_TO_PROCESS"), "0");
  gather.do_live_gather(1000, 2000);
  EXPECT_EQ(query(db, "SELECT UNIQUE_KEY, MODE FROM DATA_TO_PROCESS"),
            (std::vector<SqlRow>{{"data_42_h_1", "1"}}));
  EXPECT_EQ(world.rows("HIST_DATA"), "1");
}

// --- process_gathered_data ---

TEST_F(LiveGather, HistoricalProcessingStoresImagesInJobIdOrderAndIgnoresJobs) {
  std::vector<Record> jobs{{{"jobId", "1"}, {"backupId", "job"}}};
  gather.process_gathered_data(
      jobs, {{9, {{"backupId", "nine"}}}, {-3, {{"backupId", "minus"}}}, {4, {}}}, 0);
  EXPECT_EQ(query_column(db, "SELECT BACKUP_ID FROM HIST_DATA ORDER BY ROWID"),
            (std::vector<std::string>{"minus", "nine"}));
}

Record done_job(const std::string& id) {
  return {{"jobId", id},     {"state", "DONE"},
          {"status", "0"},   {"backupTime", "2026-01-31T04:00:00.000Z"},
          {"backupId", "b"}, {"startTime", "2026-01-31T04:00:00.000Z"},
          {"numFiles", "1"}, {"endTime", "2026-01-31T04:00:09.000Z"}};
}

TEST_F(LiveGather, LiveProcessingStoresJobsInListOrderAndIgnoresImages) {
  std::vector<Record> jobs{done_job("9"), {}, done_job("4")};
  gather.process_gathered_data(jobs, {{1, {{"backupId", "image"}}}}, 1);
  EXPECT_EQ(query_column(db, "SELECT JOB_ID FROM HIST_DATA ORDER BY ROWID"),
            (std::vector<std::string>{"9", "4"}));
}

TEST_F(LiveGather, EmptyLiveJobRecordIsNotPassedToStorage) {
  std::vector<Record> jobs{{}};
  SqlRecorder sql(db);
  gather.process_gathered_data(jobs, {}, 1);  // storage would queue it: it has no state
  EXPECT_TRUE(sql.texts.empty());
  jobs.clear();
  gather.process_gathered_data(jobs, {{1, {{"backupId", "image"}}}}, 1);
  EXPECT_TRUE(sql.texts.empty());
}

// --- get_image_data_from_backupid ---

TEST_F(LiveGather, ImageIsAskedForUnderItsBackupIdAsItIs) {
  answer(R"({"data": {"attributes": {"kbytes": 5}}})");
  Record record;
  gather.get_image_data_from_backupid("a b/c%20?d_1", record);
  ASSERT_EQ(fake.requests.size(), 1U);
  EXPECT_EQ(fake.requests[0].path, "corvane/catalog/images/a b/c%20?d_1");
  EXPECT_EQ(fake.requests[0].server, kMaster);
  EXPECT_EQ(fake.requests[0].method, "GET");
  EXPECT_EQ(record, (Record{{"kbytes", "5"}}));
  EXPECT_EQ(own_log(),
            (std::vector<LogLine>{
                {2, kProgram, "Executing API with path:  corvane/catalog/images/a b/c%20?d_1 "}}));
}

TEST_F(LiveGather, ImageRequestThatFailsIsLoggedAndLeavesTheRecord) {
  fail_request(28);
  Record record{{"jobId", "7"}};
  EXPECT_NO_THROW(gather.get_image_data_from_backupid("b_1", record));
  EXPECT_EQ(record, (Record{{"jobId", "7"}}));
  EXPECT_EQ(own_log(), (std::vector<LogLine>{
                           {2, kProgram, "Executing API with path:  corvane/catalog/images/b_1 "},
                           {2, kProgram, "Image data could not capture for backupId: b_1"}}));
}

TEST_F(LiveGather, ImageAnswerWithDataAsAnArrayIsLoggedTwiceAndNotThrown) {
  answer(R"({"data": [{"attributes": {"kbytes": 5}}]})");
  Record record{{"jobId", "7"}};
  EXPECT_NO_THROW(gather.get_image_data_from_backupid("b_1", record));
  EXPECT_EQ(record, (Record{{"jobId", "7"}}));
  EXPECT_EQ(own_log(),
            (std::vector<LogLine>{
                {2, kProgram, "Executing API with path:  corvane/catalog/images/b_1 "},
                {16, kProgram,
                 "Exception occurred while getting data from backupId: image data object not "
                 "found. "},
                {2, kProgram, "Image data could not capture for backupId: b_1"}}));
}

TEST_F(LiveGather, ImageAnswerThatIsNoJsonIsLoggedWithItsText) {
  answer("half {");
  Record record;
  gather.get_image_data_from_backupid("b_1", record);
  EXPECT_EQ(own_log(), (std::vector<LogLine>{
                           {2, kProgram, "Executing API with path:  corvane/catalog/images/b_1 "},
                           {16, kProgram, "JSON parsing failed for jobs data half {"},
                           {16, kProgram,
                            "Exception occurred while getting data from backupId: Job details not "
                            "available. "},
                           {2, kProgram, "Image data could not capture for backupId: b_1"}}));
}

TEST_F(LiveGather, ImageRequestIsRepeatedWithTheServiceCertificate) {
  answer("", 401);
  answer(R"({"data": {"attributes": {"kbytes": 5}}})");
  Record record;
  gather.get_image_data_from_backupid("b_1", record);
  EXPECT_EQ(record, (Record{{"kbytes", "5"}}));
}

// --- parse_image_data_from_backupid ---

class ImageByBackupId : public GatherTest {
 protected:
  std::string failure(const std::string& text) {
    try {
      gather.parse_image_data_from_backupid(text, record);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  }

  Record record{{"backupId", "own"}, {"jobId", "7"}, {"startTime", "job's"}};
};

TEST_F(ImageByBackupId, AddsEveryAttributeThatTheRecordLacks) {
  EXPECT_EQ(failure(R"({"data": {"id": "x", "attributes": {"policyType": "CLOUD",
      "scheduleType": "FULL", "backupId": "image's", "jobId": 9, "startTime": "image's",
      "ratio": 0.123456789, "on": true, "off": false, "none": null, "list": []}}})"),
            "");
  EXPECT_EQ(record, (Record{{"backupId", "own"},
                            {"jobId", "7"},
                            {"startTime", "job's"},
                            {"policyType", "CLOUD"},
                            {"scheduleType", "FULL"},
                            {"ratio", "0.123457"},
                            {"on", "1"},
                            {"off", "0"},
                            {"none", ""},
                            {"list", ""}}));
}

TEST_F(ImageByBackupId, AttributesThatAreNoObjectAddNothing) {
  const Record before = record;
  EXPECT_EQ(failure(R"({"data": {"attributes": null}})"), "");
  EXPECT_EQ(failure(R"({"data": {"attributes": [1]}})"), "");
  EXPECT_EQ(record, before);
}

TEST_F(ImageByBackupId, ThrowsForEachThingThatIsMissing) {
  EXPECT_EQ(failure("x"), "Job details not available.");
  EXPECT_EQ(failure("[]"), "JSON parsing failed for jobs data.");
  EXPECT_EQ(failure("{}"), "image data object not found.");
  EXPECT_EQ(failure(R"({"data": null})"), "image data object not found.");
  EXPECT_EQ(failure(R"({"data": [{"attributes": {}}]})"), "image data object not found.");
  EXPECT_EQ(failure(R"({"data": {}})"), "Attributes details not found");
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{{16, kProgram, "JSON parsing failed for jobs data x"},
                                  {16, kProgram, "JSON parsing failed for jobs data []"}}));
}

}  // namespace
}  // namespace corvane::test
