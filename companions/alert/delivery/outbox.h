// The reading side of the state database: what a channel is to be told now, and how it fared.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "companions/alert/channel/message.h"
#include "companions/alert/state_database.h"

namespace corvane::alert {

// What a channel has not taken for so long is given up.
inline constexpr std::int64_t kGiveUpAfterSeconds = 24 * 60 * 60;

struct Delivery {
  std::int64_t message = 0;
  std::string channel;
  Message content;
  std::int64_t attempts = 0;  // with this one
  std::string reason;         // of the last failure
};

// Times are seconds since the epoch; 0: never, or not at all.
struct ChannelStatus {
  std::string name;
  std::int64_t waiting = 0;
  std::int64_t oldest = 0;
  std::int64_t given_up = 0;
  std::int64_t taken = 0;
  std::int64_t failures = 0;  // in a row
  std::int64_t paused_until = 0;
  std::int64_t failing_since = 0;
  std::int64_t last_success = 0;
  std::string last_error;
  std::int64_t due = 0;  // since when the first should be gone: later than oldest after quiet hours
};

// A message of an incident as one channel has it.
struct ToldMessage {
  std::string channel;
  Kind kind = Kind::kReport;
  DeliveryState state = DeliveryState::kWaiting;
  std::int64_t created = 0;
  std::string reason;  // of the last failure
};
// "pending", "part of a summary", "delivered", "dead letter", "replaced".
const char* words_for(DeliveryState state);

// Everything throws QueryError. Messages of one incident go out in their order.
class Outbox {
 public:
  explicit Outbox(StateDatabase& state);

  // The next message that is due, none while the channel pauses. That an attempt begins is noted
  // before it does: should the process die in it, the message comes again under the same name.
  std::optional<Delivery> begin(const std::string& channel, std::int64_t now);
  void taken(const Delivery& delivery, std::int64_t now);
  // The channel pauses, longer with each failure in a row, and so does the message.
  void failed(const Delivery& delivery, const std::string& reason, std::int64_t now);

  // At most so many of those that the channel has not taken for a day.
  std::vector<Delivery> overdue(const std::string& channel, std::int64_t now, std::size_t most);
  void give_up(const std::vector<Delivery>& deliveries);

  // How long begin() will give nothing, at most `longest`.
  std::int64_t seconds_to_next(const std::string& channel, std::int64_t now, std::int64_t longest);

  // Everything may be tried at once.
  void end_pauses();
  // What was given up waits again. Gives how many messages.
  std::int64_t revive();

  std::vector<std::string> channels_waited_for();
  std::vector<ChannelStatus> status();
  // What was made of the incident of that name, in that order.
  std::vector<ToldMessage> told_of(const std::string& incident);

 private:
  Message content_of(std::int64_t message, Kind kind, const std::string& channel);

  StateDatabase& state_;
  std::string tag_;
};

}  // namespace corvane::alert
