// A program of the customer.
#pragma once

#include <string>
#include <vector>

#include "companions/alert/channel/channel.h"
#include "companions/alert/channel/wakeup.h"

namespace corvane::alert {

// Runs the program without a shell, in its own process group, with the message as one line of JSON
// on standard input. Exit status 0 means delivered, even when the program did not read its input.
// When the program exits, exceeds its time limit or must stop, its whole process group is killed.
class CommandChannel : public Channel {
 public:
  // `command`: full path of the program and its arguments, separated by blanks.
  // `seconds`: the time limit.
  CommandChannel(const std::string& command, int seconds, const StopFlag& stop);
  SendResult send(const Message& message) override;

 private:
  std::vector<std::string> words_;
  int seconds_;
  const StopFlag& stop_;
};

}  // namespace corvane::alert
