#include "companions/alert/settings_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "config/setting_values.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/support/scratch_dir.h"

namespace corvane::alert {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SettingsFile : public PlatformFake {
 protected:
  bool read(const std::string& content) {
    test::write_file(directory("c"), content);
    complaints.clear();
    return read_settings(directory("c"), settings, complaints);
  }

  const test::ScratchDir directory;
  Settings settings;
  std::vector<std::string> complaints;
};

TEST_F(SettingsFile, WithoutAFileOnlyTheWebServiceIsConfigured) {
  EXPECT_TRUE(read_settings(directory("none"), settings, complaints));
  EXPECT_THAT(complaints, IsEmpty());
  EXPECT_EQ(settings.storm_limit, 10);
  EXPECT_EQ(settings.storm_minutes, 15);
  EXPECT_EQ(settings.least_severity(kWeb), 1);
  EXPECT_THAT(settings.people(), IsEmpty());
  EXPECT_EQ(settings.syslog_socket, "/run/systemd/journal/socket");
  EXPECT_EQ(settings.smtp_url, "smtp://localhost:25");
  EXPECT_EQ(settings.command_seconds, 60);
  EXPECT_EQ(settings.quiet, QuietHours{});
}

std::string other_than_default(const Setting& setting) {
  if (setting.type == SettingType::kHours) return "01:00-02:00";
  if (!number_within(setting, setting.default_value)) return "something";
  return std::to_string(default_number(setting) + 1);
}

// None is left out, and none is read into another's place.
TEST_F(SettingsFile, HasAPlaceOfItsOwnForEachSettingOfItsSection) {
  std::vector<Settings> seen(1);
  EXPECT_TRUE(read_settings(directory("none"), seen[0], complaints));
  for (const Setting& setting : all_settings()) {
    if (std::string_view(setting.section->name) != "ALERT_SETTINGS") continue;
    EXPECT_TRUE(read(std::string("[ALERT_SETTINGS]\n") + setting.key + "=" +
                     other_than_default(setting) + "\n"));
    EXPECT_THAT(complaints, IsEmpty());
    EXPECT_EQ(std::count(seen.begin(), seen.end(), settings), 0) << setting.key;
    seen.push_back(settings);
  }
  EXPECT_EQ(seen.size(), 19U);
}

TEST_F(SettingsFile, ReadsEachKeyIntoTheMemberOfItsName) {
  EXPECT_TRUE(
      read("[ALERT_SETTINGS]\nSYSLOG=1\nSYSLOG_SOCKET=socket\nSYSLOG_MIN_SEVERITY=2\n"
           "WEBHOOK_URL=https://x/?a=b\nWEBHOOK_SECRET_FILE=secret\n"
           "WEBHOOK_MIN_SEVERITY=3\nMAIL_TO=a@b, c@d\nMAIL_FROM=from\nSMTP_URL=smtp\n"
           "SMTP_CREDENTIALS_FILE=credentials\nMAIL_MIN_SEVERITY=1\nCOMMAND=/bin/x y\n"
           "COMMAND_TIMEOUT_IN_SEC=4\nCOMMAND_MIN_SEVERITY=2\nCA_FILE=ca\n"
           "QUIET_HOURS=01:00-02:00\nALERT_STORM_LIMIT=5\nALERT_STORM_MINUTES=6\n"));
  EXPECT_THAT(complaints, IsEmpty());
  Settings expected;
  expected.syslog = 1;
  expected.syslog_socket = "socket";
  expected.syslog_severity = 2;
  expected.webhook_url = "https://x/?a=b";
  expected.webhook_secret_file = "secret";
  expected.webhook_severity = 3;
  expected.mail_to = "a@b, c@d";
  expected.mail_from = "from";
  expected.smtp_url = "smtp";
  expected.smtp_credentials_file = "credentials";
  expected.mail_severity = 1;
  expected.command = "/bin/x y";
  expected.command_seconds = 4;
  expected.command_severity = 2;
  expected.ca_file = "ca";
  expected.quiet = {60, 120};
  expected.storm_limit = 5;
  expected.storm_minutes = 6;
  EXPECT_EQ(settings, expected);
}

TEST_F(SettingsFile, ComplainsOfNonsenseAndTakesTheDefault) {
  settings.quiet = {1, 2};
  EXPECT_TRUE(
      read("[ALERT_SETTINGS]\nWEBHOOK_MIN_SEVERITY=4\nQUIET_HOURS=22:00\n"
           "ALERT_STORM_LIMIT=7\nALERT_STORM_MINUTES=0\n"));
  EXPECT_EQ(settings.webhook_severity, 1);
  EXPECT_EQ(settings.storm_limit, 7);
  EXPECT_EQ(settings.storm_minutes, 15);
  EXPECT_EQ(settings.quiet, QuietHours{});
  EXPECT_THAT(
      complaints,
      ElementsAre(
          "Invalid value received for configuration key WEBHOOK_MIN_SEVERITY:[4], using [1]",
          "Invalid value received for configuration key ALERT_STORM_MINUTES:[0], using [15]",
          "Invalid value received for configuration key QUIET_HOURS:[22:00], using []"));
}

TEST_F(SettingsFile, HalfAFileIsNone) {
  settings.storm_limit = 77;
  EXPECT_FALSE(read("[ALERT_SETTINGS]\nSYSLOG=1\n[broken\n"));
  EXPECT_EQ(settings.storm_limit, 77);
  EXPECT_EQ(settings.syslog, 0);
  std::filesystem::create_directory(directory("folder"));
  EXPECT_FALSE(read_settings(directory("folder"), settings, complaints));
}

TEST(Channels, HaveNames) {
  for (const char* name : {kWeb, kSyslog, kWebhook, kMail, kCommand}) {
    EXPECT_TRUE(is_channel_name(name)) << name;
  }
  for (const char* name : {"", "Web", "email", "commands"}) {
    EXPECT_FALSE(is_channel_name(name)) << name;
  }
  EXPECT_STREQ(kWeb, "web");
  EXPECT_STREQ(kSyslog, "syslog");
  EXPECT_STREQ(kWebhook, "webhook");
  EXPECT_STREQ(kMail, "mail");
  EXPECT_STREQ(kCommand, "command");
}

TEST(Channels, AreConfiguredByTheirOwnSetting) {
  Settings settings;
  settings.syslog_severity = 1;
  settings.webhook_severity = 2;
  settings.mail_severity = 3;
  settings.command_severity = 4;
  for (const char* name : {kSyslog, kWebhook, kMail, kCommand, "other"}) {
    EXPECT_EQ(settings.least_severity(name), 0) << name;
  }
  EXPECT_EQ(settings.least_severity(kWeb), 1);
  settings.syslog = 1;
  EXPECT_THAT(settings.people(), ElementsAre("syslog"));
  settings.webhook_url = "u";
  EXPECT_THAT(settings.people(), ElementsAre("syslog", "webhook"));
  settings.mail_to = "m";
  EXPECT_THAT(settings.people(), ElementsAre("syslog", "webhook", "mail"));
  settings.command = "c";
  EXPECT_THAT(settings.people(), ElementsAre("syslog", "webhook", "mail", "command"));
  EXPECT_EQ(settings.least_severity(kSyslog), 1);
  EXPECT_EQ(settings.least_severity(kWebhook), 2);
  EXPECT_EQ(settings.least_severity(kMail), 3);
  EXPECT_EQ(settings.least_severity(kCommand), 4);
  EXPECT_EQ(settings.least_severity("other"), 0);
}

}  // namespace
}  // namespace corvane::alert
