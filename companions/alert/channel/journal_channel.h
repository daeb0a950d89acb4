// The system's journal, with a field for everything that people may want to filter by.
#pragma once

#include <string>

#include "companions/alert/channel/channel.h"
#include "companions/alert/channel/wakeup.h"

namespace corvane::alert {

class JournalChannel : public Channel {
 public:
  // `socket`: path of the journal's datagram socket.
  JournalChannel(std::string socket, const StopFlag& stop);
  SendResult send(const Message& message) override;

 private:
  std::string socket_;
  const StopFlag& stop_;
};

// The message in the journal's native format.
std::string journal_entry(const Message& message);

}  // namespace corvane::alert
