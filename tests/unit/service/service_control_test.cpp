#include "service/service_control.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "service/signals.h"
#include "tests/unit/service/daemon_world.h"

namespace {

using corvane::fake::log_lines;
using corvane::test::companions_stopped;
using corvane::test::joined;
using corvane::test::kAlert;
using corvane::test::kChildSucceeded;
using corvane::test::kDetect;
using corvane::test::kDisabled;
using corvane::test::kService;
using corvane::test::process_calls;
using corvane::test::read_file;
using corvane::test::report_of;
using corvane::test::report_text;
using corvane::test::service;
using corvane::test::start_idle_child;
using corvane::test::status_of;
using corvane::test::stopped;
using corvane::test::survived;
using corvane::test::wait_for_descendants;
using corvane::test::write_file;
using std::filesystem::exists;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// How long the parent of a new daemon waits for its count.
constexpr std::chrono::seconds kGivesUpAfter{2};

class ServiceControlTest : public DaemonWorld {
 protected:
  // In the new daemon: waits, within reason, until its parent has called parent_has_left.
  void await_parent_has_left() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!exists(scratch_("parent_has_left")) && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    write_file(scratch_("waited"), exists(scratch_("parent_has_left")) ? "yes" : "no");
  }

  void parent_has_left() { write_file(scratch_("parent_has_left"), ""); }
};

// --- Start: the parent ---

TEST_F(ServiceControlTest, StartThatCannotForkIsLogged) {
  process_calls().fork_fails_in = 1;
  EXPECT_EQ(StartSvc("not used"), 1);
  EXPECT_THAT(log_lines(), ElementsAre(service(16, "fork() failed. Error:[-1]")));
}

TEST_F(ServiceControlTest, StartChecksAtOnceAndReportsTheService) {
  configure(kDisabled);
  EXPECT_EQ(in_child([this] {
              fake.processes[kService] = {4711};
              testing::internal::CaptureStdout();
              EXPECT_EQ(StartSvc("not used"), 0);
              EXPECT_THAT(fake.sleeps, IsEmpty());
              EXPECT_EQ(fake.looks[kService], 1);
              wait_for_descendants();
              EXPECT_EQ(testing::internal::GetCapturedStdout(),
                        "Successfully started the mgmt service\n");
              EXPECT_THAT(log_lines(), IsEmpty());
            }),
            kChildSucceeded);
}

TEST_F(ServiceControlTest, StartChecksOnceASecond) {
  configure(kDisabled);
  EXPECT_EQ(in_child([this] {
              fake.on_look = [this](const std::string& name, int look) {
                if (look == 10) fake.processes[name] = {4711};
              };
              testing::internal::CaptureStdout();
              EXPECT_EQ(StartSvc("not used"), 0);
              EXPECT_EQ(testing::internal::GetCapturedStdout(),
                        "Successfully started the mgmt service\n");
              EXPECT_EQ(fake.sleeps, std::vector<unsigned>(9, 1));
            }),
            kChildSucceeded);
}

TEST_F(ServiceControlTest, StartGivesUpAfterTenChecks) {
  configure(kDisabled);
  EXPECT_EQ(in_child([this] {
              testing::internal::CaptureStdout();
              EXPECT_EQ(StartSvc("not used"), 1);
              EXPECT_EQ(fake.looks[kService], 10);
              EXPECT_EQ(fake.sleeps, std::vector<unsigned>(10, 1));
              wait_for_descendants();
              EXPECT_EQ(testing::internal::GetCapturedStdout(),
                        "cvanomalymgmt service didn't start successfully");
              EXPECT_THAT(log_lines(), ElementsAre(service(16,
                                                           "cvanomalymgmt service didn't start "
                                                           "successfully")));
            }),
            kChildSucceeded);
}

TEST_F(ServiceControlTest, TheParentStaysUntilItsChildHasCounted) {
  configure(kDisabled);
  EXPECT_EQ(in_child([this] {
              fake.processes[kService] = {4711};
              fake.on_look = [this](const std::string& name, int) {
                if (name != kService || process_calls().depth != 1) return;
                std::this_thread::sleep_for(std::chrono::milliseconds(100));  // a busy machine
                write_file(scratch_("counted"), "");
              };
              testing::internal::CaptureStdout();
              EXPECT_EQ(StartSvc("not used"), 0);
              EXPECT_TRUE(exists(scratch_("counted")));
              wait_for_descendants();
              testing::internal::GetCapturedStdout();
            }),
            kChildSucceeded);
}

