#include "config/settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "config/setting_values.h"

namespace corvane {
namespace {

using ::testing::EndsWith;
using ::testing::Not;

TEST(SettingsTable, HasEachKeyOnceAndSectionsInOnePiece) {
  std::set<std::string> keys;
  std::set<std::string> sections;
  const SettingsSection* section = nullptr;
  for (const Setting& setting : all_settings()) {
    EXPECT_TRUE(keys.insert(setting.key).second) << setting.key;
    if (setting.section == section) continue;
    section = setting.section;
    EXPECT_TRUE(sections.insert(section->name).second) << section->name;
  }
  EXPECT_EQ(keys.size(), 29U);
  EXPECT_EQ(sections.size(), 7U);
}

// What Configuration knows of these is in configuration_test.cpp.
TEST(SettingsTable, HasTheDefaultsOfTheAlerts) {
  const std::map<std::string, std::string> expected{
      {"SYSLOG", "0"},
      {"SYSLOG_SOCKET", "/run/systemd/journal/socket"},
      {"SYSLOG_MIN_SEVERITY", "1"},
      {"WEBHOOK_URL", ""},
      {"WEBHOOK_SECRET_FILE", ""},
      {"WEBHOOK_MIN_SEVERITY", "1"},
      {"MAIL_TO", ""},
      {"MAIL_FROM", ""},
      {"SMTP_URL", "smtp://localhost:25"},
      {"SMTP_CREDENTIALS_FILE", ""},
      {"MAIL_MIN_SEVERITY", "1"},
      {"COMMAND", ""},
      {"COMMAND_TIMEOUT_IN_SEC", "60"},
      {"COMMAND_MIN_SEVERITY", "1"},
      {"CA_FILE", ""},
      {"QUIET_HOURS", ""},
      {"ALERT_STORM_LIMIT", "10"},
      {"ALERT_STORM_MINUTES", "15"},
  };
  std::map<std::string, std::string> found;
  for (const Setting& setting : all_settings()) {
    if (std::string_view(setting.section->name) != "ALERT_SETTINGS") continue;
    found[setting.key] = setting.default_value;
  }
  EXPECT_EQ(found, expected);
}

TEST(SettingsTable, HasDefaultsWithinTheirBounds) {
  for (const Setting& setting : all_settings()) {
    const bool is_number =
        setting.type == SettingType::kFlag || setting.type == SettingType::kInteger;
    EXPECT_EQ(number_within(setting, setting.default_value).has_value(), is_number) << setting.key;
    EXPECT_EQ(setting.least < setting.most, is_number) << setting.key;
  }
}

TEST(SettingsTable, HasTheBoundsOfEachNumber) {
  const std::map<std::string, std::pair<int, int>> expected{
      {"LIVE_DATA_GATHER_FREQUENCY_IN_MIN", {15, 35791394}},
      {"PURGE_DATA_INTERVAL_IN_MONTHS", {0, 12}},
      {"SENSITIVITY_PERCENTAGE", {-100, 100}},
      {"MIN_OBSERVATIONS_FOR_TRAINING", {2, 1000000}},
      {"DAYS_FOR_LAST_BACKUP_TO_IGNORE_ANOMALY", {1, 100000}},
      {"MAX_OBSERVATIONS_FOR_TRAINING", {2, 1000000}},
      {"SYSLOG_MIN_SEVERITY", {1, 3}},
      {"WEBHOOK_MIN_SEVERITY", {1, 3}},
      {"MAIL_MIN_SEVERITY", {1, 3}},
      {"COMMAND_TIMEOUT_IN_SEC", {1, 3600}},
      {"COMMAND_MIN_SEVERITY", {1, 3}},
      {"ALERT_STORM_LIMIT", {1, 1000}},
      {"ALERT_STORM_MINUTES", {1, 1440}},
  };
  std::map<std::string, std::pair<int, int>> found;
  for (const Setting& setting : all_settings()) {
    if (setting.type == SettingType::kInteger) {
      found[setting.key] = {setting.least, setting.most};
    } else if (setting.type == SettingType::kFlag) {
      EXPECT_EQ(setting.least, 0) << setting.key;
      EXPECT_EQ(setting.most, 1) << setting.key;
    }
  }
  EXPECT_EQ(found, expected);
}

TEST(SettingsTable, SaysOfEachSettingInOneSentenceWhatItMeans) {
  for (const Setting& setting : all_settings()) {
    const std::string meaning = setting.meaning;
    EXPECT_GE(meaning.size(), 16U) << setting.key;
    EXPECT_THAT(meaning, EndsWith(".")) << setting.key;
    EXPECT_EQ(meaning.find(". "), std::string::npos) << setting.key;
    EXPECT_EQ(meaning[0] >= 'a' && meaning[0] <= 'z', false) << setting.key;
    EXPECT_TRUE(*setting.note == '\0' || std::string_view(setting.note).ends_with('.'))
        << setting.key;
    EXPECT_EQ(std::string(setting.readers).find("cvanomaly"), 0U) << setting.key;
    EXPECT_THAT(setting.readers, Not(EndsWith("."))) << setting.key;
    EXPECT_EQ(*setting.unit == '\0', setting.type == SettingType::kFlag) << setting.key;
  }
}

}  // namespace
}  // namespace corvane
