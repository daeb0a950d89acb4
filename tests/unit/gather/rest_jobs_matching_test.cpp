// One page to records, and jobs to their images: parse_api_response.
#include <stdexcept>

#include "tests/unit/gather/gather_world.h"
#include "tests/unit/gather/rest_answers.h"

namespace corvane::test {
namespace {

using Record = DataGather::Record;

class RestMatching : public GatherTest {
 protected:
  void parse_images(const std::vector<std::string>& elements) {
    gather.parse_api_response(page(elements), images, jobs, offset, 0);
  }
  void parse_jobs(const std::vector<std::string>& elements) {
    gather.parse_api_response(page(elements), images, jobs, offset, 1);
  }
  std::string parse_failure(const std::string& text, int mode) {
    try {
      gather.parse_api_response(text, images, jobs, offset, mode);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  }

  std::map<int, Record> images;
  std::vector<Record> jobs;
  int offset = 0;
};

// --- What is no page ---

TEST_F(RestMatching, TextThatIsNoJsonThrows) {
  EXPECT_EQ(parse_failure("<html>", 0), "Job details not available.");
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{{16, kProgram, "JSON parsing failed for jobs data <html>"}}));
}

TEST_F(RestMatching, RootThatIsNoObjectThrows) {
  EXPECT_EQ(parse_failure("[1]", 1), "JSON parsing failed for jobs data.");
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{{16, kProgram, "JSON parsing failed for jobs data [1]"}}));
}

TEST_F(RestMatching, MissingOrWrongDataHasNoElements) {
  for (const char* text : {"{}", R"({"data": {"attributes": {"policyType": "X", "jobId": 1}}})",
                           R"({"data": null})", R"({"data": "x"})"}) {
    EXPECT_EQ(parse_failure(text, 0), "") << text;
    EXPECT_EQ(parse_failure(text, 1), "") << text;
  }
  EXPECT_TRUE(images.empty());
  EXPECT_TRUE(jobs.empty());
  EXPECT_TRUE(corvane::fake::log_lines(16).empty());
}

// --- Elements that are skipped ---

TEST_F(RestMatching, ElementWithoutAttributesOrPolicyTypeIsSkipped) {
  const std::vector<std::string> elements{"null",
                                          "7",
                                          "[]",
                                          R"({"id": "a"})",
                                          R"({"id": "b", "attributes": null})",
                                          R"({"id": "c", "attributes": ["policyType"]})",
                                          element("d", R"("jobId": 4)"),
                                          job(5)};
  parse_jobs(elements);
  ASSERT_EQ(jobs.size(), 1U);
  EXPECT_EQ(jobs[0].at("jobId"), "5");
  parse_images(elements);
  EXPECT_EQ(images.size(), 1U);
}

TEST_F(RestMatching, JobWithNothingButItsTwoTypesIsSkipped) {
  parse_jobs({element("1", R"("policyType": "CLOUD", "scheduleType": "FULL")")});
  EXPECT_TRUE(jobs.empty());
  EXPECT_TRUE(fake.requests.empty());
}

TEST_F(RestMatching, ImageWithoutIdIsDropped) {
  parse_images({R"({"attributes": {"policyType": "STANDARD", "jobId": 1}})", image(2, "b")});
  ASSERT_EQ(images.size(), 1U);
  EXPECT_EQ(images.at(2).at("backupId"), "b");
}

// --- Records ---

