// Job details from the jobs tool: get_job_details_json_from_job_id, parse_jobs_details.
#include <stdexcept>

#include "tests/unit/gather/tools.h"

namespace corvane::test {
namespace {

using Record = DataGather::Record;

class JobsTool : public ToolsTest {
 protected:
  std::string failure(std::vector<int> ids) {
    try {
      gather.get_job_details_json_from_job_id(ids, records);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  }

  std::vector<Record> records;
};

TEST_F(JobsTool, IsRunOnceForAllIdsAndItsAnswerAppended) {
  jobs_tool();
  records.push_back({{"earlier", "1"}});
  std::vector<int> ids{101, 102};
  gather.get_job_details_json_from_job_id(ids, records);
  EXPECT_EQ(calls(), std::vector<std::string>{"<-jobid><101,102><-json>"});
  EXPECT_EQ(
      fake.log,
      (std::vector<LogLine>{{2, kProgram, "Executing [ qpdbjobs   -jobid  101,102  -json   ]"}}));
  EXPECT_EQ(records,
            (std::vector<Record>{{{"earlier", "1"}},
                                 {{"JobId", "101"}, {"StartTime", "100"}, {"EndTime", "160"}},
                                 {{"JobId", "102"}, {"StartTime", "100"}, {"EndTime", "160"}}}));
  EXPECT_TRUE(left_behind().empty());
}

TEST_F(JobsTool, WritesIntoAnEmptyFileInTheDatabaseDirectory) {
  write_file(world.location + "/jobd.txt", std::string(5000, 'x'));
  tool("qpdbjobs", "cp '" + world.location + "/jobd.txt' seen; echo '[]'\n");
  EXPECT_EQ(failure({1}), "");
  EXPECT_EQ(read_file("seen"), "");
  EXPECT_TRUE(left_behind().empty());
}

TEST_F(JobsTool, WithoutAnIdIsNotRun) {
  jobs_tool();
  std::vector<int> none;
  EXPECT_THROW(gather.get_job_details_json_from_job_id(none, records), std::out_of_range);
  EXPECT_TRUE(calls().empty());
  EXPECT_TRUE(left_behind().empty());
}

TEST_F(JobsTool, ThatPrintsGarbageThrowsAndLeavesNoFile) {
  tool("qpdbjobs", "echo 'EXIT STATUS 25: cannot connect'\n");
  EXPECT_EQ(failure({1}), "Job details not available.");
  EXPECT_EQ(fake.log.back(),
            (LogLine{16, kProgram,
                     "JSON parsing failed for jobs data EXIT STATUS 25: cannot connect\n"}));
  EXPECT_TRUE(left_behind().empty());
}

TEST_F(JobsTool, ThatPrintsAnObjectThrows) {
  tool("qpdbjobs", "printf '{}'\n");
  EXPECT_EQ(failure({1}), "JSON parsing failed for jobs data.");
  EXPECT_EQ(fake.log.back(), (LogLine{16, kProgram, "JSON parsing failed for jobs data {}"}));
}

TEST_F(JobsTool, ThatPrintsNothingOrWritesToStandardErrorThrows) {
  tool("qpdbjobs", "exit 0\n");
  EXPECT_EQ(failure({1}), "Job details not available.");
  tool("qpdbjobs", "echo '[]'; echo warning >&2\n");
  EXPECT_EQ(failure({1}), "Job details not available.");
  EXPECT_EQ(fake.log.back(),
            (LogLine{16, kProgram, "JSON parsing failed for jobs data []\nwarning\n"}));
}

TEST_F(JobsTool, ThatIsMissingThrowsAndLeavesNoFile) {
  EXPECT_EQ(failure({1}), "Job details not available.");
  EXPECT_TRUE(left_behind().empty());
}

TEST_F(JobsTool, IsJudgedByItsOutputAndNotByItsExitStatus) {
  tool("qpdbjobs", "echo '[{\"JobId\": 1}]'; exit 3\n");
  EXPECT_EQ(failure({1}), "");
  EXPECT_EQ(records, (std::vector<Record>{{{"JobId", "1"}}}));
}

TEST_F(JobsTool, MayPrintTwentyMebibytes) {
  tool("qpdbjobs",
       "printf '['; head -c 20971520 /dev/zero | tr '\\0' ' '; printf '{\"JobId\": 7}]'\n");
  EXPECT_EQ(failure({1}), "");
  EXPECT_EQ(records, (std::vector<Record>{{{"JobId", "7"}}}));
}

TEST_F(JobsTool, TakesALongListOfIds) {
  jobs_tool();
  std::vector<int> ids;
  for (int id = 0; id < 500; ++id) ids.push_back(2'000'000'000 + id);
  gather.get_job_details_json_from_job_id(ids, records);
  ASSERT_EQ(records.size(), 500U);
  EXPECT_EQ(records.back().at("JobId"), "2000000499");
}

// --- Its output ---

TEST_F(JobsTool, OutputBecomesOneRecordPerElementInOrder) {
  gather.parse_jobs_details(R"([{"JobId": 7, "DedupRatio": 0.5, "Restartable": true, "X": null},
                               {"JobId": "8", "List": [1]}])",
                            records);
  EXPECT_EQ(records, (std::vector<Record>{
                         {{"JobId", "7"}, {"DedupRatio", "0.5"}, {"Restartable", "1"}, {"X", ""}},
                         {{"JobId", "8"}, {"List", ""}}}));
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(JobsTool, ElementThatIsNoObjectStillGivesAnEmptyRecord) {
  gather.parse_jobs_details(R"([7, {"JobId": 8}, null, []])", records);
  EXPECT_EQ(records, (std::vector<Record>{{}, {{"JobId", "8"}}, {}, {}}));
}

TEST_F(JobsTool, EmptyArrayYieldsNothing) {
  gather.parse_jobs_details("[]", records);
  EXPECT_TRUE(records.empty());
  EXPECT_TRUE(fake.log.empty());
}

}  // namespace
}  // namespace corvane::test
