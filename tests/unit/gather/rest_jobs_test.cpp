// Requests and paging: do_data_gather_api, get_api_response.
#include <limits>
#include <stdexcept>

#include "tests/unit/gather/gather_world.h"
#include "tests/unit/gather/rest_answers.h"

namespace corvane::test {
namespace {

using RestJobs = GatherTest;

constexpr int kStart = 1704067200;  // 2024-01-01T00:00:00Z
constexpr int kEnd = 1704070800;    // 2024-01-01T01:00:00Z
constexpr char kImagesPath[] =
    "corvane/catalog/images?page%5Boffset%5D=0&page%5Blimit%5D=100&sort=-startTime&filter="
    "backupTime%20ge%202024-01-01T00:00:00.000Z%20and%20backupTime%20le%20"
    "2024-01-01T01:00:00.000Z";
constexpr char kJobsPathTail[] =
    "&page%5Blimit%5D=100&sort=-startTime&filter=startTime%20ge%202024-01-01T00:00:00.000Z%20and"
    "%20endTime%20le%202024-01-01T01:00:00.000Z%20and%20(jobType%20eq%20'BACKUP'%20or%20jobType%20"
    "eq%20'SNAPDUPE'%20or%20jobType%20eq%20'DBBACKUP')";

std::string jobs_path(const std::string& offset) {
  return "corvane/admin/jobs?page%5Boffset%5D=" + offset + kJobsPathTail;
}

LogLine progress(const std::string& text) { return {2, kProgram, text}; }

// --- One request ---

TEST_F(RestJobs, ImagesRequestAsksForBackupTimesOfTheRange) {
  std::string response;
  gather.get_api_response(response, kStart, kEnd, 0, API_CATALOG_IMAGES);
  EXPECT_EQ(requested_paths(), std::vector<std::string>{kImagesPath});
}

TEST_F(RestJobs, JobsRequestAsksForThreeJobTypesThatRanWithinTheRange) {
  std::string response;
  gather.get_api_response(response, kStart, kEnd, 200, API_ADMIN_JOBS);
  EXPECT_EQ(requested_paths(), std::vector<std::string>{jobs_path("200")});
}

TEST_F(RestJobs, AnyOtherCollectionHasNoPathAndTheImagesFilter) {
  std::string response;
  gather.get_api_response(response, 0, std::numeric_limits<int>::max(), -1,
                          static_cast<API_TYPE>(2));
  EXPECT_EQ(requested_paths(),
            std::vector<std::string>{
                "?page%5Boffset%5D=-1&page%5Blimit%5D=100&sort=-startTime&filter=backupTime%20ge%20"
                "1970-01-01T00:00:00.000Z%20and%20backupTime%20le%202038-01-19T03:14:07.000Z"});
}

TEST_F(RestJobs, RequestIsAGetToTheMasterServerWithoutABody) {
  answer("{}");
  std::string response;
  gather.get_api_response(response, kStart, kEnd, 0, API_CATALOG_IMAGES);
  ASSERT_EQ(fake.requests.size(), 1U);
  EXPECT_EQ(fake.requests[0].server, kMaster);
  EXPECT_EQ(fake.requests[0].port, 1556);
  EXPECT_EQ(fake.requests[0].method, "GET");
  EXPECT_EQ(fake.requests[0].body, "");
  EXPECT_EQ(fake.requests[0].certificate, CERT_TYPE_HOST);
}

TEST_F(RestJobs, SuccessfulRequestReplacesTheResponseAndLogsPathAndResult) {
  answer("new");
  std::string response = "old";
  gather.get_api_response(response, kStart, kEnd, 0, API_CATALOG_IMAGES);
  EXPECT_EQ(response, "new");
  EXPECT_EQ(own_log(), (std::vector<LogLine>{
                           progress(std::string("Executing API with path:  ") + kImagesPath + " "),
                           progress("API return value: 0 ")}));
}

TEST_F(RestJobs, FailedRequestLeavesTheResponseAndLogsItsResult) {
  fail_request(28);
  answer("server's explanation", 500);
  std::string response = "old";
  gather.get_api_response(response, kStart, kEnd, 0, API_CATALOG_IMAGES);
  gather.get_api_response(response, kStart, kEnd, 0, API_CATALOG_IMAGES);
  EXPECT_EQ(response, "old");
  EXPECT_EQ(own_log().at(1), progress("API return value: 28 "));
  EXPECT_EQ(own_log().at(3), progress("API return value: 500 "));
}

TEST_F(RestJobs, RefusedHostCertificateIsRetriedWithTheServiceCertificate) {
  answer("", 401);
  answer("{}");
  std::string response;
  gather.get_api_response(response, kStart, kEnd, 0, API_CATALOG_IMAGES);
  EXPECT_EQ(response, "{}");
  ASSERT_EQ(fake.requests.size(), 2U);
  EXPECT_EQ(fake.requests[0].certificate, CERT_TYPE_HOST);
  EXPECT_EQ(fake.requests[1].certificate, CERT_TYPE_SERVICE);
  EXPECT_EQ(requested_paths(), (std::vector<std::string>{kImagesPath, kImagesPath}));
  EXPECT_EQ(own_log().back(), progress("API return value: 0 "));
}

// --- A whole gather ---

TEST_F(RestJobs, HistoricalGatherReadsImagesOnlyAndStoresThem) {
  answer(page({image(7, "web01_1"), image(3, "web01_2")}));
  gather.do_data_gather_api(kStart, kEnd, 0);
  EXPECT_EQ(requested_paths(), std::vector<std::string>{kImagesPath});
  EXPECT_EQ(query_column(db, "SELECT UNIQUE_KEY FROM HIST_DATA ORDER BY ROWID"),
            (std::vector<std::string>{"data_3_web01_2", "data_7_web01_1"}));
  EXPECT_EQ(
      own_log(),
      (std::vector<LogLine>{
          progress(std::string("Executing API with path:  ") + kImagesPath + " "),
          progress("API return value: 0 "), progress("Capturing data for next offset: 0"),
          progress("2 images found between (start time - end time): 1704067200 - 1704070800")}));
}

TEST_F(RestJobs, LiveGatherReadsImagesThenJobsAndStoresJobsOnly) {
  answer(page({image(7, "web01_1"), image(8, "web01_2")}));
  answer(page({job(7)}));
  gather.do_data_gather_api(kStart, kEnd, 1);
  EXPECT_EQ(requested_paths(), (std::vector<std::string>{kImagesPath, jobs_path("0")}));
  EXPECT_EQ(query_column(db, "SELECT UNIQUE_KEY FROM HIST_DATA"),
            std::vector<std::string>{"data_7_web01_1"});
}

TEST_F(RestJobs, GatherOfAnyOtherModeIsHistorical) {
  answer(page({image(7, "web01_1")}));
  gather.do_data_gather_api(kStart, kEnd, 2);
  EXPECT_EQ(fake.requests.size(), 1U);
  EXPECT_EQ(query(db, "SELECT UNIQUE_KEY, MODE FROM HIST_DATA"),
            (std::vector<SqlRow>{{"data_7_web01_1", "2"}}));
}

TEST_F(RestJobs, NoJobInTheRangeIsLoggedAndStoresNothingEvenWithImages) {
  answer(page({image(7, "web01_1")}));
  answer(page({}));
  gather.do_data_gather_api(kStart, kEnd, 1);
  EXPECT_EQ(own_log().back(),
            progress("No new job found between (start time - end time): 1704067200 - 1704070800"));
  EXPECT_EQ(world.rows("HIST_DATA"), "0");
  EXPECT_EQ(world.rows("DATA_TO_PROCESS"), "0");
}

// --- Paging ---

TEST_F(RestJobs, PagesAreAskedForAtTheOffsetsThatTheServerNames) {
  answer(page({image(1, "a")}, 100));
  answer(page({image(2, "b")}, 230));
  answer(page({image(3, "c")}, 0));
  gather.do_data_gather_api(kStart, kEnd, 0);
  EXPECT_EQ(requested_offsets(), (std::vector<std::string>{"0", "100", "230"}));
  EXPECT_EQ(world.rows("HIST_DATA"), "3");
}

TEST_F(RestJobs, JobsPassBeginsAtOffsetZeroAgain) {
  answer(page({image(1, "a")}, 100));
  answer(page({image(2, "b")}));
  answer(page({job(1)}, 100));
  answer(page({job(2)}));
  gather.do_data_gather_api(kStart, kEnd, 1);
  EXPECT_EQ(requested_paths().at(2), jobs_path("0"));
  EXPECT_EQ(requested_paths().at(3), jobs_path("100"));
  EXPECT_EQ(requested_offsets(), (std::vector<std::string>{"0", "100", "0", "100"}));
  EXPECT_EQ(world.rows("HIST_DATA"), "2");
}

TEST_F(RestJobs, NextThatIsMissingZeroOrNoIntegerEndsThePaging) {
  for (const char* pagination :
       {"{}", R"({"next": 0})", R"({"next": null})", R"({"next": "100"})", R"({"next": 100.0})"}) {
    std::map<int, DataGather::Record> images;
    std::vector<DataGather::Record> jobs;
    int offset = 300;
    gather.parse_api_response(
        std::string(R"({"data": [], "meta": {"pagination": )") + pagination + "}}", images, jobs,
        offset, 0);
    EXPECT_EQ(offset, 0) << pagination;
    EXPECT_EQ(fake.log.back(), progress("Capturing data for next offset: 0"));
  }
}

TEST_F(RestJobs, OffsetStaysWhenThePageSaysNothingAboutPaging) {
  for (const char* text :
       {"{}", R"({"meta": {}})", R"({"meta": []})", R"({"meta": {"pagination": 7}})",
        R"({"meta": {"pagination": [7]}})", R"({"pagination": {"next": 5}})"}) {
    std::map<int, DataGather::Record> images;
    std::vector<DataGather::Record> jobs;
    int offset = 300;
    gather.parse_api_response(text, images, jobs, offset, 1);
    EXPECT_EQ(offset, 300) << text;
    EXPECT_EQ(fake.log.back(), progress("Capturing data for next offset: 300"));
  }
}

TEST_F(RestJobs, FirstPageWithoutMetaIsTheOnlyOne) {
  answer(R"({"data": []})");
  gather.do_data_gather_api(kStart, kEnd, 0);
  EXPECT_EQ(fake.requests.size(), 1U);
}

TEST_F(RestJobs, LaterPageWithoutMetaIsAskedForAgain) {
  answer(page({image(1, "a")}, 100));
  answer(R"({"data": []})");
  answer(R"({"data": []})");
  answer(page({image(2, "b")}));
  gather.do_data_gather_api(kStart, kEnd, 0);
  EXPECT_EQ(requested_offsets(), (std::vector<std::string>{"0", "100", "100", "100"}));
  EXPECT_EQ(world.rows("HIST_DATA"), "2");
}

// --- Requests that fail ---

TEST_F(RestJobs, FailingFirstPageThrowsBecauseThereIsNoResponse) {
  fail_request();
  try {
    gather.do_data_gather_api(kStart, kEnd, 0);
    FAIL() << "nothing thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "Job details not available.");
  }
  EXPECT_EQ(own_log().back(), (LogLine{16, kProgram, "JSON parsing failed for jobs data "}));
  EXPECT_EQ(fake.requests.size(), 1U);
}

TEST_F(RestJobs, FailingFirstJobsPageThrowsToo) {
  answer(page({image(1, "a")}));
  answer("try later", 503);
  EXPECT_THROW(gather.do_data_gather_api(kStart, kEnd, 1), std::runtime_error);
  EXPECT_EQ(own_log().back(), (LogLine{16, kProgram, "JSON parsing failed for jobs data "}));
}

TEST_F(RestJobs, FailingLaterImagesPageIsAskedForUntilItComesAndTheImagesStayAsTheyAre) {
  answer(page({image(1, "a")}, 100));
  fail_request();
  answer("busy", 500);
  answer(page({image(2, "b")}));
  gather.do_data_gather_api(kStart, kEnd, 0);
  EXPECT_EQ(requested_offsets(), (std::vector<std::string>{"0", "100", "100", "100"}));
  EXPECT_EQ(query_column(db, "SELECT BACKUP_ID FROM HIST_DATA ORDER BY ROWID"),
            (std::vector<std::string>{"a", "b"}));
}

TEST_F(RestJobs, FailingLaterJobsPageAppendsThePreviousPageAgain) {
  answer(page({}));
  answer(page({job(1)}, 100));
  fail_request();
  fail_request();
  answer(page({job(2)}));
  SqlRecorder sql(db);
  gather.do_data_gather_api(kStart, kEnd, 1);
  EXPECT_EQ(requested_offsets(), (std::vector<std::string>{"0", "0", "100", "100", "100"}));
  EXPECT_EQ(sql.texts.size(), 4U);  // job 1 three times, job 2 once
  EXPECT_EQ(world.rows("HIST_DATA"), "2");
}

TEST_F(RestJobs, ErrorBodyOfARepeatedRequestIsReadAsAPageWithoutData) {
  answer("", 401);
  answer(R"({"errorCode": 8})", 500);
  gather.do_data_gather_api(kStart, kEnd, 0);
  EXPECT_EQ(own_log().back(),
            progress("0 images found between (start time - end time): 1704067200 - 1704070800"));
}

TEST_F(RestJobs, ErrorBodyOfARepeatedRequestOnALaterPageLeadsToThatPageAgain) {
  answer(page({image(1, "a")}, 100));
  answer("", 401);
  answer(R"({"errorCode": 8})", 500);
  answer(page({image(2, "b")}));
  gather.do_data_gather_api(kStart, kEnd, 0);
  EXPECT_EQ(requested_offsets(), (std::vector<std::string>{"0", "100", "100", "100"}));
  EXPECT_EQ(world.rows("HIST_DATA"), "2");
}

TEST_F(RestJobs, HalfAPageThrowsAndStoresNothing) {
  const std::string whole = page({image(1, "a")});
  answer(whole.substr(0, whole.size() / 2));
  EXPECT_THROW(gather.do_data_gather_api(kStart, kEnd, 0), std::runtime_error);
  EXPECT_EQ(own_log().back(),
            (LogLine{16, kProgram,
                     "JSON parsing failed for jobs data " + whole.substr(0, whole.size() / 2)}));
  EXPECT_EQ(world.rows("HIST_DATA"), "0");
}

}  // namespace
}  // namespace corvane::test
