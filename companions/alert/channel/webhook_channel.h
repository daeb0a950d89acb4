// A web server of the customer, which gets the message as JSON.
#pragma once

#include <cstdint>
#include <string>

#include "companions/alert/channel/channel.h"
#include "companions/alert/channel/wakeup.h"
#include "companions/alert/settings_file.h"

namespace corvane::alert {

// Posts the message. The header "Corvane-Alert" is its name. With a secret file the header
// "Corvane-Signature" is "t=SECONDS,v1=HEX": the HMAC-SHA256 of the seconds, a dot and the body,
// with the secret as key. A status from 200 to 299 means delivered. Uses https, unless the server
// is on this machine.
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

// The value of the header. `now`: seconds since the epoch. Throws std::runtime_error.
std::string webhook_signature(const std::string& secret, std::int64_t now, const std::string& body);

}  // namespace corvane::alert
