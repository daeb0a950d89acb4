#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <stdexcept>

#include "companions/alert/channel/secret_file.h"
#include "companions/alert/options.h"
#include "companions/alert/quiet_hours.h"
#include "companions/alert/settings_file.h"
#include "config/setting_values.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/support/scratch_dir.h"

namespace corvane::alert {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(SettingsFile, WithoutAFileOnlyTheWebServiceIsTold) {
  const test::ScratchDir directory;
  Settings settings;
  std::vector<std::string> complaints;
  EXPECT_TRUE(read_settings(directory("none"), settings, complaints));
  EXPECT_THAT(complaints, IsEmpty());
  EXPECT_EQ(settings.storm_limit, 10);
  EXPECT_EQ(settings.storm_minutes, 15);
  EXPECT_EQ(settings.least_severity(kWeb), 1);
  EXPECT_THAT(settings.people(), IsEmpty());
  EXPECT_EQ(settings.least_severity("other"), 0);
  EXPECT_EQ(settings.syslog_socket, "/run/systemd/journal/socket");
  EXPECT_EQ(settings.smtp_url, "smtp://localhost:25");
  EXPECT_EQ(settings.command_seconds, 60);
}

std::string other_than_default(const Setting& setting) {
  if (setting.type == SettingType::kHours) return "01:00-02:00";
  if (!number_within(setting, setting.default_value)) return "something";
  return std::to_string(default_number(setting) + 1);
}

// None is left out, and none is read into another's place.
TEST(SettingsFile, ReadsEachSettingOfItsSectionIntoAPlaceOfItsOwn) {
  const test::ScratchDir directory;
  std::vector<std::string> complaints;
  std::vector<Settings> seen(1);
  EXPECT_TRUE(read_settings(directory("none"), seen[0], complaints));
  for (const Setting& setting : all_settings()) {
    if (std::string_view(setting.section->name) != "ALERT_SETTINGS") continue;
    test::write_file(directory("c"), std::string("[ALERT_SETTINGS]\n") + setting.key + "=" +
                                         other_than_default(setting) + "\n");
    Settings settings;
    EXPECT_TRUE(read_settings(directory("c"), settings, complaints));
    EXPECT_EQ(std::count(seen.begin(), seen.end(), settings), 0) << setting.key;
    seen.push_back(settings);
  }
  EXPECT_EQ(seen.size(), 19U);
  EXPECT_THAT(complaints, IsEmpty());
}

TEST(SettingsFile, ReadsWhatItSaysAndComplainsOfNonsense) {
  const test::ScratchDir directory;
  test::write_file(directory("c"),
                   "[ALERT_SETTINGS]\nSYSLOG=1\nMAIL_TO=a@b, c@d\nMAIL_MIN_SEVERITY=3\n"
                   "WEBHOOK_URL=https://x/?a=b\nWEBHOOK_MIN_SEVERITY=4\nQUIET_HOURS=22:00\n"
                   "ALERT_STORM_LIMIT=7\n");
  Settings settings;
  std::vector<std::string> complaints;
  EXPECT_TRUE(read_settings(directory("c"), settings, complaints));
  EXPECT_EQ(settings.mail_to, "a@b, c@d");
  EXPECT_EQ(settings.webhook_url, "https://x/?a=b");
  EXPECT_EQ(settings.storm_limit, 7);
  EXPECT_EQ(settings.least_severity(kSyslog), 1);
  EXPECT_EQ(settings.least_severity(kMail), 3);
  EXPECT_EQ(settings.least_severity(kWebhook), 1);
  EXPECT_THAT(settings.people(), ElementsAre("syslog", "webhook", "mail"));
  EXPECT_EQ(settings.quiet, QuietHours{});
  EXPECT_THAT(
      complaints,
      ElementsAre(
          "Invalid value received for configuration key WEBHOOK_MIN_SEVERITY:[4], using [1]",
          "Invalid value received for configuration key QUIET_HOURS:[22:00], using []"));
}

TEST(SettingsFile, HalfAFileIsNone) {
  const test::ScratchDir directory;
  test::write_file(directory("c"), "[ALERT_SETTINGS]\nSYSLOG=1\n[broken\n");
  Settings settings;
  settings.storm_limit = 77;
  std::vector<std::string> complaints;
  EXPECT_FALSE(read_settings(directory("c"), settings, complaints));
  EXPECT_EQ(settings.storm_limit, 77);
  EXPECT_EQ(settings.syslog, 0);
}

constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kMidnight = 1'699'920'000;

std::int64_t end_of(const char* hours, std::int64_t now) {
  setenv("TZ", "UTC", 1);
  tzset();
  QuietHours quiet;
  EXPECT_TRUE(parse_quiet_hours(hours, quiet)) << hours;
  return end_of_quiet(quiet, now);
}

TEST(QuietHours, ReachOverMidnightOrNot) {
  EXPECT_EQ(end_of("22:00-07:00", kMidnight - kHour), kMidnight + 7 * kHour);
  EXPECT_EQ(end_of("22:00-07:00", kMidnight + kHour), kMidnight + 7 * kHour);
  EXPECT_EQ(end_of("22:00-07:00", kMidnight + 7 * kHour), 0);
  EXPECT_EQ(end_of("22:00-07:00", kMidnight - 3 * kHour), 0);
  EXPECT_EQ(end_of("01:30-02:00", kMidnight + 3 * kHour / 2), kMidnight + 2 * kHour);
  EXPECT_EQ(end_of("01:30-02:00", kMidnight), 0);
  EXPECT_EQ(end_of("20:00-24:00", kMidnight - 1), kMidnight);
  EXPECT_EQ(end_of("", kMidnight), 0);
  EXPECT_EQ(end_of("05:00-05:00", kMidnight + 5 * kHour), 0);
}

TEST(QuietHours, EndByTheCalendarWhenTheClocksChange) {
  setenv("TZ", "Europe/Berlin", 1);
  tzset();
  QuietHours quiet;
  ASSERT_TRUE(parse_quiet_hours("22:00-07:00", quiet));
  // 2023-10-28 23:00 CEST; the night has 25 hours.
  EXPECT_EQ(end_of_quiet(quiet, 1'698'526'800), 1'698'526'800 + 9 * kHour);
  setenv("TZ", "UTC", 1);
  tzset();
}

TEST(QuietHours, RefuseNonsense) {
  for (const char* text : {"x", "22:00", "22:00-", "25:00-07:00", "22:60-07:00", "22:00-07:00 ",
                           "-1:00-07:00", "24:01-07:00", " 2:00-07:00", "22:00-07:001"}) {
    QuietHours quiet{1, 2};
    EXPECT_FALSE(parse_quiet_hours(text, quiet)) << text;
    EXPECT_EQ(quiet, (QuietHours{1, 2}));
  }
}

class SecretFile : public ::testing::Test {
 protected:
  std::string refusal(mode_t mode, const std::string& content = "x") {
    test::write_file(path, content);
    chmod(path.c_str(), mode);
    try {
      return "taken: " + read_secret(path);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
  }

  test::ScratchDir directory;
  std::string path = directory("secret");
};

TEST_F(SecretFile, IsReadWhenOnlyItsOwnerCan) {
  EXPECT_EQ(refusal(0600, "a secret \r\n"), "taken: a secret ");
  EXPECT_EQ(refusal(0400, "a secret "), "taken: a secret ");
}

TEST_F(SecretFile, IsRefusedWhenItIsNone) {
  for (const mode_t mode : {0640U, 0604U, 0620U, 0601U, 0644U}) {
    EXPECT_THAT(refusal(mode), HasSubstr("others than its owner")) << mode;
    chmod(path.c_str(), 0600);
  }
  EXPECT_THAT(refusal(0600, "\n"), HasSubstr("empty"));
  EXPECT_THAT(refusal(0600, std::string(5000, 'x')), HasSubstr("too long"));
  std::filesystem::remove(path);
  EXPECT_THROW(read_secret(path), std::runtime_error);
  EXPECT_THROW(read_secret(directory()), std::runtime_error);
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_THROW(read_secret(path), std::runtime_error);
}

std::string parse(const std::vector<const char*>& arguments, Options& options) {
  options = {};
  return parse_options(static_cast<int>(arguments.size()), arguments.data(), options);
}

TEST(Options, TakesTheServicesCommandLine) {
  Options options;
  EXPECT_EQ(parse({"-database_location", "/db/", "-database_file_name", "CV_Anomaly.db", "-master",
                   "m.example.com"},
                  options),
            "");
  EXPECT_EQ(options.mode, Options::Mode::kDaemon);
  EXPECT_EQ(options.database_path(), "/db//CV_Anomaly.db");
  EXPECT_EQ(options.config_path(), "/db//anomaly_config.conf");
  EXPECT_EQ(options.own_file(".db"), "/db//CV_Anomaly_Alerts.db");
  EXPECT_EQ(options.master, "m.example.com");
}

TEST(Options, TakesWhatPeopleAskFor) {
  Options options;
  EXPECT_EQ(parse({"-test"}, options), "");
  EXPECT_EQ(options.mode, Options::Mode::kTest);
  EXPECT_EQ(parse({"-test", "mail", "-config_file", "/c"}, options), "");
  EXPECT_EQ(options.test_channel, "mail");
  EXPECT_EQ(options.config_path(), "/c");
  EXPECT_EQ(parse({"-status"}, options), "");
  EXPECT_EQ(parse({"-resend"}, options), "");
  EXPECT_EQ(options.mode, Options::Mode::kResend);
  EXPECT_EQ(parse({"-test", "pigeon"}, options), "Unknown channel: pigeon");
  EXPECT_EQ(parse({"-once", "-status"}, options), "Only one of -once, -test, -status and -resend");
  EXPECT_EQ(parse({"-master"}, options), "Missing value for -master");
  EXPECT_EQ(parse({"-master", ""}, options), "Invalid value for -master: ");
  EXPECT_EQ(parse({"-nonsense"}, options), "Unknown option: -nonsense");
}

class MasterName : public PlatformFake {};

TEST_F(MasterName, IsTheProductsUnlessGiven) {
  EXPECT_EQ(master_name({}), "master01.example.com");
  Options options;
  options.master = "other";
  EXPECT_EQ(master_name(options), "other");
  fake.master_config_result = -1;
  EXPECT_EQ(master_name({}), "");
}

}  // namespace
}  // namespace corvane::alert
