// Alerts by mail.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "companions/alert/channel/channel.h"
#include "companions/alert/channel/wakeup.h"
#include "companions/alert/settings_file.h"
#include "config/settings.h"

namespace corvane::alert {

// By SMTP, with TLS unless the server is on this machine. Delivered when the server has accepted
// the mail for every recipient. The credentials file holds one line "user:password".
class MailChannel : public Channel {
 public:
  MailChannel(const Settings& settings, const StopFlag& stop);
  SendResult send(const Message& message) override;

 private:
  std::string url_;
  std::string from_;
  std::string to_;
  std::string credentials_file_;
  std::string ca_file_;
  const StopFlag& stop_;
};

// The addresses of a setting, separated by commas or blanks. An address has letters, digits and
// ._+-=~/ before and after one "@". Throws std::runtime_error for an invalid or empty list.
std::vector<std::string> mail_addresses(const Setting& setting, const std::string& list);

// The mail with its headers: the text, and the JSON document as an attachment. Lines end with CR LF
// and have at most 78 characters. The Message-ID is made from the alert's name. `now`: seconds
// since the epoch.
std::string mail_text(const Message& message, const std::string& from,
                      const std::vector<std::string>& to, std::int64_t now);

}  // namespace corvane::alert
