// Mail to people.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "companions/alert/channel/channel.h"
#include "companions/alert/channel/wakeup.h"
#include "companions/alert/settings_file.h"

namespace corvane::alert {

// By SMTP, with TLS except on this machine. Taken when the server has accepted it for everybody.
// The credentials file holds one line "user:password".
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

// The addresses of a list separated by commas and blanks. Throws std::runtime_error
// when one is none (letters, digits and ._+-=~/ before and after one "@") or there are none.
std::vector<std::string> mail_addresses(const std::string& list);

// The mail with its headers, lines ended by CR LF and within 78 characters: the plain words, and
// the document as an attached file. Its Message-ID is made of the alert's name.
std::string mail_text(const Message& message, const std::string& from,
                      const std::vector<std::string>& to, std::int64_t now);

}  // namespace corvane::alert
