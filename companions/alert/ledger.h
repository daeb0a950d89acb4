// The writing side of the state database: records, incidents, messages and who is to get them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "companions/alert/anomaly.h"
#include "companions/alert/message.h"
#include "companions/alert/sentence.h"
#include "companions/alert/state_database.h"

namespace corvane::alert {

struct Incident {
  std::int64_t id = 0;  // 0: not stored yet
  std::string name;
  std::string anomaly_id;    // of its first record; its id at the web service
  std::string last_anomaly;  // its latest record
  StreamKey stream;
  bool has_stream = false;
  std::int64_t first_time = 0;
  std::int64_t last_time = 0;
  int severity = 0;
  std::string cause;
  std::int64_t records = 0;
  bool is_open = true;
};

struct NewDelivery {
  std::int64_t message = 0;
  std::string channel;
  Kind kind = Kind::kReport;
  std::int64_t incident = 0;
  int severity = 1;
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

// For use inside transactions of the caller. Everything throws sqlite_exception.
class Ledger {
 public:
  explicit Ledger(StateDatabase& state) : state_(state) {}

  bool knows_record(const std::string& anomaly_id);
  // So many channels have to take something before it is done.
  void add_record(const std::string& anomaly_id, std::size_t deliveries);
  std::vector<std::string> done_records(std::size_t most);
  void forget_record(const std::string& anomaly_id);

  std::optional<Incident> find_incident(const std::string& name);
  std::vector<Incident> open_incidents();
  // Adds it or replaces the one of that name, and sets its id.
  void put_incident(Incident& incident, std::int64_t now);
  void close_incident(std::int64_t id, std::int64_t until, std::int64_t now);

  // The severity at which the channel knows of the incident; 0: it does not.
  int told(std::int64_t incident, const std::string& channel);
  void set_told(std::int64_t incident, const std::string& channel, int severity);
  void forget_told(std::int64_t incident);

  // Gives its id. `record`: the anomaly that it is of; empty: none.
  std::int64_t add_message(std::int64_t incident, const std::string& record, int severity,
                           std::int64_t created, const Words& words, const std::string& details);
  void add_delivery(const NewDelivery& delivery);
  // Takes back what the channel was to be told of the incident and has not been sent. True when
  // that was how it began.
  bool replace_untold(std::int64_t incident, const std::string& channel);
  // Folds the delivery, and its like, into a summary when they are a storm.
  void fold_storm(const NewDelivery& delivery, const StormRule& rule);

  // Forgets what is over: messages that everybody took, after two days; incidents without a new
  // record, after 90.
  void prune(std::int64_t now);

 private:
  std::int64_t find_summary(const NewDelivery& delivery);
  std::int64_t add_summary(const NewDelivery& delivery, const StormRule& rule);

  StateDatabase& state_;
};

}  // namespace corvane::alert
