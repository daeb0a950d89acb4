// The master's web service, which lists the anomalies.
#pragma once

#include <string>

#include "companions/alert/channel/channel.h"

namespace corvane::alert {

// Posts the current state of the incident under the id of its first record, replacing what was
// there. Cannot be interrupted: it waits up to 5 minutes for a server that hangs.
class WebChannel : public Channel {
 public:
  explicit WebChannel(std::string master);
  SendResult send(const Message& message) override;

 private:
  std::string master_;
};

}  // namespace corvane::alert