TEST_F(ServiceControlTest, TheParentLeavesOnceItsChildHasCounted) {
  configure(kDisabled);
  EXPECT_EQ(in_child([this] {
              fake.processes[kService] = {4711};
              fake.on_sleep = [this](unsigned) {
                if (process_calls().depth == 1) await_parent_has_left();
              };
              testing::internal::CaptureStdout();
              const auto begin = std::chrono::steady_clock::now();
              EXPECT_EQ(StartSvc("not used"), 0);
              EXPECT_LT(std::chrono::steady_clock::now() - begin, kGivesUpAfter);
              parent_has_left();
              wait_for_descendants();
              testing::internal::GetCapturedStdout();
            }),
            kChildSucceeded);
}

TEST_F(ServiceControlTest, TheParentDoesNotWaitForeverForItsChild) {
  configure(kDisabled);
  EXPECT_EQ(in_child([this] {
              fake.processes[kService] = {4711};
              fake.on_look = [this](const std::string& name, int) {
                if (name == kService && process_calls().depth == 1) await_parent_has_left();
              };
              testing::internal::CaptureStdout();
              EXPECT_EQ(StartSvc("not used"), 0);
              parent_has_left();
              wait_for_descendants();
              testing::internal::GetCapturedStdout();
            }),
            kChildSucceeded);
  EXPECT_EQ(read_file(scratch_("waited")), "yes") << "the parent left only after its child";
}

TEST_F(ServiceControlTest, AChildThatDiesBeforeItHasCountedDoesNotHoldItsParentUp) {
  EXPECT_EQ(in_child([this] {
              fake.processes[kService] = {4711};
              fake.on_look = [](const std::string&, int) {
                if (process_calls().depth == 1) raise(SIGKILL);
              };
              testing::internal::CaptureStdout();
              const auto before = std::chrono::steady_clock::now();
              EXPECT_EQ(StartSvc("not used"), 0);
              EXPECT_LT(std::chrono::steady_clock::now() - before, kGivesUpAfter);
              testing::internal::GetCapturedStdout();
            }),
            kChildSucceeded);
}

// --- Start: the child ---

TEST_F(ServiceControlTest, AChildThatCountsMoreThanItsParentLeaves) {
  EXPECT_EQ(in_child([this] {
              fake.processes[kService] = {4711, 4712};
              testing::internal::CaptureStdout();
              EXPECT_EQ(StartSvc("not used"), 0);
              wait_for_descendants();
              EXPECT_EQ(without(testing::internal::GetCapturedStdout(),
                                "cvanomalymgmt service is already running\n"),
                        "Successfully started the mgmt service\n");
            }),
            kChildSucceeded);
  EXPECT_EQ(report_of(1),
            report_text({service(2, "cvanomalymgmt service is already running\n")}, "_exit 0"));
}

TEST_F(ServiceControlTest, AChildWithoutALogReturnsTheFailure) {
  EXPECT_EQ(in_child([this] {
              fake.processes[kService] = {4711};
              fake.log_status = -1;
              testing::internal::CaptureStdout();
              testing::internal::CaptureStderr();
              const int result = StartSvc("not used");
              if (process_calls().depth == 1) _exit(result);
              EXPECT_EQ(result, 0);
              wait_for_descendants();
              EXPECT_EQ(
                  without(testing::internal::GetCapturedStdout(), "Failed to setup logging\n"),
                  "Successfully started the mgmt service\n");
              EXPECT_EQ(testing::internal::GetCapturedStderr(),
                        "Failed to setup logging at [/usr/tessel/corvane/logs/cvanomalymgmt]\n");
            }),
            kChildSucceeded);
  EXPECT_EQ(report_of(1), report_text({}, "_exit 1"));
}

TEST_F(ServiceControlTest, AChildWithoutASignalHandlerReturnsTheFailure) {
  EXPECT_EQ(in_child([this] {
              fake.processes[kService] = {4711};
              process_calls().signal_fails_in = 2;
              testing::internal::CaptureStdout();
              const int result = StartSvc("not used");
              if (process_calls().depth == 1) _exit(result);
              wait_for_descendants();
              EXPECT_EQ(without(testing::internal::GetCapturedStdout(),
                                "Failed to setup signal handler\n"),
                        "Successfully started the mgmt service\n");
            }),
            kChildSucceeded);
  EXPECT_EQ(report_of(1),
            report_text({service(16, "Failed to install signal handler for signal SIGTERM"),
                         service(16, "Could not SetupSignalHandler. Error:[1]")},
                        "_exit 1"));
}

