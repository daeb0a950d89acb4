// A web server of the customer's, which gets the message as JSON.
#pragma once

#include <cstdint>
#include <string>

#include "companions/alert/channel/channel.h"
#include "companions/alert/channel/wakeup.h"
#include "companions/alert/settings_file.h"

namespace corvane::alert {

// POST of the message. "Corvane-Alert" names it. With a secret file "Corvane-Signature" is
// "t=SECONDS,v1=HEX": HMAC-SHA256, by the secret, of the seconds, a dot and the body. Any status of
// 200 to 299 means taken. https, except on this machine.
class WebhookChannel : public Channel {
 public:
  WebhookChannel(const Settings& settings, const StopFlag& stop);
  SendResult send(const Message& message) override;

 private:
  std::string url_;
  std::string secret_file_;
  std::string ca_file_;
  const StopFlag& stop_;
};

// The header's value. Throws std::runtime_error.
std::string webhook_signature(const std::string& secret, std::int64_t now, const std::string& body);

}  // namespace corvane::alert
