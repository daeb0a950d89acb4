// Construction, configuration, state flags.
#include "management/management_service.h"

#include <cstdlib>
#include <set>
#include <sstream>

#include "tests/support/child_process.h"
#include "tests/unit/management/service_world.h"

namespace corvane::test {
namespace {

// --- Construction ---

TEST(ManagementServiceFields, OfTheDefaultConstructor) {
  const ManagementService service;
  EXPECT_EQ(service.m_database_location, "");
  EXPECT_EQ(service.m_database_name, "");
  EXPECT_EQ(service.m_gather_mode, "");
  EXPECT_EQ(service.m_config_file_path, "");
  EXPECT_EQ(service.m_data_fetch_interval_in_mins, 0);
  EXPECT_EQ(service.m_purge_interval_in_months, 12);
  EXPECT_EQ(service.m_db, nullptr);
  EXPECT_EQ(service.m_master_server, "");
  EXPECT_EQ(service.m_disable_management, 0);
  EXPECT_EQ(service.m_disable_detection, 1);
  EXPECT_EQ(service.m_disable_alert, 1);
}

TEST(ManagementServiceFields, OfTheConstructorWithFiveArgumentsTakenAsTheyAre) {
  const ManagementService service("location", "name", "LIVE_ONLY", "master", -3);
  EXPECT_EQ(service.m_database_location, "location");
  EXPECT_EQ(service.m_database_name, "name");
  EXPECT_EQ(service.m_gather_mode, "LIVE_ONLY");
  EXPECT_EQ(service.m_config_file_path, "");
  EXPECT_EQ(service.m_data_fetch_interval_in_mins, -3);
  EXPECT_EQ(service.m_purge_interval_in_months, 12);
  EXPECT_EQ(service.m_db, nullptr);
  EXPECT_EQ(service.m_master_server, "master");
  EXPECT_EQ(service.m_disable_management, 0);
  EXPECT_EQ(service.m_disable_detection, 1);
  EXPECT_EQ(service.m_disable_alert, 1);
}

// --- populate_config_params ---

const LogLine kNoFetchInterval{
    16, kProgram, "Failed to get fetch interval value from configuration. Assigning default value"};
const LogLine kNoPurgeInterval{
    16, kProgram, "Failed to get purge interval value from configuration. Assigning default value"};

class Configure : public PlatformFake {
 protected:
  void SetUp() override {
    PlatformFake::SetUp();
    world = std::make_unique<ServiceWorld>();
  }
  void TearDown() override {
    world.reset();
    PlatformFake::TearDown();
  }

  void populate_with_interval(const std::string& value) {
    world->configure("[DATA_GATHER_SETTINGS]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=" + value + "\n");
    fake.log.clear();
    EXPECT_EQ(service.populate_config_params(), 0);
  }

  void populate_with_purge(const std::string& value) {
    world->configure("[DATABASE_SETTINGS]\nPURGE_DATA_INTERVAL_IN_MONTHS=" + value + "\n");
    fake.log.clear();
    EXPECT_EQ(service.populate_config_params(), 0);
  }

  std::unique_ptr<ServiceWorld> world;
  ManagementService service;
};

TEST_F(Configure, WithoutAFileTakesTheDefaultsAndLogsFourFields) {
  EXPECT_EQ(service.populate_config_params(), 0);
  EXPECT_EQ(service.m_database_location, world->location);
  EXPECT_EQ(service.m_database_name, "CV_Anomaly.db");
  EXPECT_EQ(service.m_gather_mode, "FULL");
  EXPECT_EQ(service.m_config_file_path, world->location + "/anomaly_config.conf");
  EXPECT_EQ(service.m_data_fetch_interval_in_mins, 15);
  EXPECT_EQ(service.m_purge_interval_in_months, 12);
  EXPECT_EQ(service.m_master_server, kMaster);
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{progress("m_database_location:[" + world->location + "]"),
                                  progress("m_database_name:[CV_Anomaly.db]"),
                                  progress("m_gather_mode:[FULL]"),
                                  progress("m_data_fetch_interval_in_mins:[15]")}));
}

