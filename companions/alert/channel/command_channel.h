// A program that does whatever the customer wants to be done.
#pragma once

#include <string>
#include <vector>

#include "companions/alert/channel/channel.h"
#include "companions/alert/channel/wakeup.h"

namespace corvane::alert {

// Run without a shell, in a process group of its own, with the message as one line of JSON on its
// standard input. Status 0 means taken; whether the program has read its input does not count. What
// runs longer than allowed, or into a stop, is killed with everything that it started.
class CommandChannel : public Channel {
 public:
  // `command`: full path of the program and its arguments, apart by blanks.
  CommandChannel(const std::string& command, int seconds, const StopFlag& stop);
  SendResult send(const Message& message) override;

 private:
  std::vector<std::string> words_;
  int seconds_;
  const StopFlag& stop_;
};

}  // namespace corvane::alert
