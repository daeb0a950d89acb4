// The master's web service, which lists the anomalies.
#pragma once

#include <string>

#include "companions/alert/channel/channel.h"

namespace corvane::alert {

// Posts the incident as it is now under the id of its first record; what was there before is
// replaced. Cannot be interrupted: a server that hangs keeps it for up to 5 minutes.
class WebChannel : public Channel {
 public:
  explicit WebChannel(std::string master);
  SendResult send(const Message& message) override;

 private:
  std::string master_;
};

}  // namespace corvane::alert