TEST_F(Configure, FetchIntervalIsNeverBelow15) {
  for (const char* value : {"5", "abc", "14", "0", "-60", "4294967296", "99999999999999999999"}) {
    populate_with_interval(value);
    EXPECT_EQ(service.m_data_fetch_interval_in_mins, 15) << value;
    EXPECT_TRUE(corvane::fake::log_lines(16).empty()) << value;
  }
}

TEST_F(Configure, FetchIntervalFrom15OnIsTakenAsItIs) {
  populate_with_interval("15");
  EXPECT_EQ(service.m_data_fetch_interval_in_mins, 15);
  populate_with_interval("60 minutes");
  EXPECT_EQ(service.m_data_fetch_interval_in_mins, 60);
  EXPECT_EQ(fake.log.back(), progress("m_data_fetch_interval_in_mins:[60]"));
  populate_with_interval("100000000");
  EXPECT_EQ(service.m_data_fetch_interval_in_mins, 100000000);
}

TEST_F(Configure, EmptyFetchIntervalIs15AndAnError) {
  populate_with_interval("");
  EXPECT_EQ(service.m_data_fetch_interval_in_mins, 15);
  EXPECT_EQ(corvane::fake::log_lines(16), (std::vector<LogLine>{kNoFetchInterval}));
}

TEST_F(Configure, PurgeIntervalIsNeverAbove12AndMayBeZeroOrLess) {
  const std::vector<std::pair<const char*, int>> cases{
      {"24", 12}, {"12", 12}, {"6", 6},          {"0", 0},
      {"-5", -5}, {"abc", 0}, {"4294967297", 1}, {"99999999999999999999", -1}};
  for (const auto& [value, expected] : cases) {
    populate_with_purge(value);
    EXPECT_EQ(service.m_purge_interval_in_months, expected) << value;
    EXPECT_TRUE(corvane::fake::log_lines(16).empty()) << value;
  }
}

TEST_F(Configure, EmptyPurgeIntervalIs12AndAnError) {
  populate_with_purge("3");
  populate_with_purge("");
  EXPECT_EQ(service.m_purge_interval_in_months, 12);
  EXPECT_EQ(corvane::fake::log_lines(16), (std::vector<LogLine>{kNoPurgeInterval}));
}

TEST_F(Configure, BothErrorsComeInTheOrderOfReading) {
  world->configure(
      "[DATABASE_SETTINGS]\nPURGE_DATA_INTERVAL_IN_MONTHS=\n"
      "[DATA_GATHER_SETTINGS]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=\n");
  EXPECT_EQ(service.populate_config_params(), 0);
  EXPECT_EQ(corvane::fake::log_lines(16),
            (std::vector<LogLine>{kNoFetchInterval, kNoPurgeInterval}));
}

TEST_F(Configure, BrokenFileCountsAsNoneAtAll) {
  world->configure("[DATA_GATHER_SETTINGS]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=60\nno value here\n");
  EXPECT_EQ(service.populate_config_params(), 0);
  EXPECT_EQ(service.m_data_fetch_interval_in_mins, 15);
  EXPECT_TRUE(corvane::fake::log_lines(16).empty());
}

TEST_F(Configure, WithoutAMasterServerFailsAndKeepsTheRest) {
  fake.master_config_result = -1;
  EXPECT_EQ(service.populate_config_params(), 1);
  EXPECT_EQ(service.m_master_server, "");
  EXPECT_EQ(service.m_database_location, world->location);
  EXPECT_EQ(fake.log, (std::vector<LogLine>{{16, "getMasterServerName",
                                             "ERR - Call to getMasterServerName() failed.\n"},
                                            {16, kProgram, "Failed to get master server name"}}));
}

