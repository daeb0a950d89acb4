// One pass of the loop.
#include "tests/unit/management/service_world.h"

namespace corvane::test {
namespace {

using corvane::fake::HttpAnswer;
using corvane::fake::HttpRequest;

const LogLine kDisabled{4, kProgram, "Detection has been disabled. Exiting"};

class Pass : public ServiceTest {
 protected:
  bool run() { return service().run_pass(gather(), last_gather); }

  bool gathered() { return world->rows("LAST_BACKUP_DATA_CAPTURE") == "1"; }

  // The marker that ends a gather in "LIVE_ONLY" mode.
  std::string marker() { return world->location + "/terminate_gather"; }

  // Runs a pass and returns what it has written to standard output.
  std::string console(bool expected_result) {
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(run(), expected_result);
    return ::testing::internal::GetCapturedStdout();
  }

  std::time_t last_gather = kNow - 900;
};

TEST_F(Pass, BeforeTheIntervalHasPassedOnlyLooksAtTheStates) {
  last_gather = kNow - 899;
  EXPECT_TRUE(run());
  EXPECT_FALSE(gathered());
  EXPECT_EQ(last_gather, kNow - 899);
  EXPECT_TRUE(fake.log.empty());
  EXPECT_TRUE(fake.sleeps.empty());
}

TEST_F(Pass, AfterTheIntervalGathersAndReadsTheFrequencyAgain) {
  world->configure("[DATA_GATHER_SETTINGS]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=30\n");
  EXPECT_TRUE(run());
  EXPECT_TRUE(gathered());
  EXPECT_EQ(last_gather, kNow);
  EXPECT_EQ(service().m_data_fetch_interval_in_mins, 30);
  EXPECT_EQ(log_of(kProgram),
            (std::vector<LogLine>{progress("Total time taken for live gather 0."),
                                  progress("Cleaning records before 1668896000"),
                                  progress("Using gather frequency as 30 mins")}));
  fake.now += 1799;
  fake.log.clear();
  EXPECT_TRUE(run());
  EXPECT_TRUE(fake.log.empty());
  fake.now += 1;
  EXPECT_TRUE(run());
  EXPECT_FALSE(fake.log.empty());
}

TEST_F(Pass, IntervalRunsFromTheEndOfAGather) {
  fake.handler = [this](const HttpRequest&) {
    fake.now += 100;  // the feedback's is the only request
    return HttpAnswer{.result = 0, .status = 200, .body = "{}"};
  };
  EXPECT_TRUE(run());
  EXPECT_EQ(last_gather, kNow + 100);
}

TEST_F(Pass, IntervalOfZeroGathersEveryTime) {
  last_gather = kNow;
  service().m_data_fetch_interval_in_mins = 0;
  EXPECT_TRUE(run());
  EXPECT_TRUE(gathered());
}

TEST_F(Pass, IntervalIsComputedIn32Bits) {
  last_gather = kNow - 32;
  service().m_data_fetch_interval_in_mins = 71582789;  // times 60: 2^32 + 44
  EXPECT_TRUE(run());
  EXPECT_FALSE(gathered());
  last_gather = kNow - 44;
  EXPECT_TRUE(run());
  EXPECT_TRUE(gathered());
}

TEST_F(Pass, DetectionFlagIsPassedOnBeforeTheGather) {
  fake.processes = {{"cvanomalydetect", {11}}, {"cvanomalyalert", {12}}};
  gather().set_detection_state(1);
  world->configure_states("0", "0", "0");
  EXPECT_TRUE(run());
  EXPECT_FALSE(gather().detection_state);
  world->configure_states("0", "1", "1");
  fake.now += 900;
  EXPECT_TRUE(run());
  EXPECT_TRUE(gather().detection_state);
}

TEST_F(Pass, DisabledManagementStopsTheCompanionsAndEndsTheLoopOnTheSamePass) {
  fake.processes = {{"cvanomalydetect", {11}}, {"cvanomalyalert", {12}}};
  world->configure_states("1", "0", "1");
  EXPECT_FALSE(run());
  EXPECT_EQ(fake.terminated, (std::vector<std::string>{"cvanomalyalert", "cvanomalydetect"}));
  EXPECT_EQ(fake.log.back(), kDisabled);
  EXPECT_FALSE(gathered());
}

TEST_F(Pass, InvalidStatesLeaveTheLoopRunningAndAreLoggedOnEveryPass) {
  world->configure_states("2", "0", "0");
  EXPECT_TRUE(run());
  EXPECT_TRUE(gathered());
  EXPECT_TRUE(run());
  EXPECT_EQ(log_of(kProgram).front(),
            (LogLine{8, kProgram,
                     "Invalid state flags in config file. Not changing any current behaviour"}));
  EXPECT_EQ(corvane::fake::log_lines(8).size(), 4U);
}

// --- Another host ---

TEST_F(Pass, AnotherAnomalyServerEndsTheLoopAfterFourSeconds) {
  world->product_configuration("ANOMALY_PROXY_SERVER = proxy01.example.com");
  EXPECT_FALSE(run());
  EXPECT_EQ(
      fake.log,
      (std::vector<LogLine>{{4, kProgram, "Running on different anomaly proxy server. Exiting"}}));
  EXPECT_EQ(fake.sleeps, std::vector<unsigned>{4});
  EXPECT_FALSE(gathered());
}

TEST_F(Pass, ThisHostAsAnomalyServerGoesOn) {
  world->product_configuration("ANOMALY_PROXY_SERVER = master01.example.com");
  fake.master_host = "another.example.com";
  EXPECT_TRUE(run());
  EXPECT_TRUE(gathered());
}

TEST_F(Pass, WithoutAnAnomalyServerOnlyTheMasterGoesOn) {
  world->product_configuration("OTHER = x");
  EXPECT_TRUE(run());
  EXPECT_TRUE(gathered());
  fake.master_host = "another.example.com";
  fake.now += 900;
  EXPECT_FALSE(run());
}

TEST_F(Pass, AnomalyServerIsAskedForOnlyWhenTheIntervalHasPassed) {
  world->product_configuration("ANOMALY_PROXY_SERVER = proxy01.example.com");
  last_gather = kNow - 899;
  EXPECT_TRUE(run());
}

// --- The terminate_gather marker ---

TEST_F(Pass, MarkerEndsALiveOnlyLoopAndIsConsumed) {
  service().m_gather_mode = "LIVE_ONLY";
  write_file(marker(), "");
  EXPECT_EQ(console(false), "\nTerminating data gather.");
  EXPECT_FALSE(std::filesystem::exists(marker()));
  EXPECT_EQ(fake.log, (std::vector<LogLine>{{4, kProgram, "\nTerminating data gather\n"}}));
  EXPECT_FALSE(gathered());
}

TEST_F(Pass, MarkerIsIgnoredInFullMode) {
  write_file(marker(), "");
  EXPECT_EQ(console(true), "");
  EXPECT_TRUE(std::filesystem::exists(marker()));
  EXPECT_TRUE(gathered());
}

TEST_F(Pass, LiveOnlyLoopWithoutMarkerGoesOn) {
  service().m_gather_mode = "LIVE_ONLY";
  EXPECT_EQ(console(true), "");
  EXPECT_TRUE(gathered());
}

TEST_F(Pass, DisabledManagementComesBeforeTheMarker) {
  service().m_gather_mode = "LIVE_ONLY";
  write_file(marker(), "");
  world->configure_states("1", "1", "1");
  EXPECT_EQ(console(false), "");
  EXPECT_EQ(fake.log.back(), kDisabled);
  EXPECT_TRUE(std::filesystem::exists(marker()));
}

}  // namespace
}  // namespace corvane::test
