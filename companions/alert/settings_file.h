// Section ALERT_SETTINGS of the configuration file.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "companions/alert/quiet_hours.h"

namespace corvane::alert {

// The names of the channels on the command line and in the state database.
inline constexpr char kWeb[] = "web";  // the master's web service; always configured
inline constexpr char kSyslog[] = "syslog";
inline constexpr char kWebhook[] = "webhook";
inline constexpr char kMail[] = "mail";
inline constexpr char kCommand[] = "command";
bool is_channel_name(std::string_view name);

struct Settings {
  int syslog = 0;
  std::string syslog_socket;
  std::string webhook_url;
  std::string webhook_secret_file;
  std::string mail_to;
  std::string mail_from;
  std::string smtp_url;
  std::string smtp_credentials_file;
  std::string ca_file;  // empty: the system's
  std::string command;
  int command_seconds = 0;
  int syslog_severity = 0;
  int webhook_severity = 0;
  int mail_severity = 0;
  int command_severity = 0;
  int storm_limit = 0;
  int storm_minutes = 0;
  QuietHours quiet;

  // The lowest severity that this channel gets; 0: the channel is not configured.
  int least_severity(std::string_view channel) const;
  // The configured channels that notify people: all except the web service.
  std::vector<std::string> people() const;

  bool operator==(const Settings&) const = default;
};

// Reads the file at `path` into `settings`. Without the file every setting has its default. A value
// out of its bounds counts as the default and adds a line to `complaints`. False, with everything
// unchanged, for a file that cannot be read or has a malformed line: a channel that seems to be
// missing may be configured in the part that was not read.
bool read_settings(const std::string& path, Settings& settings,
                   std::vector<std::string>& complaints);

}  // namespace corvane::alert
