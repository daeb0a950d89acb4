#include "config/setting_values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/scratch_dir.h"

namespace corvane {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(SettingValues, StandAsTheyAreInTheFile) {
  const test::ScratchDir directory;
  test::write_file(directory("c"),
                   "[ANOMALY_DETECTION_SENSITIVITY]\nSENSITIVITY_PERCENTAGE=\n"
                   "[ALERT_SETTINGS]\nMAIL_TO=a@b\nSYSLOG=\n");
  Configuration file(directory("c"), 1);
  EXPECT_EQ(value_of(file, setting::kSensitivity), "");
  EXPECT_EQ(value_of(file, setting::kPurgeInterval), "12");
  EXPECT_EQ(value_of(file, setting::kMailTo), "a@b");
  EXPECT_EQ(value_of(file, setting::kSmtpUrl), "");
}

TEST(SettingValues, MayCountAsTheDefaultWhenTheyAreEmpty) {
  const test::ScratchDir directory;
  test::write_file(directory("c"), "[ALERT_SETTINGS]\nMAIL_TO=a@b\nSYSLOG=\n");
  Configuration file(directory("c"), 1);
  EXPECT_EQ(value_or_default(file, setting::kSyslog), "0");
  EXPECT_EQ(value_or_default(file, setting::kMailTo), "a@b");
  EXPECT_EQ(value_or_default(file, setting::kMailFrom), "");
  EXPECT_EQ(value_or_default(file, setting::kSmtpUrl), "smtp://localhost:25");
}

TEST(SettingNumbers, AreWholeNumbersWithinTheBounds) {
  EXPECT_EQ(number_within(setting::kSensitivity, "-100"), -100);
  EXPECT_EQ(number_within(setting::kSensitivity, "100"), 100);
  EXPECT_EQ(number_within(setting::kSensitivity, "007"), 7);
  for (const char* text : {"-101", "101", "", "5 %", "+5", " 5", "5 ", "5.0", "many", "-", "0x5",
                           "99999999999999999999"}) {
    EXPECT_EQ(number_within(setting::kSensitivity, text), std::nullopt) << text;
  }
}

TEST(SettingNumbers, CountAsTheDefaultElsewhereAndAreComplainedOf) {
  std::vector<std::string> complaints;
  EXPECT_EQ(read_number(setting::kStormLimit, "1000", "[10]", complaints), 1000);
  EXPECT_THAT(complaints, IsEmpty());
  EXPECT_EQ(read_number(setting::kStormLimit, "1001", "[10]", complaints), 10);
  EXPECT_EQ(read_number(setting::kMaxObservations, "", "3000", complaints), 3000);
  EXPECT_THAT(complaints,
              ElementsAre("Invalid value received for configuration key ALERT_STORM_LIMIT:[1001], "
                          "using [10]",
                          "Invalid value received for configuration key "
                          "MAX_OBSERVATIONS_FOR_TRAINING:[], using 3000"));
}

TEST(SettingNumbers, HaveADefault) {
  EXPECT_EQ(default_number(setting::kGatherFrequency), 15);
  EXPECT_EQ(default_number(setting::kDisableAnomalyDetection), 0);
  EXPECT_EQ(default_number(setting::kDisableAlertService), 1);
}

}  // namespace
}  // namespace corvane
