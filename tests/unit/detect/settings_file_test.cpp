#include "companions/detect/settings_file.h"

#include <gtest/gtest.h>

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
  EXPECT_EQ(settings.min_observations, 30U);
  EXPECT_EQ(settings.max_observations, 3000U);
  EXPECT_EQ(settings.days_to_ignore, 365);
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
  EXPECT_EQ(settings.min_observations, 12U);
  EXPECT_EQ(settings.max_observations, 3000U);
  EXPECT_EQ(complaints, (std::vector<std::string>{"Invalid value received for configuration key "
                                                  "MAX_OBSERVATIONS_FOR_TRAINING:[many], using "
                                                  "3000"}));
}

}  // namespace
}  // namespace corvane::detect
