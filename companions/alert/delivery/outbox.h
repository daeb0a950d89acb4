// The reading side of messages and deliveries: what a channel is sent next, and what came of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "companions/alert/channel/message.h"
#include "companions/alert/state_database.h"

namespace corvane::alert {

// A message that was not delivered for this long becomes a dead letter.
inline constexpr std::int64_t kGiveUpAfterSeconds = 24 * 60 * 60;

struct Delivery {
  std::int64_t message = 0;
  std::string channel;
  Message content;
  std::int64_t attempts = 0;  // with this one
  std::string reason;         // of the last failure
};

// Health of a channel. Times are seconds since the epoch; 0: never.
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
  // When the first was due: the end of quiet hours may be later than `oldest`.
  std::int64_t due = 0;
};

// A message of an incident and what came of it on one channel.
struct ToldMessage {
  std::string channel;
  Kind kind = Kind::kReport;
  DeliveryState state = DeliveryState::kWaiting;
  std::int64_t created = 0;
  std::string reason;  // of the last failure
};
// "pending", "part of a summary", "delivered", "dead letter", "replaced".
const char* words_for(DeliveryState state);

// What came of an anomaly that the alerts have read.
struct RecordState {
  // A channel has delivered a message of it, or had delivered one of its incident at this severity
  // before.
  bool is_told = false;
  std::int64_t held =
      0;  // until when quiet hours hold back all that is pending of it; 0: they do not
};

// Everything throws QueryError. Messages of one incident are sent in order.
class Outbox {
 public:
  explicit Outbox(StateDatabase& state);

  // The next message that is due; none while the channel pauses. The attempt is recorded before it
  // begins: if the process dies meanwhile, the message is sent again under the same name.
  std::optional<Delivery> begin(const std::string& channel, std::int64_t now);
  void taken(const Delivery& delivery, std::int64_t now);
  // Channel and message pause, longer with each failure in a row.
  void failed(const Delivery& delivery, const std::string& reason, std::int64_t now);

  // Messages that were not delivered for a day, at most `most`.
  std::vector<Delivery> overdue(const std::string& channel, std::int64_t now, std::size_t most);
  void give_up(const std::vector<Delivery>& deliveries);

  // How many seconds begin() will return nothing, at most `longest`.
  std::int64_t seconds_to_next(const std::string& channel, std::int64_t now, std::int64_t longest);

  // Everything may be retried now, except what quiet hours hold back.
  void end_pauses();
  // Dead letters are pending again. Returns how many.
  std::int64_t revive();

  // Drops the dead letters of a channel, as if it had delivered them. Returns how many. Inside a
  // transaction.
  std::int64_t drop_dead_letters(const std::string& channel);

  std::vector<std::string> channels_waited_for();
  std::vector<ChannelStatus> status();
  // The messages of the incident with this name, in order.
  std::vector<ToldMessage> told_of(const std::string& incident);
  // Nothing when the alerts have not read it.
  std::optional<RecordState> state_of(const std::string& anomaly_id, Severity severity);

 private:
  Message content_of(std::int64_t message, Kind kind, const std::string& channel);

  StateDatabase& state_;
  std::string tag_;
};

}  // namespace corvane::alert
