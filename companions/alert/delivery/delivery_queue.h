// The writing side of messages and deliveries: what is sent to which channel.
#pragma once

#include <cstdint>
#include <string>

#include "companions/alert/channel/message.h"
#include "companions/alert/state_database.h"
#include "finding/severity.h"

namespace corvane::alert {

struct NewDelivery {
  std::int64_t message = 0;
  std::string channel;
  Kind kind = Kind::kReport;
  std::int64_t incident = 0;
  Severity severity = Severity::kWarning;
  std::int64_t created = 0;
  std::int64_t held = 0;  // end of the quiet hours; 0: not held back
};

// More than `limit` messages of a kind within `window` seconds are a storm. Its summary is sent
// when no more have come for `settle` seconds, after `longest_settle` seconds at the latest, and at
// most once in each window.
struct StormRule {
  std::int64_t limit = 0;
  std::int64_t window = 0;
  std::int64_t settle = 0;
  std::int64_t longest_settle = 0;
};

// For use inside transactions of the caller. Everything throws QueryError.
class DeliveryQueue {
 public:
  explicit DeliveryQueue(StateDatabase& state) : state_(state) {}

  // Returns its id. `record`: id of the anomaly that it is about; empty: none.
  std::int64_t add_message(std::int64_t incident, const std::string& record, Severity severity,
                           std::int64_t created, const Words& words, const std::string& details);
  void add_delivery(const NewDelivery& delivery);
  // Replaces the begin and rise of the incident that were not sent to the channel yet. True when
  // there was a begin among them.
  bool replace_untold(std::int64_t incident, const std::string& channel);
  // Folds the delivery and those like it into a summary when they are a storm.
  void fold_storm(const NewDelivery& delivery, const StormRule& rule);

  // Deletes messages older than two days that are neither pending nor dead letters anywhere.
  void prune(std::int64_t now);

 private:
  std::int64_t find_summary(const NewDelivery& delivery);
  std::int64_t add_summary(const NewDelivery& delivery, const StormRule& rule);

  StateDatabase& state_;
};

}  // namespace corvane::alert
