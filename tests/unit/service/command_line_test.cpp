#include "service/command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/service/service_world.h"

namespace {

using corvane::dispatch;
using corvane::OptionMap;
using corvane::run_command_line;
using corvane::scan_options;
using corvane::fake::log_lines;
using corvane::fake::LogLine;
using corvane::fake::LogOpening;
using corvane::test::kChildSucceeded;
using corvane::test::process_calls;
using corvane::test::read_file;
using corvane::test::report_of;
using corvane::test::report_text;
using corvane::test::start_idle_child;
using corvane::test::wait_for_descendants;
using corvane::test::write_file;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kUsage[] =
    "\ncvanomalymgmt [-start | -stop | -terminate | [-h | -help]]\n\nWhere:\n"
    "  -start     : Starts Anomaly management service.\n"
    "  -stop      : Stops Anomaly management service.\n"
    "  -terminate : Forcefully terminates Anomaly management service.\n\n"
    "  -h | -Help : Print command line help.\n\n";

// An argument vector as main gets it.
class Arguments {
 public:
  explicit Arguments(std::vector<std::string> texts) : texts_(std::move(texts)) {
    for (std::string& text : texts_) pointers_.push_back(text.data());
    pointers_.push_back(nullptr);
  }
  int count() const { return static_cast<int>(texts_.size()); }
  char** vector() { return pointers_.data(); }

 private:
  std::vector<std::string> texts_;
  std::vector<char*> pointers_;
};

OptionMap scan(const std::vector<std::string>& texts) {
  Arguments arguments(texts);
  int count = arguments.count();
  ACE_Arg_Shifter shifter(count, arguments.vector());
  return scan_options(shifter);
}

std::pair<bool, std::string> value(const std::string& text) { return {true, text}; }
const std::pair<bool, std::string> kNoValue{false, ""};

// What a run of the command line did.
struct Outcome {
  int status;
  std::string out;
  std::string err;
  bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Outcome& run) {
  return stream << run.status << " out: " << run.out << " err: " << run.err;
}

Outcome run(const std::vector<std::string>& texts) {
  Arguments arguments(texts);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const int status = run_command_line(arguments.count(), arguments.vector());
  // The forked daemon comes by here when it could not be set up.
  if (process_calls().depth > 0) _exit(status);
  wait_for_descendants();
  std::string out = testing::internal::GetCapturedStdout();
  return {status, out, testing::internal::GetCapturedStderr()};
}

const Outcome kUsageRun{0, kUsage, ""};

class CommandLineTest : public ServiceWorld {
 protected:
  void SetUp() override {
    umask_ = umask(022);
    ServiceWorld::SetUp();
  }
  void TearDown() override {
    ServiceWorld::TearDown();
    umask(umask_);
  }

 private:
  mode_t umask_ = 0;
};

// --- Scanning ---

TEST_F(CommandLineTest, ScanOfTheProgramNameAloneIsEmpty) {
  EXPECT_EQ(scan({"cvanomalymgmt"}), OptionMap{});
}

TEST_F(CommandLineTest, AnOptionFollowedByAWordHasItAsValue) {
  EXPECT_EQ(scan({"cvanomalymgmt", "-start", "now"}), (OptionMap{{"-start", value("now")}}));
  EXPECT_EQ(scan({"cvanomalymgmt", "-start", "now", "or", "-stop", "never"}),
            (OptionMap{{"-start", value("now")}, {"-stop", value("never")}}));
}

TEST_F(CommandLineTest, AnOptionFollowedByAnOptionHasNoValue) {
  EXPECT_EQ(scan({"cvanomalymgmt", "-start", "-stop"}),
            (OptionMap{{"-start", kNoValue}, {"-stop", kNoValue}}));
}

TEST_F(CommandLineTest, StrayWordsAreSkipped) {
  EXPECT_EQ(scan({"cvanomalymgmt", "stray", "words", "-stop"}), (OptionMap{{"-stop", kNoValue}}));
}

TEST_F(CommandLineTest, OfAnOptionGivenTwiceTheFirstIsKept) {
  EXPECT_EQ(scan({"cvanomalymgmt", "-start", "-start", "later"}),
            (OptionMap{{"-start", kNoValue}}));
  EXPECT_EQ(scan({"cvanomalymgmt", "-start", "first", "-start", "later"}),
            (OptionMap{{"-start", value("first")}}));
}

TEST_F(CommandLineTest, AMinusAloneIsAnOptionAndAnEmptyArgumentAWord) {
  EXPECT_EQ(scan({"cvanomalymgmt", "-"}), (OptionMap{{"-", kNoValue}}));
  EXPECT_EQ(scan({"cvanomalymgmt", "-stop", ""}), (OptionMap{{"-stop", value("")}}));
  EXPECT_EQ(scan({"", "-stop"}), (OptionMap{{"-stop", kNoValue}}));
}

// --- Validation ---

TEST_F(CommandLineTest, ExactlyTheFiveOptionsAreValid) {
  for (const char* option : {"-start", "-stop", "-terminate", "-h", "-help"}) {
    EXPECT_EQ(validate_params({{option, kNoValue}}), 1) << option;
  }
  for (const char* option : {"-terminate_data_gather", "-Help", "-H", "--help", "start", "-", "",
                             "-START", "-start ", "-hel"}) {
    EXPECT_EQ(validate_params({{option, kNoValue}}), 0) << option;
  }
}

TEST_F(CommandLineTest, AValueMakesAnOptionInvalid) {
  EXPECT_EQ(validate_params({{"-start", value("now")}}), 0);
  EXPECT_EQ(validate_params({{"-start", value("")}}), 0);
}

TEST_F(CommandLineTest, NoOptionAndTwoOptionsAreInvalid) {
  EXPECT_EQ(validate_params({}), 0);
  EXPECT_EQ(validate_params({{"-start", kNoValue}, {"-stop", kNoValue}}), 0);
}

// --- Usage ---

TEST_F(CommandLineTest, UsageText) {
  testing::internal::CaptureStdout();
  display_usage();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), kUsage);
}