TEST_F(Configure, WithoutAnInstallDirectoryGoesOnWithEmptyPaths) {
  fake.install_dir.reset();
  EXPECT_EQ(service.populate_config_params(), 0);
  EXPECT_EQ(service.m_database_location, "");
  EXPECT_EQ(service.m_config_file_path, "");
  EXPECT_EQ(service.m_data_fetch_interval_in_mins, 15);
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{{16, kProgram, "getCVInstallDir() failed"},
                                  {16, kProgram, "getCVInstallDir() failed"},
                                  {16, "getConfigFilePath", "Failed to get DB location"},
                                  {8, kProgram, "Could not determine the path to config file"},
                                  progress("m_database_location:[]"),
                                  progress("m_database_name:[CV_Anomaly.db]"),
                                  progress("m_gather_mode:[FULL]"),
                                  progress("m_data_fetch_interval_in_mins:[15]")}));
}

// --- capture_updated_gather_frequency ---

TEST_F(Configure, UpdatedFrequencyIsReadAfreshByTheSameRuleWithoutAnError) {
  EXPECT_EQ(service.populate_config_params(), 0);
  fake.log.clear();
  for (const char* value : {"30", "5", "abc", ""}) {
    world->configure(std::string("[DATA_GATHER_SETTINGS]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=") +
                     value + "\n[DATABASE_SETTINGS]\nPURGE_DATA_INTERVAL_IN_MONTHS=3\n");
    service.capture_updated_gather_frequency();
  }
  EXPECT_EQ(service.m_data_fetch_interval_in_mins, 15);
  EXPECT_EQ(service.m_purge_interval_in_months, 12);  // this one is not read again
  EXPECT_EQ(fake.log, (std::vector<LogLine>{progress("Using gather frequency as 30 mins"),
                                            progress("Using gather frequency as 15 mins"),
                                            progress("Using gather frequency as 15 mins"),
                                            progress("Using gather frequency as 15 mins")}));
}

// --- handle_state_changes ---

class States : public Configure {
 protected:
  // What a change to the three flags asks of the companions, in order.
  std::vector<std::string> asked(const std::string& management, const std::string& detection,
                                 const std::string& alert) {
    world->configure_states(management, detection, alert);
    fake.processes = {{"cvanomalydetect", {11}}, {"cvanomalyalert", {12}}};
    fake.log.clear();
    EXPECT_EQ(world->service.handle_state_changes(), 0);
    std::vector<std::string> commands;
    for (const LogLine& line : log_of("handleChildProc")) {
      if (line.text.starts_with("Process Name:")) commands.push_back(line.text);
    }
    return commands;
  }

  // Back to the flags that a new service has.
  void begin_again() {
    world->service.m_disable_management = 0;
    world->service.m_disable_detection = 1;
    world->service.m_disable_alert = 1;
  }
};

const std::string kStartDetect = "Process Name:[cvanomalydetect], Command:[START]";
const std::string kStartAlert = "Process Name:[cvanomalyalert], Command:[START]";
const std::string kStopDetect = "Process Name:[cvanomalydetect], Command:[STOP]";
const std::string kStopAlert = "Process Name:[cvanomalyalert], Command:[STOP]";

TEST_F(States, BothCompanionsAreStartedDetectionFirst) {
  EXPECT_EQ(asked("0", "0", "0"), (std::vector<std::string>{kStartDetect, kStartAlert}));
}

TEST_F(States, DetectionIsStartedAndAlertStoppedWhenAlertIsDisabled) {
  EXPECT_EQ(asked("0", "0", "1"), (std::vector<std::string>{kStartDetect, kStopAlert}));
  EXPECT_EQ(fake.terminated, (std::vector<std::string>{"cvanomalyalert"}));
}

TEST_F(States, BothAreStoppedAlertFirstWhenDetectionIsDisabled) {
  EXPECT_EQ(asked("0", "1", "0"), (std::vector<std::string>{kStopAlert, kStopDetect}));
  EXPECT_EQ(fake.terminated, (std::vector<std::string>{"cvanomalyalert", "cvanomalydetect"}));
}

TEST_F(States, FirstReadingOfZeroOneOneLeavesTheCompanionsUntouched) {
  EXPECT_TRUE(asked("0", "1", "1").empty());
  EXPECT_TRUE(fake.log.empty());
  EXPECT_TRUE(fake.terminated.empty());
}

