#include "coverage/job_list.h"

#include <stdexcept>
#include <vector>

#include "tests/fakes/platform_fake_test.h"

namespace corvane::coverage {
namespace {

class JobListTest : public PlatformFake {
 protected:
  static std::string job(const std::string& attributes) {
    return R"({"type":"job","id":"1","attributes":{"jobId":7,"backupId":"web01_1700000000",)"
           R"("state":"DONE","status":0,"startTime":"2023-11-14T22:13:20.000Z",)"
           R"("endTime":"2023-11-14T22:13:30.000Z")" +
           attributes + "}}";
  }
  void answer(const std::string& jobs, const std::string& pagination = "") {
    fake.answers.push_back(
        {.body = R"({"data":[)" + jobs + R"(],"meta":{"pagination":{)" + pagination + "}}}"});
  }
  std::vector<std::string> read() {
    std::vector<std::string> keys;
    read_ended_jobs("master01", {1'700'000'000, 1'700'000'010}, [&](const EndedJob& job) {
      keys.push_back(job.unique_key);
      last_ = job;
    });
    return keys;
  }

  EndedJob last_;
};

TEST_F(JobListTest, AsksForWhatEndedInTheRange) {
  answer(job(""));
  EXPECT_EQ(read(), (std::vector<std::string>{"data_7_web01_1700000000"}));
  EXPECT_EQ(last_.job, (TimeRange{1'700'000'000, 1'700'000'010}));
  ASSERT_EQ(fake.requests.size(), 1U);
  EXPECT_EQ(fake.requests[0].server, "master01");
  EXPECT_EQ(fake.requests[0].method, "GET");
  EXPECT_EQ(fake.requests[0].path,
            "corvane/admin/jobs?page%5Boffset%5D=0&page%5Blimit%5D=100&sort=-startTime&filter="
            "endTime%20ge%202023-11-14T22:13:20.000Z%20and%20endTime%20le%20"
            "2023-11-14T22:13:30.000Z%20and%20(jobType%20eq%20'BACKUP'%20or%20jobType%20eq%20"
            "'SNAPDUPE'%20or%20jobType%20eq%20'DBBACKUP')");
}

TEST_F(JobListTest, ReadsEveryPage) {
  answer(job(R"(,"jobId":1)"), R"("next":100)");
  answer(job(R"(,"jobId":2)") + "," + job(R"(,"jobId":3)"), R"("next":200)");
  answer("");
  EXPECT_EQ(read().size(), 3U);
  EXPECT_NE(fake.requests.at(1).path.find("5D=100&"), std::string::npos);
  EXPECT_NE(fake.requests.at(2).path.find("5D=200&"), std::string::npos);
}

TEST_F(JobListTest, ThePagesHaveAnEnd) {
  answer("", R"("next":100)");
  answer("", R"("next":100)");
  read();
  EXPECT_EQ(fake.requests.size(), 2U);
}

TEST_F(JobListTest, APageIsAskedForThreeTimes) {
  fake.answers.push_back({.status = 503, .body = ""});
  fake.answers.push_back({.body = "{"});
  answer(job(""));
  EXPECT_EQ(read().size(), 1U);
  EXPECT_EQ(fake.requests.size(), 3U);
}

TEST_F(JobListTest, TellsWhichBackupsHaveNoData) {
  for (const auto& [attributes, has_data] : std::vector<std::pair<std::string, bool>>{
           {R"(,"kilobytesTransferred":0,"numberOfFiles":0)", false},
           {R"(,"kilobytesTransferred":1,"numberOfFiles":0)", true},
           {R"(,"kilobytesTransferred":0,"numberOfFiles":1)", true},
           {R"(,"kilobytesTransferred":0)", true},
           {"", true}}) {
    answer(job(attributes));
    read();
    EXPECT_EQ(last_.has_data, has_data) << attributes;
  }
}

TEST_F(JobListTest, LeavesOutWhatIsNotStored) {
  answer(job(R"(,"scheduleName":"-")") + "," + job(R"(,"destinationStorageUnitName":"")") + "," +
         job(R"(,"destinationStorageUnitName":" ")") + "," +
         job(R"(,"destinationStorageUnitName":null)"));
  EXPECT_EQ(read(), std::vector<std::string>{});
  answer(job(R"(,"scheduleName":"daily","destinationStorageUnitName":"disk01")"));
  EXPECT_EQ(read().size(), 1U);
}

TEST_F(JobListTest, LeavesOutTimesThatCannotBe) {
  answer(job(R"(,"startTime":"1970-01-01T00:00:00.000Z")") + "," +
         job(R"(,"startTime":"1970-01-01T00:00:00.000Z","endTime":"1970-01-01T00:00:10.000Z")") +
         "," + job(R"(,"startTime":"2023-11-14T22:13:31.000Z")") + "," +
         job(R"(,"startTime":"2023-10-15T22:13:29.000Z")"));
  EXPECT_EQ(read(), std::vector<std::string>{});
  answer(job(R"(,"startTime":"2023-10-15T22:13:30.000Z")"));
  EXPECT_EQ(read().size(), 1U);
}

TEST_F(JobListTest, LeavesOutWhatIsNoBackup) {
  answer(job(R"(,"state":"ACTIVE")") + "," + job(R"(,"state":"SUSPENDED")") + "," +
         job(R"(,"status":1)") + "," + job(R"(,"status":null)") + "," +
         job(R"(,"startTime":null)") + "," + job(R"(,"endTime":"2023-11-14T22:13")") + "," +
         R"({"id":"1"},5,null)");
  EXPECT_EQ(read(), std::vector<std::string>{});
}

TEST_F(JobListTest, ReadsNumbersAsTheGatherDoes) {
  answer(job(R"(,"jobId":"12","status":"0")"));
  EXPECT_EQ(read(), (std::vector<std::string>{"data_12_web01_1700000000"}));
}

TEST_F(JobListTest, AFailureIsNoEmptyList) {
  EXPECT_THROW(read(), std::runtime_error);
  for (const std::string body : {"", "[]", "{}", R"({"data":{}})", R"({"data":[)"}) {
    fake.answers.assign(3, {.body = body});
    EXPECT_THROW(read(), std::runtime_error) << body;
  }
  fake.answers.assign(3, {.status = 503, .body = R"({"data":[]})"});
  EXPECT_THROW(read(), std::runtime_error);
  answer(job(""), R"("next":100)");
  EXPECT_THROW(read(), std::runtime_error);
}

}  // namespace
}  // namespace corvane::coverage
