#include "service/signals.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <string>
#include <thread>

#include "tests/support/mutex_calls.h"
#include "tests/support/scratch_dir.h"
#include "tests/unit/service/service_world.h"

// The handler logs, and the fake log allocates, which would be wrong in a signal that comes from
// outside. Here the tests themselves raise each signal at a known place. With signals from outside
// and the real log, signals_real_log_test.cpp passes the thread sanitizer with this report on.
extern "C" const char* __tsan_default_options() { return "report_signal_unsafe=0"; }

namespace {

using corvane::fake::log_lines;
using corvane::fake::LogLine;
using corvane::test::call_inside_next_lock;
using corvane::test::fail_next_lock;
using corvane::test::kChildSucceeded;
using corvane::test::process_calls;
using corvane::test::read_file;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const LogLine kSigint{4, "cvanomalymgmt", "Intercepted signal SIGINT. Will stop the service"};
const LogLine kSigterm{4, "cvanomalymgmt", "Intercepted signal SIGTERM. Will stop the service"};
const LogLine kStopping{4, "isTimeToStop",
                        "System called for Service ShutDown. Stopping the service"};

using Handler = void (*)(int);

Handler disposition(int number) {
  struct sigaction action;
  sigaction(number, nullptr, &action);
  return action.sa_handler;
}

bool is_shutdown_initiated() {
  bool initiated = false;
  EXPECT_EQ(IsShutDownInitiated(initiated), 0);
  return initiated;
}

// The flag is the process's and is never taken back: each test has a process of its own.
class SignalsTest : public ServiceWorld {};

TEST_F(SignalsTest, BeforeAnySignalIsTimeToStopReturns0AndLogsNothing) {
  EXPECT_EQ(in_child([] {
              EXPECT_EQ(SetupSignalHandler(), 0);
              EXPECT_EQ(isTimeToStop(), 0);
              EXPECT_FALSE(is_shutdown_initiated());
              EXPECT_THAT(log_lines(), IsEmpty());
            }),
            kChildSucceeded);
}

TEST_F(SignalsTest, SetupInstallsTheHandlerForSigintThenSigterm) {
  EXPECT_EQ(in_child([] {
              const auto hangup = disposition(SIGHUP);  // ignored under nohup
              const auto pipe = disposition(SIGPIPE);
              EXPECT_EQ(SetupSignalHandler(), 0);
              EXPECT_THAT(process_calls().signal_calls, ElementsAre("2 handler", "15 handler"));
              EXPECT_EQ(disposition(SIGINT), &SignalHandler);
              EXPECT_EQ(disposition(SIGTERM), &SignalHandler);
              EXPECT_EQ(disposition(SIGHUP), hangup);
              EXPECT_EQ(disposition(SIGPIPE), pipe);
            }),
            kChildSucceeded);
}

bool is_asleep(pid_t thread) {
  const std::string stat = read_file("/proc/self/task/" + std::to_string(thread) + "/stat");
  return stat.find(") S ") != std::string::npos;
}

TEST_F(SignalsTest, InterruptedCallsAreRestarted) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the thread sanitizer's own signal() does not restart calls";
#endif
  EXPECT_EQ(in_child([] {
              SetupSignalHandler();
              int ends[2];
              ASSERT_EQ(pipe(ends), 0);
              std::thread sender([reader = pthread_self(), id = gettid(), end = ends[1]] {
                while (!is_asleep(id)) std::this_thread::yield();
                pthread_kill(reader, SIGTERM);
                while (!is_shutdown_initiated()) std::this_thread::yield();
                EXPECT_EQ(write(end, "x", 1), 1);
              });
              char read_byte = 0;
              EXPECT_EQ(read(ends[0], &read_byte, 1), 1);
              sender.join();
            }),
            kChildSucceeded);
}

TEST_F(SignalsTest, SigtermRequestsTheShutdown) {
  EXPECT_EQ(in_child([] {
              SetupSignalHandler();
              raise(SIGTERM);
              EXPECT_TRUE(is_shutdown_initiated());
              EXPECT_THAT(log_lines(), ElementsAre(kSigterm));
            }),
            kChildSucceeded);
}

TEST_F(SignalsTest, SigintRequestsTheShutdown) {
  EXPECT_EQ(in_child([] {
              SetupSignalHandler();
              raise(SIGINT);
              EXPECT_TRUE(is_shutdown_initiated());
              EXPECT_THAT(log_lines(), ElementsAre(kSigint));
            }),
            kChildSucceeded);
}

TEST_F(SignalsTest, ASecondSigtermIsLoggedAgainAndTheHandlerIsReinstalledEachTime) {
  EXPECT_EQ(in_child([] {
              SetupSignalHandler();
              for (int i = 0; i < 2; ++i) {
                raise(SIGTERM);
                EXPECT_TRUE(is_shutdown_initiated());
                EXPECT_EQ(disposition(SIGTERM), &SignalHandler);
              }
              EXPECT_THAT(log_lines(), ElementsAre(kSigterm, kSigterm));
              EXPECT_THAT(process_calls().signal_calls,
                          ElementsAre("2 handler", "15 handler", "15 ignore", "15 handler",
                                      "15 ignore", "15 handler"));
            }),
            kChildSucceeded);
}

