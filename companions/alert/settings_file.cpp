#include "companions/alert/settings_file.h"

#include <ace/Configuration_Import_Export.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "config/configuration.h"

namespace corvane::alert {

namespace {

constexpr char kSection[] = "ALERT_SETTINGS";

struct TextSetting {
  const char* key;
  const char* otherwise;
  std::string Settings::*member;
};
constexpr std::array<TextSetting, 9> kTexts{{
    {"SYSLOG_SOCKET", "/run/systemd/journal/socket", &Settings::syslog_socket},
    {"WEBHOOK_URL", "", &Settings::webhook_url},
    {"WEBHOOK_SECRET_FILE", "", &Settings::webhook_secret_file},
    {"MAIL_TO", "", &Settings::mail_to},
    {"MAIL_FROM", "", &Settings::mail_from},
    {"SMTP_URL", "smtp://localhost:25", &Settings::smtp_url},
    {"SMTP_CREDENTIALS_FILE", "", &Settings::smtp_credentials_file},
    {"CA_FILE", "", &Settings::ca_file},
    {"COMMAND", "", &Settings::command},
}};

struct NumberSetting {
  const char* key;
  const char* otherwise;
  int least;
  int most;
  int Settings::*member;
};
constexpr std::array<NumberSetting, 8> kNumbers{{
    {"SYSLOG", "0", 0, 1, &Settings::syslog},
    {"SYSLOG_MIN_SEVERITY", "1", 1, 3, &Settings::syslog_severity},
    {"WEBHOOK_MIN_SEVERITY", "1", 1, 3, &Settings::webhook_severity},
    {"MAIL_MIN_SEVERITY", "1", 1, 3, &Settings::mail_severity},
    {"COMMAND_MIN_SEVERITY", "1", 1, 3, &Settings::command_severity},
    {"COMMAND_TIMEOUT_IN_SEC", "60", 1, 3600, &Settings::command_seconds},
    {"ALERT_STORM_LIMIT", "10", 1, 1000, &Settings::storm_limit},
    {"ALERT_STORM_MINUTES", "15", 1, 1440, &Settings::storm_minutes},
}};

struct QuietSetting {
  const char* key;
  const char* otherwise;
};
constexpr QuietSetting kQuiet{"QUIET_HOURS", ""};

bool read_number(const std::string& text, int least, int most, int& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} && end == text.data() + text.size() && number >= least &&
         number <= most;
}

std::string complaint(const char* key, const std::string& text, const char* otherwise) {
  return std::string("Invalid value received for configuration key ") + key + ":[" + text +
         "], using [" + otherwise + "]";
}

// An empty value counts as none.
std::string value_of(Configuration& file, const char* key, const char* otherwise) {
  const std::string value = file.get_config(kSection, key);
  return value.empty() ? otherwise : value;
}

bool is_whole(const std::string& path) {
  if (access(path.c_str(), F_OK) != 0) return true;  // no file: the defaults
  ACE_Configuration_Heap heap;
  heap.open();
  return ACE_Ini_ImpExp(heap).import_config(path.c_str()) == 0;
}

}  // namespace

bool is_channel_name(std::string_view name) {
  return name == kWeb || name == kSyslog || name == kWebhook || name == kMail || name == kCommand;
}

int Settings::least_severity(std::string_view channel) const {
  if (channel == kWeb) return 1;
  if (channel == kSyslog && syslog != 0) return syslog_severity;
  if (channel == kWebhook && !webhook_url.empty()) return webhook_severity;
  if (channel == kMail && !mail_to.empty()) return mail_severity;
  if (channel == kCommand && !command.empty()) return command_severity;
  return 0;
}

std::vector<std::string> Settings::people() const {
  std::vector<std::string> channels;
  for (const char* channel : {kSyslog, kWebhook, kMail, kCommand}) {
    if (least_severity(channel) > 0) channels.emplace_back(channel);
  }
  return channels;
}

bool read_settings(const std::string& path, Settings& settings,
                   std::vector<std::string>& complaints) {
  if (!is_whole(path)) return false;
  Configuration file(path, 1);
  for (const TextSetting& setting : kTexts) {
    settings.*setting.member = value_of(file, setting.key, setting.otherwise);
  }
  for (const NumberSetting& setting : kNumbers) {
    const std::string text = value_of(file, setting.key, setting.otherwise);
    if (read_number(text, setting.least, setting.most, settings.*setting.member)) continue;
    complaints.push_back(complaint(setting.key, text, setting.otherwise));
    read_number(setting.otherwise, setting.least, setting.most, settings.*setting.member);
  }
  const std::string hours = value_of(file, kQuiet.key, kQuiet.otherwise);
  if (!parse_quiet_hours(hours, settings.quiet)) {
    complaints.push_back(complaint(kQuiet.key, hours, kQuiet.otherwise));
    settings.quiet = {};
  }
  return true;
}

}  // namespace corvane::alert
