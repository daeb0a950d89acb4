// One way to tell somebody.
#pragma once

#include <string>

#include "companions/alert/channel/message.h"

namespace corvane::alert {

struct SendResult {
  bool is_taken = false;
  std::string reason;  // why not; holds no secret
};

class Channel {
 public:
  Channel() = default;
  virtual ~Channel() = default;
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  // Taken means that the other side has said so. May block, for a minute or so; all but the web
  // service's return promptly once the stop flag is raised. May throw std::exception, which counts
  // as not taken.
  virtual SendResult send(const Message& message) = 0;
};

}  // namespace corvane::alert
