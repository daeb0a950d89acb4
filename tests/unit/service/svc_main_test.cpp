#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "service/service_control.h"
#include "service/signals.h"
#include "tests/unit/service/daemon_world.h"

namespace {

using corvane::fake::log_lines;
using corvane::fake::LogLine;
using corvane::test::companions_stopped;
using corvane::test::handle;
using corvane::test::joined;
using corvane::test::kAlert;
using corvane::test::kChildSucceeded;
using corvane::test::kDetect;
using corvane::test::kDisabled;
using corvane::test::Log;
using corvane::test::service;
using corvane::test::stopped;
using corvane::test::survived;
using corvane::test::write_file;
using std::filesystem::exists;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

class SvcMainTest : public DaemonWorld {
 protected:
  // Expects the body to log this between its configuration and the end of the companions.
  void expect_ends_after(const Log& log) {
    EXPECT_EQ(SVC_MAIN(), 0);
    EXPECT_THAT(log_lines(), ElementsAreArray(joined({configured(), log, companions_stopped()})));
    EXPECT_THAT(fake.terminated, ElementsAre(kAlert, kDetect));
  }
};

TEST_F(SvcMainTest, AMissingDatabaseDirectoryIsMade) {
  configure(kDisabled);
  std::filesystem::remove_all(database_directory());
  write_file(scratch_("var/global/anomaly_config.conf"), "");
  fake.host_name = "media01.example.com";
  testing::internal::CaptureStdout();
  EXPECT_EQ(SVC_MAIN(), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\nDatabase directory " + database_directory() + " does not exit. Will create it.\n");
  EXPECT_TRUE(std::filesystem::is_directory(database_directory()));
  EXPECT_EQ(log_lines().front(), service(2, "Database directory:[" + database_directory() +
                                                "] does not exist. Will create it"));
  EXPECT_EQ(fake.daemon_mark, 1);
}

TEST_F(SvcMainTest, WithoutTheParentNoDatabaseDirectoryIsMade) {
  std::filesystem::remove_all(scratch_("var"));
  testing::internal::CaptureStdout();
  EXPECT_EQ(SVC_MAIN(), 0);
  testing::internal::GetCapturedStdout();
  EXPECT_FALSE(exists(database_directory()));
  EXPECT_THAT(
      log_lines(),
      ElementsAreArray(joined(
          {{service(2, "Database directory:[" + database_directory() +
                           "] does not exist. Will create it")},
           configured(),
           {service(2, "\nDatabase directory: " + database_directory() + " does not exit.\n"),
            service(16, "Failed to create database object"),
            service(16, "Exception occured while initialising database"),
            service(16, "Error occurred while gathering data")},
           companions_stopped()})));
}

TEST_F(SvcMainTest, AnUnknownInstallDirectoryIsAnEmptyDatabaseDirectory) {
  const LogLine unknown = service(16, "getCVInstallDir() failed");
  const LogLine no_location{16, "getConfigFilePath", "Failed to get DB location"};
  const LogLine no_config_path = service(8, "Could not determine the path to config file");
  fake.install_dir.reset();
  fake.host_name = "media01.example.com";
  testing::internal::CaptureStdout();
  EXPECT_EQ(SVC_MAIN(), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\nDatabase directory  does not exit. Will create it.\n");
  EXPECT_THAT(
      log_lines(),
      ElementsAreArray(joined(
          {{unknown, service(2, "Database directory:[] does not exist. Will create it"), unknown,
            unknown, no_location, no_config_path, service(2, "m_database_location:[]"),
            service(2, "m_database_name:[CV_Anomaly.db]"), service(2, "m_gather_mode:[FULL]"),
            service(2, "m_data_fetch_interval_in_mins:[15]"), unknown, no_location, no_config_path,
            unknown, unknown, service(2, "\nDatabase directory:  does not exit.\n"),
            service(4, "Running on different anomaly proxy server. Exiting")},
           companions_stopped()})));
}

TEST_F(SvcMainTest, AServiceThatCannotBeConfiguredLeavesTheCompanionsAlone) {
  fake.servers.reset();
  EXPECT_EQ(SVC_MAIN(), 1);
  EXPECT_THAT(log_lines(), ElementsAre(LogLine{16, "getMasterServerName",
                                               "ERR - Call to getMasterServerName() failed.\n"},
                                       service(16, "Failed to get master server name"),
                                       service(16, "Failed to populate config parameters")));
  EXPECT_THAT(fake.terminated, IsEmpty());
}

TEST_F(SvcMainTest, InvalidStateFlagsEndTheDaemon) {
  configure(
      "[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_ANOMALY_DETECTION=1\n"
      "DISABLE_ALERT_SERVICE=2\n");
  expect_ends_after({LogLine{8, "ValidateConfigStateFlags",
                             "Invalid value received for configuration key "
                             "DISABLE_ALERT_SERVICE:[2]"},
                     service(8, "Invalid state flags in config file. Exiting")});
  EXPECT_THAT(fake.sleeps, ElementsAre(2u));
}

TEST_F(SvcMainTest, ADisabledServiceEndsBeforeItsHostIsAsked) {
  configure(kDisabled);
  make_tool("touch " + scratch_("asked") + "\n");
  expect_ends_after({service(16, "cvanomalymgmt service state is disabled. Exiting")});
  EXPECT_THAT(fake.sleeps, ElementsAre(2u));
  EXPECT_FALSE(exists(scratch_("asked")));
}

TEST_F(SvcMainTest, AnotherHostsServiceEndsTheDaemon) {
  make_tool("echo 'ANOMALY_PROXY_SERVER = proxy01.example.com'\n");
  expect_ends_after({service(4, "Running on different anomaly proxy server. Exiting")});
  EXPECT_THAT(fake.sleeps, ElementsAre(4u));
  EXPECT_FALSE(exists(database_directory() + "/CV_Anomaly.db"));
}

TEST_F(SvcMainTest, TheServiceRunsUntilItIsToStop) {
  EXPECT_EQ(
      in_child([this] {
        SetupSignalHandler();
        fake.on_sleep = [](unsigned) { raise(SIGTERM); };
        expect_ends_after({service(2, "Historical gather is not done."),
                           service(4, "Intercepted signal SIGTERM. Will stop the service"),
                           LogLine{4, "isTimeToStop",
                                   "System called for Service ShutDown. Stopping the service"}});
      }),
      kChildSucceeded);
  EXPECT_TRUE(exists(database_directory() + "/CV_Anomaly.db"));
}

TEST_F(SvcMainTest, AnExceptionOfTheServiceIsCaughtAndTheCompanionsAreStopped) {
  std::filesystem::create_directory(database_directory() + "/CV_Anomaly.db");
  expect_ends_after({service(16, "Failed to create database object"),
                     service(16, "Exception occured while initialising database"),
                     service(16, "Error occurred while gathering data")});
}

TEST_F(SvcMainTest, AnAlertDaemonThatStaysIsLoggedAndTheDetectionDaemonsResultCounts) {
  configure(kDisabled);
  fake.processes = {{kAlert, {4711}}, {kDetect, {4712}}};
  fake.survives_terminate = {kAlert};
  EXPECT_EQ(SVC_MAIN(), 0);
  EXPECT_THAT(
      log_lines(),
      ElementsAreArray(joined({configured(),
                               {service(16, "cvanomalymgmt service state is disabled. Exiting")},
                               survived(kAlert),
                               stopped(kDetect)})));
}

TEST_F(SvcMainTest, ADetectionDaemonThatStaysMakesTheResult1) {
  configure(kDisabled);
  fake.processes[kDetect] = {4712};
  fake.survives_terminate = {kDetect};
  EXPECT_EQ(SVC_MAIN(), 1);
  EXPECT_EQ(log_lines().back(), handle(8, "Not able to stop [cvanomalydetect], still running"));
}

}  // namespace
