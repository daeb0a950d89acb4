// One way to notify somebody.
#pragma once

#include <string>

#include "companions/alert/channel/message.h"

namespace corvane::alert {

struct SendResult {
  bool is_taken = false;  // delivered
  std::string reason;     // why it was not delivered; contains no secret
};

class Channel {
 public:
  Channel() = default;
  virtual ~Channel() = default;
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  // A message is delivered when the receiver has confirmed it. May block for about a minute. All
  // channels except the web service return promptly once the stop flag is raised. May throw
  // std::exception, which means not delivered.
  virtual SendResult send(const Message& message) = 0;
};

}  // namespace corvane::alert