TEST_F(CommandLineTest, NoOptionsAtAllPrintsTheUsage) {
  EXPECT_EQ(run({"cvanomalymgmt"}), kUsageRun);
  EXPECT_EQ(run({""}), kUsageRun);
}

TEST_F(CommandLineTest, StartFollowedByAWordPrintsTheUsage) {
  EXPECT_EQ(run({"cvanomalymgmt", "-start", "now"}), kUsageRun);
}

TEST_F(CommandLineTest, StartTogetherWithStopPrintsTheUsage) {
  EXPECT_EQ(run({"cvanomalymgmt", "-start", "-stop"}), kUsageRun);
}

TEST_F(CommandLineTest, HelpWithACapitalHAndTheHiddenOptionPrintTheUsage) {
  EXPECT_EQ(run({"cvanomalymgmt", "-Help"}), kUsageRun);
  make_database_directory();
  EXPECT_EQ(run({"cvanomalymgmt", "-terminate_data_gather"}), kUsageRun);
  EXPECT_FALSE(std::filesystem::exists(database_directory() + "/terminate_gather"));
}

TEST_F(CommandLineTest, HelpPrintsTheUsageWithoutALog) {
  EXPECT_EQ(run({"cvanomalymgmt", "-h"}), kUsageRun);
  EXPECT_EQ(run({"cvanomalymgmt", "-help"}), kUsageRun);
  EXPECT_THAT(fake.log_openings, IsEmpty());
}

TEST_F(CommandLineTest, AnEmptyArgumentVectorIsAnError) {
  EXPECT_EQ(run({}), (Outcome{1, "", "\nError: Invalid arguments received.\n"}));
  EXPECT_EQ(fake.service_account_calls, 1);
}

// --- Before the dispatch ---

TEST_F(CommandLineTest, TheMaskIs022AndTheServiceAccountIsTaken) {
  umask(0);
  run({"cvanomalymgmt"});
  EXPECT_EQ(umask(0), 022u);
  EXPECT_EQ(fake.service_account_calls, 1);
}

TEST_F(CommandLineTest, ALogThatCannotBeOpenedEndsTheRunBeforeAnythingIsDone) {
  fake.log_status = -1;
  for (const char* option : {"-start", "-stop", "-terminate"}) {
    EXPECT_EQ(run({"cvanomalymgmt", option}),
              (Outcome{1, "Failed to setup logging\n",
                       "Failed to setup logging at [/usr/tessel/corvane/logs/cvanomalymgmt]\n"}));
  }
  EXPECT_THAT(fake.terminated, IsEmpty());
  EXPECT_THAT(fake.looks, IsEmpty());
  EXPECT_THAT(log_lines(), IsEmpty());
}

// --- Start ---

TEST_F(CommandLineTest, StartOfAServiceThatCannotBeForkedFails) {
  EXPECT_EQ(in_child([] {
              process_calls().fork_fails_in = 1;
              EXPECT_EQ(run({"cvanomalymgmt", "-start"}),
                        (Outcome{1, "\nFailed to Start the service\n", ""}));
              EXPECT_THAT(log_lines(),
                          ElementsAre(LogLine{16, "cvanomalymgmt", "fork() failed. Error:[-1]"},
                                      LogLine{16, "cvanomalymgmt", "Failed to Start the service"}));
            }),
            kChildSucceeded);
}

TEST_F(CommandLineTest, StartWhileADaemonRunsReportsSuccessAndTheChildLeaves) {
  EXPECT_EQ(in_child([this] {
              fake.on_look = [this](const std::string& name, int) {
                // The parent sees the daemon and its child; the child the daemon and its parent.
                fake.processes[name] = {4711, 4712};
              };
              Outcome result = run({"cvanomalymgmt", "-start"});
              result.out = without(result.out, "cvanomalymgmt service is already running\n");
              EXPECT_EQ(result, (Outcome{0,
                                         "Successfully started the mgmt service\n"
                                         "\nSuccessfully started the service\n",
                                         ""}));
              EXPECT_THAT(log_lines(), ElementsAre(LogLine{4, "cvanomalymgmt",
                                                           "Successfully started the service"}));
            }),
            kChildSucceeded);
  EXPECT_EQ(
      report_of(1),
      report_text({{2, "cvanomalymgmt", "cvanomalymgmt service is already running\n"}}, "_exit 0"));
}