TEST_F(States, LaterReadingOfZeroOneOneStopsBoth) {
  asked("0", "0", "0");
  EXPECT_EQ(asked("0", "1", "1"), (std::vector<std::string>{kStopAlert, kStopDetect}));
}

TEST_F(States, BothAreStoppedWheneverManagementIsDisabled) {
  for (const char* detection : {"0", "1"}) {
    for (const char* alert : {"0", "1"}) {
      begin_again();
      EXPECT_EQ(asked("1", detection, alert), (std::vector<std::string>{kStopAlert, kStopDetect}));
      EXPECT_EQ(world->service.m_disable_management, 1);
    }
  }
}

TEST_F(States, ChangeIsStoredAndLoggedFirst) {
  asked("0", "0", "1");
  EXPECT_EQ(world->service.m_disable_management, 0);
  EXPECT_EQ(world->service.m_disable_detection, 0);
  EXPECT_EQ(world->service.m_disable_alert, 1);
  EXPECT_EQ(std::vector<LogLine>(fake.log.begin(), fake.log.begin() + 4),
            (std::vector<LogLine>{progress("Disable Mgmt:[0]"),
                                  progress("Disable Detection:[0]"),
                                  progress("Disable Alert:[1]"),
                                  {4, "handleChildProc", kStartDetect}}));
}

TEST_F(States, SameReadingAgainDoesNothing) {
  asked("0", "0", "0");
  EXPECT_TRUE(asked("0", "0", "0").empty());
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(States, InvalidFlagsAreLoggedAndChangeNothing) {
  asked("0", "0", "0");
  world->configure_states("1", "2", "-1");
  fake.log.clear();
  EXPECT_EQ(world->service.handle_state_changes(), 1);
  EXPECT_EQ(world->service.m_disable_management, 0);
  EXPECT_EQ(world->service.m_disable_detection, 0);
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{
                {8, "ValidateConfigStateFlags",
                 "Invalid value received for configuration key DISABLE_DETECTION_SERVICE:[2]"},
                {8, "ValidateConfigStateFlags",
                 "Invalid value received for configuration key DISABLE_ALERT_SERVICE:[-1]"},
                {8, kProgram,
                 "Invalid state flags in config file. Not changing any current behaviour"}}));
}

TEST_F(States, CompanionThatCannotBeStoppedDoesNotHinderTheOther) {
  fake.survives_terminate = {"cvanomalyalert"};
  EXPECT_EQ(asked("1", "0", "0"), (std::vector<std::string>{kStopAlert, kStopDetect}));
  EXPECT_EQ(fake.terminated, (std::vector<std::string>{"cvanomalyalert", "cvanomalydetect"}));
}

TEST_F(States, StartedCompanionsAreLaunchedThroughBash) {
  const std::string bin = world->scratch("bash-instead");
  const std::string started = world->scratch("started");
  write_script(bin + "/bash", "echo \"$1 $2\" >> '" + started + "'\n");
  world->configure_states("0", "0", "0");
  EXPECT_EQ(run_in_child([&] {
              setenv("PATH", bin.c_str(), 1);  // nothing but the stand-in can be started
              EXPECT_EQ(world->service.handle_state_changes(), 0);
              wait_for_descendants();
              // The process table never shows them, so that each is looked for ten times.
              EXPECT_EQ(fake.sleeps, std::vector<unsigned>(20, 1));
              EXPECT_EQ(corvane::fake::log_lines(8),
                        (std::vector<LogLine>{
                            {8, "handleChildProc", "Not able to start [cvanomalydetect]"},
                            {8, "handleChildProc", "Not able to start [cvanomalyalert]"}}));
            }),
            kChildSucceeded);
  std::istringstream lines(read_file(started));
  std::set<std::string> programs;
  for (std::string line; std::getline(lines, line);) {
    programs.insert(line.substr(0, line.find(" -database_location")));
  }
  EXPECT_EQ(programs, (std::set<std::string>{"-c /usr/tessel/corvane/bin/cvanomalydetect",
                                             "-c /usr/tessel/corvane/bin/cvanomalyalert"}));
}

}  // namespace
}  // namespace corvane::test
