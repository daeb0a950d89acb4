// One live gather by the product's command-line tools.
#include "anomaly_database/backup_row.h"
#include "tests/support/working_directory.h"
#include "tests/unit/faults/attempt.h"
#include "tests/unit/faults/outcome.h"

namespace corvane::test {
namespace {

constexpr int kJobs = 3;
constexpr int kStart = 1000;
constexpr int kEnd = 2000;

const std::string kJobsOutput = R"([{"JobId": 1}, {"JobId": 2}, {"JobId": 3}])";

std::vector<Stated> stated_lines(const std::string& location) {
  std::vector<Stated> stated{
      {error("Could not capture data between 1000 & 2000 "), kJobs},
      {error("Could not read all of " + location + "/image.out"), kJobs},
      {progress("Failed to gather job information."), kJobs},
      {progress("Issue parsing image. Continue with other images."), 1, "data_"},
      // The tool was not run, or its output could not be opened.
      {progress("Total images captured = 0"), kJobs}};
  for (std::size_t read = 0; read < kJobsOutput.size(); ++read) {
    stated.push_back({error("JSON parsing failed for jobs data " + kJobsOutput.substr(0, read))});
  }
  return stated;
}

class LiveGatherByTools : public FaultTest {
 protected:
  static void SetUpTestSuite() {
    tools = std::make_unique<ScratchDir>();  // still on disk, where programs may run
    write_script((*tools)("admincmd/qpimagelist"),
                 R"sh(for i in 1 2 3; do echo "{\"backupid\": \"h_$i\", \"job_id\": $i}"; done)sh");
    write_script((*tools)("admincmd/qpdbjobs"), "printf '%s\\n' '" + kJobsOutput + "'");
    FaultTest::SetUpTestSuite();
  }
  static void TearDownTestSuite() {
    FaultTest::TearDownTestSuite();
    tools.reset();
  }

  int attempt(const FaultPoint& point) const {
    SmallWorld world;
    const WorkingDirectory working_directory((*tools)());
    // Without a master server the tools are the source.
    DataGather gather(world.service.m_db.get(), world.location, "");
    const auto run = [&] { gather.do_live_gather(kStart, kEnd); };
    const int failed = failed_calls_of(run, point);
    const Outcome outcome = outcome_of(world);
    for (const char* scratch_file : {"/image.out", "/jobd.txt"}) {
      EXPECT_FALSE(std::filesystem::exists(world.location + scratch_file)) << scratch_file;
    }
    run();
    Outcome undisturbed = outcome_of(world);
    EXPECT_EQ(
        std::count_if(undisturbed.rows.begin(), undisturbed.rows.end(),
                      [](const std::string& row) { return row.starts_with("DATA_TO_PROCESS|h_"); }),
        kJobs)
        << "gathering again does not make up for it";
    undisturbed.log.clear();
    expect_stated(outcome, undisturbed, stated_lines(world.location));
    return failed;
  }

  static inline std::unique_ptr<ScratchDir> tools;
};

TEST_P(LiveGatherByTools, LosesWhatIsLoggedAndNoMore) {
  try_every_point([this](const FaultPoint& point) { return attempt(point); });
}

INSTANTIATE_TEST_SUITE_P(Every, LiveGatherByTools,
                         ::testing::ValuesIn(once_and_from_then_on(
                             {Fault::kOpen, Fault::kRead, Fault::kFork, Fault::kAllocation})),
                         kind_name);

}  // namespace
}  // namespace corvane::test