TEST_F(RestMatching, ImageRecordHoldsEveryAttributeAsText) {
  parse_images({element("web01_17", R"("policyType": "STANDARD", "scheduleType": "FULL",
      "jobId": 12, "kbytes": 1.5e-7, "on": true, "off": false, "none": null, "list": [1],
      "object": {"a": 1}, "text": "a b")")});
  EXPECT_EQ(images.at(12), (Record{{"backupId", "web01_17"},
                                   {"policyType", "STANDARD"},
                                   {"scheduleType", "FULL"},
                                   {"jobId", "12"},
                                   {"kbytes", "1.5e-07"},
                                   {"on", "1"},
                                   {"off", "0"},
                                   {"none", ""},
                                   {"list", ""},
                                   {"object", ""},
                                   {"text", "a b"}}));
  EXPECT_TRUE(jobs.empty());
}

TEST_F(RestMatching, ImageKeepsABackupIdOfItsOwn) {
  parse_images({image(1, "element", R"("backupId": "own")")});
  EXPECT_EQ(images.at(1).at("backupId"), "own");
}

TEST_F(RestMatching, IdOfAnyTypeIsTheBackupIdAsText) {
  parse_images({R"({"id": 42, "attributes": {"policyType": "X", "jobId": 1}})",
                R"({"id": null, "attributes": {"policyType": "X", "jobId": 2}})"});
  EXPECT_EQ(images.at(1).at("backupId"), "42");
  EXPECT_EQ(images.at(2).at("backupId"), "");
}

TEST_F(RestMatching, OfTwoImagesOfOneJobTheFirstStays) {
  parse_images({image(1, "first"), image(1, "second")});
  parse_images({image(1, "third")});
  ASSERT_EQ(images.size(), 1U);
  EXPECT_EQ(images.at(1).at("backupId"), "first");
}

TEST_F(RestMatching, ImagesWithoutAJobIdAreFiledUnderZeroAndOneIsKept) {
  parse_images(
      {element("a", R"("policyType": "STANDARD")"), element("b", R"("policyType": "STANDARD")")});
  ASSERT_EQ(images.size(), 1U);
  EXPECT_EQ(images.at(0), (Record{{"policyType", "STANDARD"}, {"backupId", "a"}}));
  gather.process_gathered_data(jobs, images, 0);
  EXPECT_EQ(query(db, "SELECT JOB_ID, UNIQUE_KEY FROM HIST_DATA"),
            (std::vector<SqlRow>{{"-1", "data_-1_a"}}));
}

TEST_F(RestMatching, JobIdSentAsARealIsReadUpToItsPoint) {
  parse_images({element("a", R"("policyType": "STANDARD", "jobId": 123456789.0)")});
  EXPECT_EQ(images.begin()->first, 1);
  EXPECT_EQ(images.begin()->second.at("jobId"), "1.23457e+08");
}

TEST_F(RestMatching, JobIdKeepsItsLow32Bits) {
  parse_images({element("a", R"("policyType": "STANDARD", "jobId": 4294967297)")});
  EXPECT_EQ(images.begin()->first, 1);
}

TEST_F(RestMatching, OfAnAttributeNamedTwiceTheLastValueCounts) {
  parse_images({element("a", R"("policyType": "X", "jobId": 1, "kbytes": 5, "kbytes": 6)")});
  EXPECT_EQ(images.at(1).at("kbytes"), "6");
}

// --- Jobs and their images ---

TEST_F(RestMatching, JobTakesWhatItLacksFromItsImageWhichIsUsedUp) {
  parse_images({image(7, "web01_1", R"("scheduleType": "FULL", "kbytes": 100, "streamNumber": 2)"),
                image(8, "web01_2")});
  parse_jobs({element("7", R"("policyType": "OTHER", "scheduleType": "OTHER", "jobId": 7,
                              "streamNumber": 5, "state": "DONE")")});
  ASSERT_EQ(jobs.size(), 1U);
  EXPECT_EQ(jobs[0], (Record{{"backupId", "web01_1"},
                             {"jobId", "7"},
                             {"kbytes", "100"},
                             {"policyType", "STANDARD"},
                             {"scheduleType", "FULL"},
                             {"state", "DONE"},
                             {"streamNumber", "5"}}));
  EXPECT_EQ(images.size(), 1U);
  EXPECT_TRUE(images.contains(8));
}

TEST_F(RestMatching, JobKeepsItsOwnBackupIdEvenAnEmptyOne) {
  parse_images({image(7, "image's"), image(8, "image's")});
  parse_jobs({job(7, R"("backupId": "job's")"), job(8, R"("backupId": null)")});
  EXPECT_EQ(jobs.at(0).at("backupId"), "job's");
  EXPECT_EQ(jobs.at(1).at("backupId"), "");
}

TEST_F(RestMatching, SecondJobOfOneIdFindsNoImageAnyMore) {
  parse_images({image(7, "web01_1")});
  parse_jobs({job(7), job(7)});
  ASSERT_EQ(jobs.size(), 2U);
  EXPECT_TRUE(jobs[0].contains("backupId"));
  EXPECT_FALSE(jobs[1].contains("backupId"));
}

TEST_F(RestMatching, JobWithoutImageHasNeitherPolicyTypeNorScheduleType) {
  parse_jobs({job(7, R"("scheduleType": "FULL")")});
  ASSERT_EQ(jobs.size(), 1U);
  EXPECT_FALSE(jobs[0].contains("policyType"));
  EXPECT_FALSE(jobs[0].contains("scheduleType"));
  EXPECT_FALSE(jobs[0].contains("backupId"));
  EXPECT_TRUE(fake.requests.empty());
}

// --- Images fetched one by one ---

TEST_F(RestMatching, UnmatchedCloudJobFetchesItsImageByBackupId) {
  answer(R"({"data": {"id": "c_1", "attributes": {"policyType": "CLOUD", "scheduleType": "FULL",
             "backupId": "image's", "kbytes": 9}}})");
  parse_jobs({element("7", R"("policyType": "CLOUD", "scheduleType": "X", "jobId": 7,
                              "backupId": "c_1")")});
  EXPECT_EQ(requested_paths(), std::vector<std::string>{"corvane/catalog/images/c_1"});
  ASSERT_EQ(jobs.size(), 1U);
  EXPECT_EQ(jobs[0], (Record{{"backupId", "c_1"},
                             {"jobId", "7"},
                             {"kbytes", "9"},
                             {"policyType", "CLOUD"},
                             {"scheduleType", "FULL"}}));
}

TEST_F(RestMatching, MatchedCloudJobFetchesNothing) {
  parse_images({image(7, "c_1")});
  parse_jobs({element("7", R"("policyType": "CLOUD", "jobId": 7)")});
  EXPECT_TRUE(fake.requests.empty());
  EXPECT_EQ(jobs.at(0).at("policyType"), "STANDARD");
}

TEST_F(RestMatching, CloudJobWithoutBackupIdAsksForNoneAndGetsAnEmptyOne) {
  fail_request();
  parse_jobs({element("7", R"("policyType": "NAS_DATA_PROTECTION", "jobId": 7)")});
  EXPECT_EQ(requested_paths(), std::vector<std::string>{"corvane/catalog/images/"});
  EXPECT_EQ(jobs.at(0), (Record{{"backupId", ""}, {"jobId", "7"}}));
}

TEST_F(RestMatching, ImageThatCannotBeFetchedLeavesTheJobAsItIsInTheList) {
  answer("gone", 404);
  parse_jobs({element("7", R"("policyType": "CLOUD", "jobId": 7, "backupId": "c_1")"), job(8)});
  ASSERT_EQ(jobs.size(), 2U);
  EXPECT_EQ(jobs[0], (Record{{"backupId", "c_1"}, {"jobId", "7"}}));
  EXPECT_EQ(own_log().at(1),
            (LogLine{2, kProgram, "Image data could not capture for backupId: c_1"}));
}

TEST_F(RestMatching, OtherPolicyTypesAndOtherSpellingsFetchNothing) {
  parse_jobs({element("1", R"("policyType": "Cloud", "jobId": 1)"),
              element("2", R"("policyType": 9, "jobId": 2)"),
              element("3", R"("policyType": null, "jobId": 3)"),
              element("4", R"("policyType": "", "jobId": 4)")});
  EXPECT_EQ(jobs.size(), 4U);
  EXPECT_TRUE(fake.requests.empty());
}

}  // namespace
}  // namespace corvane::test
