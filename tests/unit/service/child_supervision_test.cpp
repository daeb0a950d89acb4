#include "service/child_supervision.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/unit/service/service_world.h"

namespace {

using corvane::fake::log_lines;
using corvane::fake::LogLine;
using corvane::test::kChildSucceeded;
using corvane::test::process_calls;
using corvane::test::read_file;
using corvane::test::report_of;
using corvane::test::report_text;
using corvane::test::wait_for_descendants;
using corvane::test::write_script;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr char kDetect[] = "cvanomalydetect";
constexpr char kAlert[] = "cvanomalyalert";

constexpr char kDetectLine[] =
    "/usr/tessel/corvane/bin/cvanomalydetect -database_location "
    "/usr/tessel/var/global/anomaly_detection/ -database_file_name CV_Anomaly.db -eps 2.5 "
    "-min_samples 3 -config_file /usr/tessel/var/global/anomaly_detection/anomaly_config.conf";
constexpr char kAlertLine[] =
    "/usr/tessel/corvane/bin/cvanomalyalert -database_location "
    "/usr/tessel/var/global/anomaly_detection/ -database_file_name CV_Anomaly.db -master "
    "master01.example.com";

LogLine handle(int level, const std::string& text) { return {level, "handleChildProc", text}; }
LogLine service(int level, const std::string& text) { return {level, "cvanomalymgmt", text}; }
LogLine start(int level, const std::string& text) { return {level, "startProcessByName", text}; }

const LogLine kNoMaster{16, "getMasterServerName", "ERR - Call to getMasterServerName() failed.\n"};

class ChildSupervisionTest : public ServiceWorld {
 protected:
  // From its `look`-th look at the process table on, the test's process sees the companion.
  void appears_at(const std::string& companion, int look) {
    fake.on_look = [this, companion, look](const std::string& name, int looks) {
      if (name == companion && looks >= look && process_calls().depth == 0) {
        fake.processes[companion] = {4711};
      }
    };
  }

