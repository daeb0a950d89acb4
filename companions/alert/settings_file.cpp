#include "companions/alert/settings_file.h"

#include <ace/Configuration_Import_Export.h>
#include <unistd.h>

#include <array>

#include "config/setting_values.h"

namespace corvane::alert {

namespace {

struct TextMember {
  const Setting& setting;
  std::string Settings::*member;
};
constexpr std::array<TextMember, 9> kTexts{{
    {setting::kSyslogSocket, &Settings::syslog_socket},
    {setting::kWebhookUrl, &Settings::webhook_url},
    {setting::kWebhookSecretFile, &Settings::webhook_secret_file},
    {setting::kMailTo, &Settings::mail_to},
    {setting::kMailFrom, &Settings::mail_from},
    {setting::kSmtpUrl, &Settings::smtp_url},
    {setting::kSmtpCredentialsFile, &Settings::smtp_credentials_file},
    {setting::kCaFile, &Settings::ca_file},
    {setting::kCommand, &Settings::command},
}};

struct NumberMember {
  const Setting& setting;
  int Settings::*member;
};
constexpr std::array<NumberMember, 8> kNumbers{{
    {setting::kSyslog, &Settings::syslog},
    {setting::kSyslogMinSeverity, &Settings::syslog_severity},
    {setting::kWebhookMinSeverity, &Settings::webhook_severity},
    {setting::kMailMinSeverity, &Settings::mail_severity},
    {setting::kCommandMinSeverity, &Settings::command_severity},
    {setting::kCommandTimeout, &Settings::command_seconds},
    {setting::kStormLimit, &Settings::storm_limit},
    {setting::kStormMinutes, &Settings::storm_minutes},
}};

std::string default_in_brackets(const Setting& setting) {
  return std::string("[") + setting.default_value + "]";
}

bool is_whole(const std::string& path) {
  if (access(path.c_str(), F_OK) != 0) return true;  // then the defaults hold
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
  for (const auto& [setting, member] : kTexts) settings.*member = value_or_default(file, setting);
  for (const auto& [setting, member] : kNumbers) {
    settings.*member = read_number(setting, value_or_default(file, setting),
                                   default_in_brackets(setting), complaints);
  }
  const std::string hours = value_or_default(file, setting::kQuietHours);
  if (!parse_quiet_hours(hours, settings.quiet)) {
    complaints.push_back(
        complaint(setting::kQuietHours, hours, default_in_brackets(setting::kQuietHours)));
    parse_quiet_hours(setting::kQuietHours.default_value, settings.quiet);
  }
  return true;
}

}  // namespace corvane::alert