TEST_F(CommandLineTest, StartGivenTwiceStarts) {
  EXPECT_EQ(in_child([this] {
              fake.processes["cvanomalymgmt"] = {4711, 4712};
              EXPECT_EQ(run({"cvanomalymgmt", "-start", "-start"}).status, 0);
            }),
            kChildSucceeded);
  EXPECT_NE(report_of(1), "") << "nothing was forked";
}

TEST_F(CommandLineTest, AChildThatCannotBeSetUpReportsTheFailureAsWell) {
  EXPECT_EQ(in_child([this] {
              fake.processes["cvanomalymgmt"] = {4711};
              process_calls().signal_fails_in = 1;
              EXPECT_EQ(run({"cvanomalymgmt", "-start"}).status, 0);
            }),
            kChildSucceeded);
  EXPECT_EQ(
      report_of(1),
      report_text({{16, "cvanomalymgmt", "Failed to install signal handler for signal SIGINT"},
                   {16, "cvanomalymgmt", "Could not SetupSignalHandler. Error:[1]"},
                   {16, "cvanomalymgmt", "Failed to Start the service"}},
                  "_exit 1"));
}

// --- Stop and terminate ---

TEST_F(CommandLineTest, StopWhenNoDaemonRunsPrintsTheFailureAndTheSuccess) {
  EXPECT_EQ(run({"cvanomalymgmt", "-stop"}),
            (Outcome{1, "\nFailed to Stop the service\n\nSuccessfully stopped the service\n", ""}));
  EXPECT_THAT(fake.terminated, ElementsAre("cvanomalyalert", "cvanomalydetect"));
  EXPECT_THAT(log_lines(),
              ElementsAre(LogLine{16, "cvanomalymgmt", "Could not fetch the pids of the process."},
                          LogLine{16, "cvanomalymgmt", "Failed to Stop the service"},
                          LogLine{4, "cvanomalymgmt", "Successfully stopped the service"}));
}

TEST_F(CommandLineTest, StopOfARunningDaemon) {
  EXPECT_EQ(
      in_child([this] {
        const pid_t daemon = start_idle_child();
        fake.processes["cvanomalymgmt"] = {daemon};
        EXPECT_EQ(run({"cvanomalymgmt", "-stop"}),
                  (Outcome{0, "\nSuccessfully stopped the service\n", ""}));
        EXPECT_THAT(
            log_lines(),
            ElementsAre(LogLine{2, "cvanomalymgmt",
                                "[" + std::to_string(daemon) + "] pid SIGTERM is getting sent"},
                        LogLine{4, "cvanomalymgmt", "Successfully stopped the service"}));
      }),
      kChildSucceeded);
}

TEST_F(CommandLineTest, AStrayWordBeforeStopIsSkipped) {
  EXPECT_EQ(run({"cvanomalymgmt", "please", "-stop"}).status, 1);
  EXPECT_THAT(fake.terminated, ElementsAre("cvanomalyalert", "cvanomalydetect"));
}

TEST_F(CommandLineTest, TerminateAlwaysExits0AndPrintsNothing) {
  EXPECT_EQ(run({"cvanomalymgmt", "-terminate"}), (Outcome{0, "", ""}));
  EXPECT_THAT(fake.terminated, ElementsAre("cvanomalyalert", "cvanomalydetect", "cvanomalymgmt"));
  EXPECT_THAT(log_lines(), IsEmpty());
  EXPECT_THAT(fake.log_openings, ElementsAre(LogOpening{"/usr/tessel/corvane/logs", "cvanomalymgmt",
                                                        "cvanomalymgmt", 0644}));
}

// --- Dispatch ---

TEST_F(CommandLineTest, DispatchOfTheHiddenOptionWritesAnEmptyRequestFile) {
  make_database_directory();
  const std::string path = database_directory() + "/terminate_gather";
  write_file(path, "old");
  testing::internal::CaptureStdout();
  EXPECT_EQ(dispatch({{"-terminate_data_gather", kNoValue}}), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(read_file(path), "");
}

TEST_F(CommandLineTest, ARequestFileThatCannotBeWrittenIsSaid) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(dispatch({{"-terminate_data_gather", kNoValue}}), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\nCould not initiate data gather terminate operation. Please terminate data gather "
            "manually.");
  EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(CommandLineTest, DispatchOfNoneOfThemIs1) {
  EXPECT_EQ(dispatch({}), 1);
  EXPECT_EQ(dispatch({{"-other", kNoValue}}), 1);
}

TEST_F(CommandLineTest, DispatchTestsTheOptionsInOrder) {
  testing::internal::CaptureStdout();
  dispatch({{"-stop", kNoValue}, {"-terminate", kNoValue}});
  testing::internal::GetCapturedStdout();
  EXPECT_THAT(fake.terminated, ElementsAre("cvanomalyalert", "cvanomalydetect"))
      << "-stop comes before -terminate";
}

}  // namespace
