#include "companions/detect/settings_file.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "tests/support/scratch_dir.h"

namespace corvane::detect {
namespace {

TEST(SettingsFile, HasDefaultsWithoutAFile) {
  const test::ScratchDir directory;
  Settings settings;
  settings.eps = 7;
  std::vector<std::string> complaints;
  read_settings(directory("none.conf"), settings, complaints);
  EXPECT_TRUE(complaints.empty());
  EXPECT_EQ(settings.eps, 7);
  EXPECT_EQ(settings.sensitivity, 0);
  EXPECT_EQ(settings.stream.min_observations, 30U);
  EXPECT_EQ(settings.stream.max_observations, 3000U);
  EXPECT_EQ(settings.stream.days_to_ignore, 365);
  EXPECT_EQ(settings.stream.purge_months, 12);
}

TEST(SettingsFile, ReadsWhatItSaysAndComplainsOfNonsense) {
  const test::ScratchDir directory;
  test::write_file(directory("c.conf"),
                   "[ANOMALY_DETECTION_SENSITIVITY]\nSENSITIVITY_PERCENTAGE=-40\n"
                   "[ANOMALY_MODEL_SETTINGS]\nMIN_OBSERVATIONS_FOR_TRAINING=12\n"
                   "MAX_OBSERVATIONS_FOR_TRAINING=many\n");
  Settings settings;
  std::vector<std::string> complaints;
  read_settings(directory("c.conf"), settings, complaints);
  EXPECT_EQ(settings.sensitivity, -40);
  EXPECT_EQ(settings.stream.min_observations, 12U);
  EXPECT_EQ(settings.stream.max_observations, 3000U);
  EXPECT_EQ(complaints, (std::vector<std::string>{"Invalid value received for configuration key "
                                                  "MAX_OBSERVATIONS_FOR_TRAINING:[many], using "
                                                  "3000"}));
}

class PurgeInterval : public ::testing::Test {
 protected:
  // How many months of history count for this value.
  int months(const std::string& value) {
    test::write_file(directory_("c.conf"),
                     "[DATABASE_SETTINGS]\nPURGE_DATA_INTERVAL_IN_MONTHS=" + value + "\n");
    Settings settings;
    complaints_.clear();
    read_settings(directory_("c.conf"), settings, complaints_);
    return settings.stream.purge_months;
  }
  static std::vector<std::string> complaint(const std::string& value, const std::string& taken) {
    return {"Invalid value received for configuration key PURGE_DATA_INTERVAL_IN_MONTHS:[" + value +
            "], using " + taken};
  }

  const test::ScratchDir directory_;
  std::vector<std::string> complaints_;
};

TEST_F(PurgeInterval, IsWhatTheServicePurges) {
  for (const auto& [value, expected] :
       {std::pair("0", 0), std::pair("7", 7), std::pair("12", 12)}) {
    EXPECT_EQ(months(value), expected);
    EXPECT_TRUE(complaints_.empty()) << value;
  }
}

TEST_F(PurgeInterval, IsThatOfTheServiceAlsoForNonsenseWhichIsComplainedOf) {
  for (const auto& [value, expected] :
       {std::pair("twelve", 0), std::pair("", 12), std::pair("24", 12), std::pair("-3", -3),
        std::pair("6 months", 6), std::pair("4294967297", 1)}) {
    EXPECT_EQ(months(value), expected) << value;
    EXPECT_EQ(complaints_, complaint(value, std::to_string(expected)));
  }
}

}  // namespace
}  // namespace corvane::detect