TEST_F(ServiceControlTest, AChildThatCannotDetachEndsWithErrno) {
  EXPECT_EQ(in_child([this] {
              fake.processes[kService] = {4711};
              process_calls().setsid_error = 13;
              testing::internal::CaptureStdout();
              EXPECT_EQ(StartSvc("not used"), 0);
              wait_for_descendants();
              testing::internal::GetCapturedStdout();
            }),
            kChildSucceeded);
  EXPECT_EQ(report_of(1),
            report_text({service(16, "Could not set the SID. Error:[13]")}, "exit 13"));
}

TEST_F(ServiceControlTest, TheChildOpensTheLogDetachesAndIsTheDaemon) {
  configure(kDisabled);
  EXPECT_EQ(in_child([this] {
              fake.processes[kService] = {4711};
              // The daemon sleeps when it finds the service disabled.
              fake.on_sleep = [this](unsigned) {
                if (process_calls().depth != 1) return;
                bool detached =
                    getsid(0) == getpid() && fake.daemon_mark == 1 && fake.log_openings.size() == 1;
                for (int d = 0; d <= 2; ++d) detached = detached && fcntl(d, F_GETFD) == -1;
                struct sigaction action;
                sigaction(SIGTERM, nullptr, &action);
                detached = detached && action.sa_handler == &SignalHandler;
                write_file(scratch_("detached"), detached ? "yes" : "no");
              };
              testing::internal::CaptureStdout();
              EXPECT_EQ(StartSvc("not used"), 0);
              wait_for_descendants();
              testing::internal::GetCapturedStdout();
            }),
            kChildSucceeded);
  EXPECT_EQ(read_file(scratch_("detached")), "yes");
  EXPECT_EQ(report_of(1),
            report_text(joined({configured(),
                                {service(16, "cvanomalymgmt service state is disabled. Exiting")},
                                companions_stopped()}),
                        "exit 0"));
}

TEST_F(ServiceControlTest, TheDaemonEndsWithTheResultOfItsBody) {
  configure(kDisabled);
  EXPECT_EQ(in_child([this] {
              fake.processes = {{kService, {4711}}, {kDetect, {4712}}};
              fake.survives_terminate = {kDetect};
              testing::internal::CaptureStdout();
              EXPECT_EQ(StartSvc("not used"), 0);
              wait_for_descendants();
              testing::internal::GetCapturedStdout();
            }),
            kChildSucceeded);
  EXPECT_EQ(report_of(1),
            report_text(joined({configured(),
                                {service(16, "cvanomalymgmt service state is disabled. Exiting")},
                                stopped(kAlert),
                                survived(kDetect)}),
                        "exit 1"));
}

// --- Stop ---

TEST_F(ServiceControlTest, StopAsksTheCompanionsToEndAndFailsWithoutADaemon) {
  EXPECT_EQ(StopSvc("not used"), 1);
  EXPECT_THAT(fake.terminated, ElementsAre(kAlert, kDetect));
  EXPECT_THAT(log_lines(), ElementsAre(service(16, "Could not fetch the pids of the process.")));
}

TEST_F(ServiceControlTest, StopSendsSigtermToEveryDaemonInOrder) {
  std::vector<pid_t> daemons;
  for (int i = 0; i < 2; ++i) daemons.push_back(start_idle_child());
  fake.processes[kService] = {daemons[1], daemons[0]};
  EXPECT_EQ(StopSvc("not used"), 0);
  for (const pid_t daemon : daemons) {
    EXPECT_EQ(status_of(daemon), 128 + SIGTERM);
  }
  EXPECT_THAT(fake.terminated, ElementsAre(kAlert, kDetect));
  EXPECT_THAT(
      log_lines(),
      ElementsAre(service(2, "[" + std::to_string(daemons[1]) + "] pid SIGTERM is getting sent"),
                  service(2, "[" + std::to_string(daemons[0]) + "] pid SIGTERM is getting sent")));
  EXPECT_THAT(fake.sleeps, IsEmpty()) << "it does not wait for the daemon";
}

TEST_F(ServiceControlTest, TerminateEndsAllThreeByName) {
  EXPECT_EQ(TerminateSVC(), 0);
  EXPECT_THAT(fake.terminated, ElementsAre(kAlert, kDetect, kService));
  EXPECT_THAT(log_lines(), IsEmpty());
}

}  // namespace
