#include "coverage/commands.h"

#include <gmock/gmock.h>

#include "companions/common/program_lock.h"
#include "tests/support/error_of.h"
#include "tests/support/in_child.h"
#include "tests/support/ordinary_user.h"
#include "tests/unit/coverage/commands_world.h"

namespace corvane::coverage {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::int64_t kQuarter = 15 * kMinute;

class Look : public CommandsWorld {
 protected:
  int look() const { return run_look(options_); }
  int look_now() {
    options_.at_once = true;
    return run_look(options_);
  }
  // Where a hole was tried in vain, the next attempt is in the future.
  void try_in_vain() {
    gathers_again("exit 1\n");
    look();
    std::filesystem::remove(directory_("asked"));
  }
};

TEST_F(Look, GathersAgainWhatTheServiceDidNotGet) {
  lose_a_quarter();
  finds({{1, kStart + 10, kStart + 20}});
  EXPECT_EQ(look(), 0);
  EXPECT_EQ(asked(), asked_for(kStart - kDay, kStart + kQuarter));
  EXPECT_EQ(count_in("HIST_DATA"), "1");  // the detection is disabled
  EXPECT_EQ(count_in("DATA_TO_PROCESS"), "0");
  EXPECT_THAT(open_holes_.all(), IsEmpty());
  EXPECT_EQ(ledger_of_program_.last_look(), now_);
  EXPECT_EQ(ledger_of_program_.number_of(kHealedAt), now_);
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Look, HasAnEmptyDirectoryOfItsOwn) {
  lose_a_quarter();
  test::write_file(options_.own_file("_Scratch") + "/of_a_look_that_died", "");
  finds({}, "stat -c %a \"$2\" >" + directory_("seen") + "; ls -A \"$2\" >>" + directory_("seen") +
                "\n");
  look();
  EXPECT_EQ(text_of("seen"), "700\n");
  EXPECT_FALSE(std::filesystem::exists(options_.own_file("_Scratch")));
}

TEST_F(Look, NeedsThatDirectory) {
  if (!test::OrdinaryUserFiles::possible()) GTEST_SKIP() << "root cannot step down here";
  test::write_file(options_.own_file(".lock"), "");
  chmod(options_.own_file(".lock").c_str(), 0666);
  chmod(directory_().c_str(), 0555);
  const test::OrdinaryUserFiles here;
  EXPECT_EQ(test::error_of([this] { look(); }),
            "cannot create " + directory_("CV_Anomaly_Coverage_Scratch"));
}

TEST_F(Look, NeedsTheServicesLog) {
  fake.install_dir.reset();
  EXPECT_EQ(test::error_of([this] { look(); }), "the install directory is not known");
}

TEST_F(Look, WaitsForNoneThatIsStillAtWork) {
  lose_a_quarter();
  ProgramLock other(options_.own_file(".lock"));
  ASSERT_TRUE(other.take());
  EXPECT_EQ(look(), 0);
  EXPECT_EQ(ledger_of_program_.last_look(), 0);
  EXPECT_EQ(
      test::error_of([this] { look_now(); }),
      "another cvanomalyheal is running: a look takes minutes, a gather by hand may take hours");
}

TEST_F(Look, AGatherInProgressIsNoHole) {
  pass(kQuarter);
  service_runs();
  std::ofstream(log_) << "2026-01-31T04:15:00.000Z " << getpid()
                      << "d 2 cvanomalymgmt: Capturing data between " << kStart << " & " << now_
                      << " \n";
  look();
  EXPECT_EQ(asked(), "");
  fake.processes.clear();
  look();
  EXPECT_EQ(asked(), asked_for(kStart - kDay, now_));
}

TEST_F(Look, FindsTheBackupsThatAreMissing) {
  pass(kQuarter);
  gather();
  pass(kQuarter);
  lists({std::to_string(kStart + 10) + " " + std::to_string(kStart + 20) + " 1 data_7_b"});
  finds({});
  look();
  EXPECT_EQ(listed(), "-database_location " + options_.own_file("_Scratch") + " -list_jobs " +
                          std::to_string(kStart - kHour) + " " + std::to_string(kStart + kQuarter) +
                          "\n");
  EXPECT_EQ(ledger_of_program_.text_of(kAuditReason), "");
  EXPECT_EQ(ledger_of_program_.number_of(kAuditedAt), now_);
  EXPECT_EQ(asked(), asked_for(kStart + 10 - kHour, kStart + 20 + kClockSkew));
  MissingBackups missing(ledger_of_program_);
  ASSERT_EQ(missing.all().size(), 1U);
  EXPECT_EQ(missing.all()[0].unique_key, "data_7_b");
}

TEST_F(Look, CannotFindThemWithoutAList) {
  pass(kQuarter);
  gather();
  lists({}, "!the master server is not known");
  EXPECT_EQ(look(), 0);
  EXPECT_EQ(ledger_of_program_.text_of(kAuditReason), "the master server is not known");
}

TEST_F(Look, EndsWhenItIsAskedTo) {
  lose_a_quarter();
  const StopSignals blocked;
  raise(SIGTERM);
  EXPECT_EQ(look(), 0);
  EXPECT_EQ(asked() + listed(), "");
  ASSERT_EQ(open_holes_.all().size(), 1U);
  EXPECT_EQ(open_holes_.all()[0].range, (TimeRange{kStart, kStart + kQuarter}));
}

TEST_F(Look, EndsWhileItGathers) {
  lose_a_quarter();
  gathers_again("kill -TERM $PPID; exec sleep 60\n");
  EXPECT_EQ(look(), 0);
  ASSERT_EQ(open_holes_.all().size(), 1U);
  EXPECT_EQ(open_holes_.all()[0].attempts, 0);
}

TEST_F(Look, WaitsForTheNextAttempt) {
  lose_a_quarter();
  try_in_vain();
  ASSERT_EQ(open_holes_.all().size(), 1U);
  EXPECT_EQ(open_holes_.all()[0].next_try, now_ + 5 * kMinute);
  look();
  EXPECT_EQ(asked(), "");
}

TEST_F(Look, SomebodyMayHaveItTriedAtOnce) {
  lose_a_quarter();
  try_in_vain();
  for (const char* companion : {kDetectionProgram, kAlertProgram}) {
    ledger_of_program_.set_number(std::string(companion) + "_starts", 3);
    ledger_of_program_.set_number(std::string(companion) + "_last_start", now_);
  }
  EXPECT_EQ(look(), 0);
  EXPECT_EQ(ledger_of_program_.number_of("cvanomalydetect_starts"), 3);
  EXPECT_EQ(look_now(), 0);
  EXPECT_EQ(asked(), asked_for(kStart - kDay, kStart + kQuarter));
  EXPECT_EQ(ledger_of_program_.number_of("cvanomalydetect_starts"), 0);
  EXPECT_EQ(ledger_of_program_.number_of("cvanomalyalert_starts"), 0);
}

TEST_F(Look, HealsNothingWithoutHealing) {
  configure("HEAL=0\n");
  service_runs();
  runs_in_a_unit();
  lose_a_quarter();
  EXPECT_EQ(look(), 0);
  EXPECT_EQ(look(), 0);
  EXPECT_EQ(asked(), "");
  EXPECT_EQ(requests(), "");
  EXPECT_EQ(open_holes_.all().size(), 1U);
  EXPECT_EQ(ledger_of_program_.last_look(), now_);
  EXPECT_EQ(test::error_of([this] { look_now(); }),
            "nothing is healed: HEAL is not 1 in the configuration file");
}

TEST_F(Look, PutsWhatWasMissingWhereTheDetectionLooks) {
  configure();
  lose_a_quarter();
  finds({{1, kStart + 10, kStart + 20}});
  look();
  EXPECT_EQ(count_in("HIST_DATA"), "0");
  EXPECT_EQ(count_in("DATA_TO_PROCESS"), "1");
}

TEST_F(Look, AddsNothingThatIsPurged) {
  configure("", "[DATABASE_SETTINGS]\nPURGE_DATA_INTERVAL_IN_MONTHS=1\n");
  lose_a_quarter();
  finds({{1, kStart - 40 * kDay, kStart + 20}, {2, kStart - 20 * kDay, kStart + 20}});
  look();
  EXPECT_EQ(count_in("DATA_TO_PROCESS"), "1");
}

TEST_F(Look, HasAbsentCompanionsStarted) {
  configure();
  service_runs();
  runs_in_a_unit();
  look();
  EXPECT_EQ(requests(), "");
  look();
  EXPECT_EQ(requests(), "start cvanomalydetect\nstart cvanomalyalert\n");
}

TEST_F(Look, HasAServiceRestartedThatGathersInTheFuture) {
  service_runs();
  runs_in_a_unit();
  test::write_file(options_.config_path(),
                   "[DATA_GATHER_SETTINGS]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=60\n");
  pass(0);
  marker_ = now_ + 60;
  mark();
  look();
  EXPECT_EQ(requests(), "");
  const auto look_in_the_past = [this] {
    marker_ = now_ + kDay;
    mark();
    look();
    look();  // the restart is over
  };
  look_in_the_past();
  EXPECT_EQ(requests(), "restart cvanomalymgmt\n");
  pass(65 * kMinute - 1);
  look_in_the_past();
  EXPECT_EQ(requests(), "restart cvanomalymgmt\n");
  pass(1);
  look_in_the_past();
  EXPECT_EQ(requests(), "restart cvanomalymgmt\nrestart cvanomalymgmt\n");
}

TEST_F(Look, WithoutADatabaseThereIsNothingToAddTo) {
  service_.reset();
  for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(database_ + suffix);
  EXPECT_EQ(look(), 0);
  EXPECT_FALSE(std::filesystem::exists(database_));
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Look, GathersAlsoWhenItCannotLookAfterThePrograms) {
  configure();
  service_runs();
  runs_in_a_unit();
  lose_a_quarter();
  finds({});
  std::filesystem::create_directory(options_.own_file(".requests"));
  look();
  std::filesystem::remove(directory_("asked"));
  lose_a_quarter();
  EXPECT_EQ(look(), 0);
  EXPECT_THAT(errors(), ElementsAre("Cannot look after the programs: cannot write " +
                                    directory_("CV_Anomaly_Coverage.requests")));
  EXPECT_NE(asked(), "");
}

class GatherByHand : public CommandsWorld {
 protected:
  void SetUp() override {
    CommandsWorld::SetUp();
    pass(kDay);
    options_.range = {kStart, kStart + kHour};
  }
  std::string printed() const {
    ::testing::internal::CaptureStdout();
    const int status = coverage::gather_by_hand(options_);
    return ::testing::internal::GetCapturedStdout() + "status " + std::to_string(status);
  }
};

TEST_F(GatherByHand, SaysHowManyWereMissing) {
  finds({{1, kStart + 10, kStart + 20}, {2, kStart + 11, kStart + 20}});
  EXPECT_EQ(printed(), "2 backups were missing and added.\nstatus 0");
  EXPECT_EQ(asked(), asked_for(kStart - kDay, kStart + kHour));
  EXPECT_EQ(count_in("HIST_DATA"), "2");
  EXPECT_EQ(printed(), "0 backups were missing and added.\nstatus 0");
  finds({{3, kStart + 12, kStart + 20}});
  EXPECT_EQ(printed(), "1 backup was missing and added.\nstatus 0");
}

TEST_F(GatherByHand, WorksAlsoWithoutHealing) {
  configure("HEAL=0\n");
  finds({{1, kStart + 10, kStart + 20}});
  EXPECT_EQ(printed(), "1 backup was missing and added.\nstatus 0");
  EXPECT_EQ(count_in("DATA_TO_PROCESS"), "1");
}

TEST_F(GatherByHand, NeedsAConfigurationThatCanBeRead) {
  test::write_file(options_.config_path(), "a line without an equals sign\n");
  EXPECT_EQ(test::error_of([this] { coverage::gather_by_hand(options_); }),
            "the configuration file " + options_.config_path() + " is malformed or cannot be read");
  EXPECT_EQ(asked(), "");
}

TEST_F(GatherByHand, IsNotRunBesideALook) {
  ProgramLock other(options_.own_file(".lock"));
  ASSERT_TRUE(other.take());
  EXPECT_EQ(
      test::error_of([this] { coverage::gather_by_hand(options_); }),
      "another cvanomalyheal is running: a look takes minutes, a gather by hand may take hours");
}

TEST_F(GatherByHand, EndsWhenItIsAskedTo) {
  gathers_again("kill -TERM $PPID; exec sleep 60\n");
  EXPECT_EQ(test::error_of([this] { coverage::gather_by_hand(options_); }), "it was interrupted");
}

class RunCompanion : public CommandsWorld {
 protected:
  void SetUp() override {
    CommandsWorld::SetUp();
    configure();
    service_runs();
    options_.companion = kDetectionProgram;
    test::write_file(directory_("bin/empty"), "");
  }
  // What bash, which would begin here, was told to do; its status is 7.
  std::string begun(const std::string& script = "printf '%s\\n' \"$@\" >>") {
    test::write_script(directory_("bin/bash"), script + directory_("begun") + "\nexit 7\n");
    return run();
  }
  std::string run() {
    const int status = test::in_child([this] {
      setenv("PATH", (directory_("bin") + ":/usr/bin:/bin").c_str(), 1);
      return run_companion(options_);
    });
    return text_of("begun") + "status " + std::to_string(status);
  }
};

TEST_F(RunCompanion, BecomesTheDetection) {
  EXPECT_EQ(begun(),
            "-c\n/usr/tessel/corvane/bin/cvanomalydetect -database_location "
            "/usr/tessel/var/global/anomaly_detection/ -database_file_name CV_Anomaly.db -eps 2.5 "
            "-min_samples 3 -config_file "
            "/usr/tessel/var/global/anomaly_detection/anomaly_config.conf\nstatus 7");
}

TEST_F(RunCompanion, BecomesTheAlerts) {
  options_.companion = kAlertProgram;
  EXPECT_EQ(begun(),
            "-c\n/usr/tessel/corvane/bin/cvanomalyalert -database_location "
            "/usr/tessel/var/global/anomaly_detection/ -database_file_name CV_Anomaly.db -master "
            "master01.example.com\nstatus 7");
}

TEST_F(RunCompanion, TheAlertsNeedAMasterServer) {
  options_.companion = kAlertProgram;
  fake.master_config_result = -1;
  EXPECT_EQ(test::error_of([this] { run_companion(options_); }), "the master server is not known");
}

TEST_F(RunCompanion, IsTooLate) {
  fake.processes.clear();
  EXPECT_EQ(begun(), "status 0");  // the service was stopped
  service_runs();
  fake.processes[kDetectionProgram] = {getpid()};
  EXPECT_EQ(begun(), "status 0");  // it is running
  fake.processes.erase(kDetectionProgram);
  test::write_file(options_.config_path(),
                   "[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_DETECTION_SERVICE=1\n");
  EXPECT_EQ(begun(), "status 0");  // it was switched off
}

TEST_F(RunCompanion, NeedsAShell) {
  const int status = test::in_child([this] {
    setenv("PATH", directory_("bin").c_str(), 1);
    EXPECT_EQ(test::error_of([this] { run_companion(options_); }),
              "bash: No such file or directory");
    return 0;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace corvane::coverage