  // A "bash" before the real one that notes how it was called and what it is.
  void put_bash_first() {
    write_script(scratch_("bin/bash"),
                 "open=\nfor d in 0 1 2; do [ -e /proc/$$/fd/$d ] && open=\"$open $d\"; done\n"
                 "session_of() { session=$6; }\nread -r stat < /proc/$$/stat\nsession_of $stat\n"
                 "[ \"$session\" = $$ ] && leader=yes\n"
                 "{ for a in \"$@\"; do echo \"$a\"; done; echo \"open:$open\"; "
                 "echo \"leader:$leader\"; } > " +
                     scratch_("called") + "\n");
    setenv("PATH", (scratch_("bin") + ":" + getenv("PATH")).c_str(), 1);
  }
};

// --- Counting and waiting ---

TEST_F(ChildSupervisionTest, CheckProcessIsTheNumberOfProcesses) {
  EXPECT_EQ(checkProcess(kDetect), 0u);
  fake.processes[kDetect] = {11, 12, 13};
  EXPECT_EQ(checkProcess(kDetect), 3u);
  EXPECT_EQ(checkProcess(kAlert), 0u);
}

TEST_F(ChildSupervisionTest, AStartSeenAtTheFirstCheckTakesNoWait) {
  fake.processes[kDetect] = {4711};
  EXPECT_EQ(checkProcessStartWithRetry(kDetect), 0);
  EXPECT_THAT(fake.sleeps, IsEmpty());
}

TEST_F(ChildSupervisionTest, AStartSeenAtTheTenthCheckSucceeds) {
  appears_at(kDetect, 10);
  EXPECT_EQ(checkProcessStartWithRetry(kDetect), 0);
  EXPECT_EQ(fake.sleeps, std::vector<unsigned>(9, 1));
}

TEST_F(ChildSupervisionTest, AStartNotSeenFailsAfterTenChecksASecondApart) {
  appears_at(kDetect, 11);
  EXPECT_EQ(checkProcessStartWithRetry(kDetect), 1);
  EXPECT_EQ(fake.looks[kDetect], 10);
  EXPECT_EQ(fake.sleeps, std::vector<unsigned>(10, 1));
}

TEST_F(ChildSupervisionTest, AStopSeenAtTheFirstCheckTakesNoWait) {
  EXPECT_EQ(checkProcessStopWithRetry(kAlert), 0);
  EXPECT_THAT(fake.sleeps, IsEmpty());
}

TEST_F(ChildSupervisionTest, AStopSeenAtTheTenthCheckSucceeds) {
  fake.processes[kAlert] = {4711};
  fake.on_look = [this](const std::string& name, int look) {
    if (look == 10) fake.processes.erase(name);
  };
  EXPECT_EQ(checkProcessStopWithRetry(kAlert), 0);
  EXPECT_EQ(fake.sleeps, std::vector<unsigned>(9, 1));
}

TEST_F(ChildSupervisionTest, AStopNotSeenFailsAfterTenChecksASecondApart) {
  fake.processes[kAlert] = {4711};
  EXPECT_EQ(checkProcessStopWithRetry(kAlert), 1);
  EXPECT_EQ(fake.looks[kAlert], 10);
  EXPECT_EQ(fake.sleeps, std::vector<unsigned>(10, 1));
}

// --- Command lines ---

TEST_F(ChildSupervisionTest, CommandLinesOfTheCompanions) {
  fake.install_dir = "/elsewhere/";
  EXPECT_EQ(corvane::detect_command_line(), kDetectLine);
  EXPECT_EQ(corvane::alert_command_line("master01.example.com"), kAlertLine);
}

// --- Stopping ---

TEST_F(ChildSupervisionTest, StopProcessByNameTerminatesAndLogsTheSuccessAsAnError) {
  fake.processes[kDetect] = {4711};
  EXPECT_EQ(stopProcessByName(kDetect), 0);
  EXPECT_THAT(fake.terminated, ElementsAre(kDetect));
  EXPECT_THAT(log_lines(), ElementsAre(service(2, "cvanomalydetect service is getting terminated"),
                                       service(16, "process is stopped")));
}

TEST_F(ChildSupervisionTest, StopProcessByNameOfAProcessThatStaysReturns1) {
  fake.processes[kAlert] = {4711};
  fake.survives_terminate = {kAlert};
  EXPECT_EQ(stopProcessByName(kAlert), 1);
  EXPECT_THAT(fake.terminated, ElementsAre(kAlert));
  EXPECT_EQ(fake.sleeps, std::vector<unsigned>(10, 1));
  EXPECT_THAT(log_lines(), ElementsAre(service(2, "cvanomalyalert service is getting terminated"),
                                       service(16, "process is still running")));
}

TEST_F(ChildSupervisionTest, StopForADaemonNotRunningReturns0) {
  EXPECT_EQ(handleChildProc(kAlert, "STOP"), 0);
  EXPECT_THAT(fake.terminated, IsEmpty());
  EXPECT_THAT(log_lines(), ElementsAre(handle(4, "Process Name:[cvanomalyalert], Command:[STOP]"),
                                       handle(2, "Process [cvanomalyalert] is not running")));
}

TEST_F(ChildSupervisionTest, StopForARunningDaemonStopsIt) {
  fake.processes[kDetect] = {4711};
  EXPECT_EQ(handleChildProc(kDetect, "STOP"), 0);
  EXPECT_THAT(log_lines(), ElementsAre(handle(4, "Process Name:[cvanomalydetect], Command:[STOP]"),
                                       handle(4, "UNIX: Stopping process:[cvanomalydetect]"),
                                       service(2, "cvanomalydetect service is getting terminated"),
                                       service(16, "process is stopped")));
}

TEST_F(ChildSupervisionTest, StopForADaemonThatDoesNotVanishIsReported) {
  fake.processes[kDetect] = {4711};
  fake.survives_terminate = {kDetect};
  EXPECT_EQ(handleChildProc(kDetect, "STOP"), 1);
  EXPECT_THAT(log_lines(),
              ElementsAre(handle(4, "Process Name:[cvanomalydetect], Command:[STOP]"),
                          handle(4, "UNIX: Stopping process:[cvanomalydetect]"),
                          service(2, "cvanomalydetect service is getting terminated"),
                          service(16, "process is still running"),
                          handle(8, "Not able to stop [cvanomalydetect], still running")));
}

// --- Names and commands ---

TEST_F(ChildSupervisionTest, AnUnknownNameIsRefused) {
  for (const std::string name : {"cvanomalymgmt", "CVAnomalyDetect", ""}) {
    fake.log.clear();
    EXPECT_EQ(handleChildProc(name.c_str(), "START"), 1);
    EXPECT_THAT(log_lines(), ElementsAre(handle(4, "Process Name:[" + name + "], Command:[START]"),
                                         handle(16, "Unknown child process:[" + name + "]")));
  }
  EXPECT_THAT(fake.looks, IsEmpty());
}

TEST_F(ChildSupervisionTest, CommandStartInLowerCaseIsUnknown) {
  EXPECT_EQ(handleChildProc(kDetect, "start"), 1);
  EXPECT_THAT(log_lines(), ElementsAre(handle(4, "Process Name:[cvanomalydetect], Command:[start]"),
                                       handle(16,
                                              "Unknown command [start] for child process "
                                              "[cvanomalydetect]")));
}

// --- Starting ---

TEST_F(ChildSupervisionTest, StartForADaemonAlreadyRunningStartsNothing) {
  fake.processes[kDetect] = {4711};
  EXPECT_EQ(handleChildProc(kDetect, "START"), 0);
  EXPECT_THAT(log_lines(), ElementsAre(handle(4, "Process Name:[cvanomalydetect], Command:[START]"),
                                       handle(2, "Process [cvanomalydetect] already running")));
  EXPECT_EQ(report_of(1), "") << "a process was forked";
}

TEST_F(ChildSupervisionTest, StartLaunchesTheDetectionDaemonDetachedThroughBash) {
  EXPECT_EQ(in_child([this] {
              put_bash_first();
              appears_at(kDetect, 2);
              EXPECT_EQ(handleChildProc(kDetect, "START"), 0);
              wait_for_descendants();
              EXPECT_THAT(log_lines(),
                          ElementsAre(handle(4, "Process Name:[cvanomalydetect], Command:[START]"),
                                      handle(4, "UNIX: Starting process:[cvanomalydetect]"),
                                      service(2, "cvanomalydetect service is getting started"),
                                      service(2, "Immediate child is completed with 0")));
              EXPECT_THAT(fake.sleeps, IsEmpty());
            }),
            kChildSucceeded);
  EXPECT_EQ(report_of(1), report_text({}, "_exit 0"));
  EXPECT_EQ(report_of(2), report_text({start(2, std::string("CMD: [") + kDetectLine + "]\n")},
                                      std::string("exec bash bash -c ") + kDetectLine));
  EXPECT_EQ(read_file(scratch_("called")),
            std::string("-c\n") + kDetectLine + "\nopen:\nleader:yes\n");
}

TEST_F(ChildSupervisionTest, StartLaunchesTheAlertDaemonWithTheMasterServersName) {
  EXPECT_EQ(in_child([this] {
              put_bash_first();
              startProcessByName(kAlert);
              wait_for_descendants();
              EXPECT_THAT(log_lines(),
                          ElementsAre(service(2, "cvanomalyalert service is getting started"),
                                      service(2, "Immediate child is completed with 0")));
            }),
            kChildSucceeded);
  EXPECT_EQ(report_of(2), report_text({start(2, std::string("CMD: [") + kAlertLine + "]\n")},
                                      std::string("exec bash bash -c ") + kAlertLine));
  EXPECT_EQ(read_file(scratch_("called")),
            std::string("-c\n") + kAlertLine + "\nopen:\nleader:yes\n");
}

TEST_F(ChildSupervisionTest, ADaemonThatExitsWithinASecondMayStillBeReportedAsStarted) {
  EXPECT_EQ(in_child([this] {
              put_bash_first();
              fake.on_look = [this](const std::string& name, int look) {
                fake.processes[name].clear();
                if (look == 2 && process_calls().depth == 0) fake.processes[name] = {4711};
              };
              EXPECT_EQ(handleChildProc(kDetect, "START"), 0);
              EXPECT_EQ(checkProcess(kDetect), 0u);
            }),
            kChildSucceeded);
}

TEST_F(ChildSupervisionTest, ADaemonThatDoesNotAppearIsReported) {
  EXPECT_EQ(in_child([this] {
              put_bash_first();
              EXPECT_EQ(handleChildProc(kDetect, "START"), 1);
              EXPECT_EQ(log_lines().back(), handle(8, "Not able to start [cvanomalydetect]"));
              EXPECT_EQ(fake.sleeps, std::vector<unsigned>(10, 1));
            }),
            kChildSucceeded);
}

TEST_F(ChildSupervisionTest, WithoutAMasterServerStartForEitherDaemonStartsNothing) {
  fake.servers.reset();
  for (const std::string name : {kDetect, kAlert}) {
    fake.log.clear();
    fake.sleeps.clear();
    EXPECT_EQ(handleChildProc(name.c_str(), "START"), 1);
    EXPECT_THAT(log_lines(),
                ElementsAre(handle(4, "Process Name:[" + name + "], Command:[START]"),
                            handle(4, "UNIX: Starting process:[" + name + "]"), kNoMaster,
                            service(16, "fetching master name failed, it is empty"),
                            handle(8, "Not able to start [" + name + "]")));
    EXPECT_EQ(fake.sleeps, std::vector<unsigned>(10, 1));
  }
  EXPECT_EQ(report_of(1), "") << "a process was forked";
}

TEST_F(ChildSupervisionTest, StartProcessByNameOfNeitherDaemonIsLogged) {
  startProcessByName("cvanomalymgmt");
  EXPECT_THAT(log_lines(),
              ElementsAre(service(2, "cvanomalymgmt service is getting started"),
                          service(16, "cvanomalymgmt service is neither detect nor alert")));
  EXPECT_EQ(report_of(1), "") << "a process was forked";
}

TEST_F(ChildSupervisionTest, AFirstForkThatFailsEndsTheCallingProcessWithStatus1) {
  EXPECT_EQ(in_child([] {
              process_calls().fork_fails_in = 1;
              startProcessByName(kDetect);
            }),
            1);
}

TEST_F(ChildSupervisionTest, ASecondForkThatFailsEndsTheIntermediateChildWithStatus1) {
  EXPECT_EQ(in_child([] {
              process_calls().fork_fails_in = 2;
              startProcessByName(kDetect);
              EXPECT_THAT(log_lines(),
                          ElementsAre(service(2, "cvanomalydetect service is getting started"),
                                      service(2, "Immediate child is completed with 1")));
            }),
            kChildSucceeded);
  EXPECT_EQ(report_of(1), report_text({}, "_exit 1"));
}

TEST_F(ChildSupervisionTest, ALauncherThatFindsTheDaemonRunningLeaves) {
  EXPECT_EQ(in_child([this] {
              fake.processes[kAlert] = {4711};
              testing::internal::CaptureStdout();
              startProcessByName(kAlert);
              wait_for_descendants();
              EXPECT_EQ(testing::internal::GetCapturedStdout(),
                        "cvanomalyalert service is already running\n");
            }),
            kChildSucceeded);
  EXPECT_EQ(report_of(2),
            report_text({start(2, "cvanomalyalert service is already running")}, "_exit 0"));
}

TEST_F(ChildSupervisionTest, ALauncherThatCannotDetachEndsWithErrno) {
  EXPECT_EQ(in_child([] {
              process_calls().setsid_error = 13;
              startProcessByName(kDetect);
            }),
            kChildSucceeded);
  EXPECT_EQ(report_of(2), report_text({start(2, std::string("CMD: [") + kDetectLine + "]\n"),
                                       service(16, "Could not set the SID. Error:[13]")},
                                      "_exit 13"));
}

TEST_F(ChildSupervisionTest, ALauncherThatCannotExecuteBashCarriesOnAsASecondService) {
  EXPECT_EQ(in_child([this] {
              setenv("PATH", scratch_("reports").c_str(), 1);
              const int result = handleChildProc(kDetect, "START");
              // Two processes come by here: this one, and the launcher.
              if (process_calls().depth == 2) _exit(result);
              EXPECT_EQ(result, 1);
            }),
            kChildSucceeded);
  EXPECT_EQ(report_of(2), report_text({start(2, std::string("CMD: [") + kDetectLine + "]\n"),
                                       handle(8, "Not able to start [cvanomalydetect]")},
                                      "_exit 1"));
}

}  // namespace
