// What is to be told to whom: the writing side of messages and deliveries.
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

// More than `limit` of a kind within `window` seconds are a storm. Its summary goes out when
// nothing more has come for `settle` seconds, at the latest after `longest_settle`, and one window
// after the last.
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

  // Gives its id. `record`: the anomaly that it is of; empty: none.
  std::int64_t add_message(std::int64_t incident, const std::string& record, Severity severity,
                           std::int64_t created, const Words& words, const std::string& details);
  void add_delivery(const NewDelivery& delivery);
  // Takes back what the channel was to be told of the incident and has not been sent. True when
  // that was how it began.
  bool replace_untold(std::int64_t incident, const std::string& channel);
  // Folds the delivery, and its like, into a summary when they are a storm.
  void fold_storm(const NewDelivery& delivery, const StormRule& rule);

  // Forgets messages that everybody took two days ago.
  void prune(std::int64_t now);

 private:
  std::int64_t find_summary(const NewDelivery& delivery);
  std::int64_t add_summary(const NewDelivery& delivery, const StormRule& rule);

  StateDatabase& state_;
};

}  // namespace corvane::alert