TEST_F(SignalsTest, AfterOneSignalEveryCallOfIsTimeToStopReturns1AndLogs) {
  EXPECT_EQ(in_child([] {
              SetupSignalHandler();
              raise(SIGTERM);
              for (int i = 0; i < 3; ++i) EXPECT_EQ(isTimeToStop(), 1);
              EXPECT_THAT(log_lines(), ElementsAre(kSigterm, kStopping, kStopping, kStopping));
            }),
            kChildSucceeded);
}

TEST_F(SignalsTest, AnUnknownSignalIsLoggedAndRequestsNothing) {
  EXPECT_EQ(in_child([] {
              SignalHandler(SIGUSR1);
              EXPECT_FALSE(is_shutdown_initiated());
              EXPECT_EQ(disposition(SIGUSR1), &SignalHandler);
              EXPECT_THAT(log_lines(), ElementsAre(LogLine{4, "cvanomalymgmt", "Unknown Signal"}));
            }),
            kChildSucceeded);
}

// --- Signals that cannot be installed ---

TEST_F(SignalsTest, AFailureToInstallSigintLeavesSigtermAtItsDefault) {
  EXPECT_EQ(in_child([] {
              process_calls().signal_fails_in = 1;
              testing::internal::CaptureStdout();
              EXPECT_EQ(SetupSignalHandler(), 1);
              EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
              EXPECT_EQ(disposition(SIGTERM), SIG_DFL);
              EXPECT_THAT(process_calls().signal_calls, ElementsAre("2 handler"));
              EXPECT_THAT(log_lines(),
                          ElementsAre(LogLine{16, "cvanomalymgmt",
                                              "Failed to install signal handler for signal "
                                              "SIGINT"}));
            }),
            kChildSucceeded);
}

TEST_F(SignalsTest, AFailureToInstallSigtermIsAFailure) {
  EXPECT_EQ(in_child([] {
              process_calls().signal_fails_in = 2;
              testing::internal::CaptureStdout();
              EXPECT_EQ(SetupSignalHandler(), 1);
              EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
              EXPECT_EQ(disposition(SIGINT), &SignalHandler);
              EXPECT_EQ(disposition(SIGTERM), SIG_DFL);
              EXPECT_THAT(log_lines(),
                          ElementsAre(LogLine{16, "cvanomalymgmt",
                                              "Failed to install signal handler for signal "
                                              "SIGTERM"}));
            }),
            kChildSucceeded);
}

TEST_F(SignalsTest, CommandLineRunsAreToldOfFailuresOnStandardOutput) {
  EXPECT_FALSE(CLI_RUN);
  EXPECT_EQ(in_child([] {
              CLI_RUN = true;
              testing::internal::CaptureStdout();
              process_calls().signal_fails_in = 1;
              EXPECT_EQ(SetupSignalHandler(), 1);
              process_calls().signal_fails_in = 2;
              EXPECT_EQ(SetupSignalHandler(), 1);
              EXPECT_EQ(testing::internal::GetCapturedStdout(),
                        "Failed to install signal handler for signal SIGINT\n"
                        "Failed to install signal handler for signal SIGTERM\n");
            }),
            kChildSucceeded);
}

TEST_F(SignalsTest, ASignalThatCannotBeIgnoredIsNotProcessed) {
  EXPECT_EQ(in_child([] {
              process_calls().signal_fails_in = 1;
              SignalHandler(SIGTERM);
              EXPECT_FALSE(is_shutdown_initiated());
              EXPECT_THAT(process_calls().signal_calls, ElementsAre("15 ignore"));
              EXPECT_THAT(log_lines(),
                          ElementsAre(LogLine{16, "cvanomalymgmt",
                                              "Failed to set SIG_ERR for signal [15] before "
                                              "processing"}));
            }),
            kChildSucceeded);
}

TEST_F(SignalsTest, AHandlerThatCannotBeReinstalledIsLogged) {
  EXPECT_EQ(in_child([] {
              process_calls().signal_fails_in = 2;
              SignalHandler(SIGINT);
              EXPECT_TRUE(is_shutdown_initiated());
              EXPECT_EQ(disposition(SIGINT), SIG_IGN);
              EXPECT_THAT(log_lines(),
                          ElementsAre(kSigint, LogLine{16, "cvanomalymgmt",
                                                       "Failed to set our handler for signal [2] "
                                                       "after processing"}));
            }),
            kChildSucceeded);
}

// --- A mutex that cannot be taken ---

