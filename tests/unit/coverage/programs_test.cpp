#include "coverage/programs.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>

#include "tests/support/child_process.h"
#include "tests/support/error_of.h"
#include "tests/support/working_directory.h"
#include "tests/unit/coverage/commands_world.h"

namespace corvane::coverage {
namespace {

TEST(IsInServiceUnit, GoesByTheLastPartOfTheControlGroup) {
  EXPECT_TRUE(is_in_service_unit("0::/system.slice/cvanomalymgmt.service\n"));
  EXPECT_TRUE(
      is_in_service_unit("2:cpu:/\n1:name=systemd:/system.slice/cvanomalymgmt.service\n0::/\n"));
  EXPECT_FALSE(is_in_service_unit("0::/system.slice/cvanomaly-heal.service\n"));
  EXPECT_FALSE(is_in_service_unit("0::/system.slice/cvanomalymgmt.service/other\n"));
  EXPECT_FALSE(is_in_service_unit("0::/user.slice/user-0.slice/session-1.scope\n"));
  EXPECT_FALSE(is_in_service_unit(""));
}

class ProgramsTest : public CommandsWorld {
 protected:
  // Whether a process inherits that the signals are blocked.
  static constexpr char kSignals[] = "grep SigBlk /proc/self/status";

  // Does something with the programs in a process of its own, where "bash" and "./cvanomalymgmt"
  // note how they were called. Returns the notes.
  template <typename Work>
  std::string notes_of(Work work) {
    const std::string note = "{ echo \"${0##*/} $*\"; " + std::string(kSignals) + "; } >>" + notes_;
    test::write_file(directory_("bin/empty"), "");
    if (has_shell_) test::write_script(directory_("bin/bash"), note + "\n");
    test::write_script(directory_("cvanomalymgmt"), note + "\n");
    const int status = test::run_in_child([&] {
      setenv("PATH", (directory_("bin") + ":/usr/bin:/bin").c_str(), 1);
      if (!has_shell_) setenv("PATH", directory_("bin").c_str(), 1);
      const test::WorkingDirectory here(directory_());
      const StopSignals signals;
      work(programs_of(options_, signals));
      // Again afterwards, in this process.
      sigset_t blocked;
      sigprocmask(SIG_SETMASK, nullptr, &blocked);
      EXPECT_TRUE(sigismember(&blocked, SIGTERM));
      std::ofstream(notes_, std::ios::app) << "slept " << fake.sleeps.size() << "\n";
    });
    EXPECT_EQ(status, test::kChildSucceeded);
    return text_of("notes");
  }
  // What a program that was started notes.
  static std::string noted(const std::string& call) {
    return call + "\nSigBlk:\t0000000000000000\n";
  }
  // The service ends during the n-th look at it.
  void ends_at(int look) {
    service_runs();
    fake.on_look = [this, look](const std::string& name, int looks) {
      if (name == kManagementProgram && looks == look) fake.processes.erase(name);
    };
  }

  const std::string notes_ = directory_("notes");
  bool has_shell_ = true;
};

TEST_F(ProgramsTest, TellTheTimeAndWhatIsRunning) {
  const StopSignals signals;
  const Programs programs = programs_of(options_, signals);
  fake.now = 1234;
  EXPECT_EQ(programs.now(), 1234);
  EXPECT_FALSE(programs.service_runs());
  EXPECT_FALSE(runs_as_service(getpid()));
  service_runs();
  EXPECT_TRUE(programs.service_runs());
  EXPECT_TRUE(runs_as_service(getpid()));
  EXPECT_FALSE(runs_as_service(getppid()));
  EXPECT_FALSE(programs.is_running(kAlertProgram));
  fake.processes[kAlertProgram] = {getpid()};
  EXPECT_TRUE(programs.is_running(kAlertProgram));
  EXPECT_FALSE(programs.is_running(kDetectionProgram));
}

TEST_F(ProgramsTest, TellWhatIsWanted) {
  const StopSignals signals;
  const Programs programs = programs_of(options_, signals);
  EXPECT_FALSE(programs.is_wanted(kDetectionProgram));
  configure();
  EXPECT_TRUE(programs.is_wanted(kDetectionProgram));
  EXPECT_TRUE(programs.is_wanted(kAlertProgram));
}

TEST_F(ProgramsTest, ACompanionIsStartedAsTheServiceDoes) {
  service_runs();
  fake.on_look = [this](const std::string& name, int look) {
    if (look == 3) fake.processes[name] = {getpid()};
  };
  EXPECT_EQ(notes_of([](const Programs& programs) {
              programs.start(kDetectionProgram);
              test::wait_for_descendants();
            }),
            noted("bash -c /usr/tessel/corvane/bin/cvanomalydetect -database_location "
                  "/usr/tessel/var/global/anomaly_detection/ -database_file_name CV_Anomaly.db "
                  "-eps 2.5 -min_samples 3 -config_file "
                  "/usr/tessel/var/global/anomaly_detection/anomaly_config.conf") +
                "slept 2\n");
}

TEST_F(ProgramsTest, TheProcessThatCannotBecomeACompanionEnds) {
  has_shell_ = false;
  EXPECT_EQ(notes_of([](const Programs& programs) { programs.start(kAlertProgram); }),
            "slept 10\n");
}

TEST_F(ProgramsTest, ACompanionIsStoppedLikeAnyProcess) {
  const pid_t companion = test::start_idle_child();
  const pid_t other = test::start_idle_child();
  fake.processes[kAlertProgram] = {companion};
  const StopSignals signals;
  programs_of(options_, signals).stop(kAlertProgram);
  EXPECT_EQ(test::status_of(companion), 128 + SIGTERM);
  EXPECT_EQ(waitpid(other, nullptr, WNOHANG), 0);
  kill(other, SIGKILL);
  test::status_of(other);
}

TEST_F(ProgramsTest, TheServiceIsRestartedWhenItHasEnded) {
  ends_at(15);
  EXPECT_EQ(notes_of([](const Programs& programs) { programs.restart_service(); }),
            noted("cvanomalymgmt -stop") + noted("cvanomalymgmt -start") + "slept 12\n");
}

TEST_F(ProgramsTest, AServiceThatDoesNotEndIsNotStarted) {
  service_runs();
  EXPECT_EQ(notes_of([](const Programs& programs) { programs.restart_service(); }),
            noted("cvanomalymgmt -stop") + "slept 180\n");
}

TEST_F(ProgramsTest, TheServiceIsStarted) {
  EXPECT_EQ(notes_of([](const Programs& programs) { programs.start_service(); }),
            noted("cvanomalymgmt -start") + "slept 0\n");
}

// What this unit started would end with it.
TEST_F(ProgramsTest, InAUnitAnotherOneStartsPrograms) {
  runs_in_a_unit();
  EXPECT_EQ(notes_of([](const Programs& programs) {
              programs.start(kDetectionProgram);
              programs.restart_service();
              programs.start_service();
            }),
            "slept 0\n");
  EXPECT_EQ(requests(), "start cvanomalydetect\nrestart cvanomalymgmt\n");
}

TEST_F(ProgramsTest, ARequestThatCannotBeWrittenIsAnError) {
  runs_in_a_unit();
  std::filesystem::create_directory(options_.own_file(".requests"));
  const StopSignals signals;
  EXPECT_EQ(test::error_of([&] { programs_of(options_, signals).start(kDetectionProgram); }),
            "cannot write " + options_.own_file(".requests"));
}

}  // namespace
}  // namespace corvane::coverage
