#include "coverage/job_lister.h"

#include <stdexcept>
#include <vector>

#include "tests/fakes/platform_fake_test.h"
#include "tests/support/error_of.h"
#include "tests/support/scratch_dir.h"

namespace corvane::coverage {
namespace {

class JobListerTest : public PlatformFake {
 protected:
  static std::string page(const std::string& jobs) {
    return R"({"data":[)" + jobs + R"(],"meta":{"pagination":{}}})";
  }
  static std::string job(const std::string& id, const std::string& backup_id,
                         const std::string& more = "") {
    return R"({"attributes":{"jobId":)" + id + R"(,"backupId":")" + backup_id +
           R"(","state":"DONE","status":0,"startTime":"1970-01-01T00:00:05.000Z",)"
           R"("endTime":"1970-01-01T00:00:07.000Z")" +
           more + "}}";
  }
  // A worker that leaves such a result.
  std::vector<EndedJob> list(const std::string& result, const std::string& script = "") {
    test::write_file(directory_("given"), result);
    std::vector<EndedJob> jobs;
    const Worker worker{
        {"/bin/sh", "-c", "cp " + directory_("given") + " " + directory_("jobs") + "; " + script},
        directory_("jobs"),
        deadline_,
        [this] { return stops_; }};
    is_whole_ = list_jobs(worker, {5, 7}, [&](const EndedJob& one) { jobs.push_back(one); });
    return jobs;
  }
  std::string failure(const std::string& result, const std::string& script = "") {
    return test::error_of([&] { list(result, script); });
  }
  std::string listed() const { return test::read_file(directory_("jobs")); }

  test::ScratchDir directory_;
  std::chrono::milliseconds deadline_{30'000};
  bool stops_ = false;
  bool is_whole_ = false;
};

TEST_F(JobListerTest, PassesEveryJobOn) {
  fake.answers.push_back({.body = page(job("7", " a\\nb ") + "," +
                                       job("8", "c",
                                           R"(,"kilobytesTransferred":0,)"
                                           R"("numberOfFiles":0)"))});
  list_jobs_into(directory_(), {5, 7});
  const std::vector<EndedJob> jobs = list(listed());
  EXPECT_TRUE(is_whole_);
  ASSERT_EQ(jobs.size(), 2U);
  EXPECT_EQ(jobs[0].unique_key, "data_7_ a\nb ");
  EXPECT_EQ(jobs[0].job, (TimeRange{5, 7}));
  EXPECT_TRUE(jobs[0].has_data);
  EXPECT_EQ(jobs[1].unique_key, "data_8_c");
  EXPECT_FALSE(jobs[1].has_data);
  EXPECT_NE(fake.requests.at(0).path.find("05.000Z%20and%20endTime%20le%201970-01-01T00:00:07"),
            std::string::npos);
}

TEST_F(JobListerTest, NoJobIsAWholeList) {
  fake.answers.push_back({.body = page("")});
  list_jobs_into(directory_(), {5, 7});
  EXPECT_EQ(list(listed()).size(), 0U);
  EXPECT_TRUE(is_whole_);
}

// One backup with an odd name must not keep all others from being compared.
TEST_F(JobListerTest, ReadsNamesThatAreNotUtf8) {
  fake.answers.push_back({.body = page(job("7", "b\xFF\\u0000"))});
  list_jobs_into(directory_(), {5, 7});
  EXPECT_EQ(list(listed()).at(0).unique_key, "data_7_b\uFFFD\uFFFD");
}

TEST_F(JobListerTest, SaysWhyThereIsNoList) {
  fake.answers.assign(3, {.status = 503, .body = ""});
  list_jobs_into(directory_(), {5, 7});
  EXPECT_EQ(failure(listed()), "The web service did not list the jobs (503)");
  fake.master_config_result = -1;
  list_jobs_into(directory_(), {5, 7});
  EXPECT_EQ(failure(listed()), "the master server is not known");
}

TEST_F(JobListerTest, HalfAListIsNone) {
  fake.answers.push_back({.body = page(job("7", "a") + "," + job("8", "b"))});
  list_jobs_into(directory_(), {5, 7});
  const std::string whole = listed();
  for (std::size_t length = 0; length < whole.size() - 1; ++length) {
    EXPECT_EQ(failure(whole.substr(0, length)), "The list of jobs ended early") << length;
  }
  EXPECT_EQ(failure(whole, "exit 1"), "The list of jobs ended early");
  EXPECT_EQ(list(whole).size(), 2U);
}

TEST_F(JobListerTest, TakesTooLong) {
  deadline_ = std::chrono::milliseconds(1);
  EXPECT_EQ(failure("", "sleep 60"), "The list of jobs took longer than 0 s");
}

TEST_F(JobListerTest, IsInterrupted) {
  stops_ = true;
  EXPECT_EQ(list("", "sleep 60").size(), 0U);
  EXPECT_FALSE(is_whole_);
}

TEST_F(JobListerTest, NeedsAFile) {
  fake.answers.push_back({.body = page("")});
  EXPECT_EQ(test::error_of([&] {
              list_jobs_into(directory_("none"), {5, 7});
            }),
            "cannot write " + directory_("none/jobs"));
}

}  // namespace
}  // namespace corvane::coverage
