#include "coverage/rules.h"

#include <gtest/gtest.h>

#include "platform/program_names.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/support/scratch_dir.h"

namespace corvane::coverage {
namespace {

constexpr std::int64_t kNow = 1'769'832'000;  // 2026-01-31T04:00:00Z

class Rules : public PlatformFake {
 protected:
  HealRules rules() {
    Configuration config(path_, 1);
    return rules_of(config, kNow);
  }
  std::string why() {
    Configuration config(path_, 1);
    return why_off(config, path_);
  }
  void write(const std::string& text) { test::write_file(path_, text); }

  test::ScratchDir directory_;
  std::string path_ = directory_("anomaly_config.conf");
};

TEST_F(Rules, WithoutAFileAllIsAtItsDefault) {
  EXPECT_EQ(rules().rows_for, RowsFor::kHistory);  // the detection is disabled
  const std::int64_t year = std::int64_t{365} * 86400;
  EXPECT_NEAR(static_cast<double>(rules().not_before), static_cast<double>(kNow - year), 6 * 86400);
  EXPECT_EQ(why(), "");
}

TEST_F(Rules, FollowTheFile) {
  write(
      "[DATABASE_SETTINGS]\nPURGE_DATA_INTERVAL_IN_MONTHS=1\n"
      "[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_DETECTION_SERVICE=0\n");
  EXPECT_NEAR(static_cast<double>(rules().not_before), static_cast<double>(kNow - 30 * 86400),
              2 * 86400);
  EXPECT_EQ(rules().rows_for, RowsFor::kDetection);
}

TEST_F(Rules, NothingIsHealedWithAMalformedFileOrIfPeopleSaySo) {
  write("a line without an equals sign\n");
  EXPECT_EQ(why(), "the configuration file " + path_ + " is malformed or cannot be read");
  write("[HEALING_SETTINGS]\nHEAL=0\n");
  EXPECT_EQ(why(), "HEAL is not 1 in the configuration file");
  write("[HEALING_SETTINGS]\nHEAL=1\n");
  EXPECT_EQ(why(), "");
}

TEST_F(Rules, ACompanionIsWantedAsTheServiceWantsIt) {
  const auto wanted = [&](int all, int detection, int alerts) {
    write("[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_ANOMALY_DETECTION=" + std::to_string(all) +
          "\nDISABLE_DETECTION_SERVICE=" + std::to_string(detection) +
          "\nDISABLE_ALERT_SERVICE=" + std::to_string(alerts) + "\n");
    return std::pair(is_companion_wanted(path_, kDetectionProgram),
                     is_companion_wanted(path_, kAlertProgram));
  };
  EXPECT_EQ(wanted(0, 0, 0), std::pair(true, true));
  EXPECT_EQ(wanted(0, 0, 1), std::pair(true, false));
  EXPECT_EQ(wanted(0, 1, 0), std::pair(false, false));
  EXPECT_EQ(wanted(1, 0, 0), std::pair(false, false));
}

TEST_F(Rules, WithAMalformedFileNoCompanionIsWanted) {
  write("a line without an equals sign\n");
  EXPECT_FALSE(is_companion_wanted(path_, kDetectionProgram));
}

}  // namespace
}  // namespace corvane::coverage