TEST_F(SignalsTest, ARequestThatCannotLockIsLost) {
  EXPECT_EQ(in_child([] {
              fail_next_lock();
              EXPECT_EQ(SetShutDownInitiated(), 1);
              EXPECT_FALSE(is_shutdown_initiated());
              EXPECT_THAT(log_lines(),
                          ElementsAre(LogLine{16, "SetShutDownInitiated",
                                              "Exception occurred while setting service shutdown "
                                              "status"}));
            }),
            kChildSucceeded);
}

TEST_F(SignalsTest, AReadThatCannotLockLeavesTheReferenceUntouched) {
  const LogLine failed{16, "IsShutDownInitiated",
                       "Exception occurred while fetching service shutdown status"};
  for (const bool before : {true, false}) {
    bool initiated = before;
    fail_next_lock();
    EXPECT_EQ(IsShutDownInitiated(initiated), 1);
    EXPECT_EQ(initiated, before);
  }
  EXPECT_THAT(log_lines(), ElementsAre(failed, failed));
}

TEST_F(SignalsTest, AnUnreadableFlagMeansTheServiceKeepsRunning) {
  EXPECT_EQ(in_child([] {
              EXPECT_EQ(SetShutDownInitiated(), 0);
              fail_next_lock();
              EXPECT_EQ(isTimeToStop(), 0);
              EXPECT_THAT(log_lines(),
                          ElementsAre(LogLine{16, "IsShutDownInitiated",
                                              "Exception occurred while fetching service shutdown "
                                              "status"},
                                      LogLine{4, "isTimeToStop",
                                              "Failed to determine the service shutdown status"}));
              EXPECT_EQ(isTimeToStop(), 1);
            }),
            kChildSucceeded);
}

// --- Signals that meet the flag's own user ---

TEST_F(SignalsTest, AccessToTheFlagLeavesTheSignalMaskAsItWas) {
  EXPECT_EQ(in_child([] {
              for (const bool blocked : {false, true}) {
                sigset_t mask;
                sigemptyset(&mask);
                if (blocked) sigaddset(&mask, SIGTERM);
                sigaddset(&mask, SIGUSR1);
                pthread_sigmask(SIG_SETMASK, &mask, nullptr);
                is_shutdown_initiated();
                SetShutDownInitiated();
                sigset_t after;
                pthread_sigmask(SIG_SETMASK, nullptr, &after);
                EXPECT_EQ(sigismember(&after, SIGTERM), blocked ? 1 : 0);
                EXPECT_EQ(sigismember(&after, SIGINT), 0);
                EXPECT_EQ(sigismember(&after, SIGUSR1), 1);
              }
            }),
            kChildSucceeded);
}

TEST_F(SignalsTest, ASignalInTheMiddleOfReadingTheFlagWaitsUntilItIsRead) {
  EXPECT_EQ(in_child([] {
              SetupSignalHandler();
              for (const int number : {SIGTERM, SIGINT}) {
                static int sent = 0;
                sent = number;
                bool initiated = true;
                call_inside_next_lock([] { raise(sent); });
                EXPECT_EQ(IsShutDownInitiated(initiated), 0);
                EXPECT_EQ(initiated, number == SIGINT) << "the signal has come in between";
              }
              EXPECT_THAT(log_lines(), ElementsAre(kSigterm, kSigint));
            }),
            kChildSucceeded);
}

TEST_F(SignalsTest, ASignalInTheMiddleOfSettingTheFlagWaitsUntilItIsSet) {
  EXPECT_EQ(in_child([] {
              SetupSignalHandler();
              call_inside_next_lock([] { raise(SIGTERM); });
              EXPECT_EQ(SetShutDownInitiated(), 0);
              EXPECT_THAT(log_lines(), ElementsAre(kSigterm));
            }),
            kChildSucceeded);
}

TEST_F(SignalsTest, ABombardmentWithSigtermNeverLocksUpAReaderOfTheFlag) {
  EXPECT_EQ(in_child([] {
              SetupSignalHandler();
              sigevent event{};
              event.sigev_notify = SIGEV_SIGNAL;
              event.sigev_signo = SIGTERM;
              timer_t timer;
              ASSERT_EQ(timer_create(CLOCK_MONOTONIC, &event, &timer), 0);
              const itimerspec every_20_us{{0, 20'000}, {0, 20'000}};
              const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
              timer_settime(timer, 0, &every_20_us, nullptr);
              // No log line, no allocation: only the flag's critical section is to be interrupted.
              bool initiated = false;
              int failures = 0;
              while (std::chrono::steady_clock::now() < end) {
                failures += IsShutDownInitiated(initiated);
              }
              timer_delete(timer);
              EXPECT_EQ(failures, 0);
              EXPECT_TRUE(initiated);
              EXPECT_GT(log_lines().size(), 10u);
              EXPECT_THAT(log_lines(), Each(kSigterm));
            }),
            kChildSucceeded);
}

}  // namespace
