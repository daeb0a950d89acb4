// From the anomaly database into the state database: which incident a record belongs to, who is to
// be told what, and when an incident is over.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "companions/alert/anomaly.h"
#include "companions/alert/anomaly_store.h"
#include "companions/alert/ledger.h"
#include "companions/alert/settings_file.h"
#include "companions/alert/state_database.h"

namespace corvane::alert {

struct PassCounts {
  std::size_t records = 0;    // taken in
  std::size_t incidents = 0;  // new ones among them
  std::size_t ended = 0;
  std::size_t processed = 0;  // marked
};

// Everything throws sqlite_exception; what was committed before stays, and the next pass goes on
// from there. Logs nothing but what people said about an incident.
class Intake {
 public:
  // `database` is the anomaly database. A storm's summary waits `settle` seconds for more. `stop`
  // is asked between records; a pass that is stopped leaves the rest for the next.
  Intake(const std::string& database, StateDatabase& state, std::string master, std::int64_t settle,
         std::function<bool()> stop);

  void set_settings(const Settings& settings) { settings_ = settings; }

  // The anomaly database has changed since the last pass was complete.
  bool has_news();
  PassCounts pass(std::int64_t now);

  // What every channel took becomes PROCESSED 1. Gives how many.
  std::size_t mark_processed();

 private:
  void take_in_new(PassCounts& counts, std::int64_t now);
  void take_in(const AnomalyRow& row, PassCounts& counts, std::int64_t now);
  Incident incident_of(const Anomaly& anomaly);
  std::size_t tell_people(const Incident& incident, const Anomaly& anomaly, std::int64_t message,
                          std::int64_t now);
  void deliver(const NewDelivery& delivery);
  void close_false_positives(std::vector<Incident>& open, std::int64_t now);
  void end_what_is_over(PassCounts& counts, std::int64_t now);
  void end(const Incident& incident, std::int64_t until, std::int64_t now);

  StateDatabase& state_;
  AnomalyStore store_;
  Ledger ledger_;
  std::string master_;
  std::int64_t settle_;
  std::function<bool()> stop_;
  Settings settings_;
  std::int64_t seen_version_ = -1;
};

}  // namespace corvane::alert
