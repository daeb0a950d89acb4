#include "operator_tool/run.h"

#include "tests/unit/operator_tool/layout/commands_world.h"

namespace corvane::ctl {
namespace {

class Run : public Commands {
 protected:
  // Standard output on a full disk.
  Said say_to_full_disk(const std::vector<std::string>& arguments) {
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    Said said;
    testing::internal::CaptureStderr();
    std::vector<const char*> all{"cvanomalyctl"};
    const std::string path = database();
    for (const std::string& argument : arguments) all.push_back(argument.c_str());
    all.insert(all.end(), {"--database", path.c_str()});
    dup2(full, STDOUT_FILENO);
    said.status = run(static_cast<int>(all.size()), all.data());
    std::clearerr(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    close(full);
    said.error = testing::internal::GetCapturedStderr();
    return said;
  }
};

TEST_F(Run, EveryCommandIsItself) {
  three_anomalies();
  insert("DATA_TO_PROCESS", {.client = "c", .mark = 2});
  const std::string key = key_of({.client = "c"});
  for (const auto& [arguments, begin] :
       std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"status"}, "Status  "},
           {{"streams"}, "Client  "},
           {{"anomalies"}, "Time  "},
           {{"show", key}, "Anomaly  "},
           {{"explain", key}, "Backup  "},
           {{"backtest", "3"}, "1 backup"},
           {{"metrics"}, "# HELP"},
           {{"report", "--html", directory_("r.html")}, directory_("r.html: ")},
           {{"check"}, "ANOMALY "}}) {
    EXPECT_TRUE(say(arguments).out.starts_with(begin)) << arguments[0] << say(arguments).out;
  }
}

TEST_F(Run, WrongArgumentsAreOneLine) {
  const Said said = say({"streams", "a\nb"});
  EXPECT_EQ(said.status, 2);
  EXPECT_EQ(said.out, "");
  EXPECT_EQ(said.error,
            "cvanomalyctl: The following argument was not expected: a b (see --help)\n");
}

TEST_F(Run, HelpIsGivenWhenAskedFor) {
  const Said said = say({"check", "--help"});
  EXPECT_EQ(said.status, 0);
  EXPECT_TRUE(says(said, "Usage: cvanomalyctl check [OPTIONS]\n")) << said.out;
  EXPECT_EQ(said.error, "");
}

TEST_F(Run, AFullDiskIsAnError) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"streams"}, {"--help"}, {"streams", "--json"}}) {
    const Said said = say_to_full_disk(arguments);
    EXPECT_EQ(said.status, 8);
    EXPECT_EQ(said.error,
              "cvanomalyctl: Cannot write to standard output: No space left on device.\n");
  }
}

TEST_F(Run, ACheckThatCannotBeWrittenIsUnknown) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"check"}, {"check", "--x"}}) {
    const Said said = say_to_full_disk(arguments);
    EXPECT_EQ(said.status, 3);
    EXPECT_EQ(said.error,
              "cvanomalyctl: Cannot write to standard output: No space left on device.\n");
  }
}

// As check would say it.
TEST_F(Run, TheExitStatusOfStatusIsThatOfCheck) {
  EXPECT_EQ(say({"status", "--exit-code", "--config", "/none"}).status, 3);
  EXPECT_EQ(say({"status", "--config", "/none"}).status, 2);
  EXPECT_EQ(say({"status", "--exit-code", "--x"}).status, 3);
  EXPECT_EQ(say({"streams", "--client", "--exit-code", "--x"}).status, 2);
  close_database();
  test::write_file(database(), std::string(100000, 'x'));
  EXPECT_EQ(say({"status", "--exit-code"}).status, 2);
  EXPECT_EQ(say({"status"}).status, 6);
  std::filesystem::remove(database());
  EXPECT_EQ(say({"status", "--exit-code"}).status, 3);
  EXPECT_EQ(say({"status"}).status, 3);
  running("cvanomalymgmt");
  const Said said = say({"status", "--exit-code"});
  EXPECT_EQ(said.status, 2);
  EXPECT_EQ(say({"status"}).status, 3);
  EXPECT_TRUE(said.error.starts_with("cvanomalyctl: Database not found: ")) << said.error;
}

// JSON is ASCII already; only text is made fit for the terminal.
TEST_F(Run, AMissingDatabase) {
  close_database();
  std::filesystem::remove(database());
  const Said said = say({"status"});
  EXPECT_EQ(said.status, 3);
  EXPECT_EQ(said.out, "");
  EXPECT_TRUE(said.error.starts_with("cvanomalyctl: ")) << said.error;
  EXPECT_TRUE(said.error.ends_with("\n"));
  EXPECT_EQ(std::count(said.error.begin(), said.error.end(), '\n'), 1);
}

// What was read of a database that changed may be no state that it ever had: also an error counts
// only when it did not.
class RunChanging : public Changing {};

TEST_F(RunChanging, AnErrorIsReadAgainToo) {
  changes_ = 0;
  test::write_file(directory_("anomaly_config.conf"), "");
  changes_ = 2;
  const Said said = say({"status"});
  EXPECT_EQ(said.status, 0) << said.error;
  EXPECT_EQ(opened_, 3);
  changes_ = 1000;
}

TEST_F(RunChanging, ThreeTimesInAll) {
  const Said said = say({"status"});
  EXPECT_EQ(said.status, 4);
  EXPECT_EQ(said.out, "");
  EXPECT_EQ(said.error, "cvanomalyctl: " + database() +
                            ": the database changed while it was being read; try again.\n");
  EXPECT_EQ(opened_, 3);
}

TEST_F(RunChanging, CheckReadsAgainToo) {
  const Said said = say({"check"});
  EXPECT_EQ(said.status, 3);
  EXPECT_EQ(said.out, "ANOMALY UNKNOWN - " + database() +
                          ": the database changed while it was being read; try again.\n");
}

}  // namespace
}  // namespace corvane::ctl
