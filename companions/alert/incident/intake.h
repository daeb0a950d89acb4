// From the anomaly database into the alerts' database: which incident a record belongs to, who is
// notified of what, and when an incident is resolved.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "companions/alert/delivery/delivery_queue.h"
#include "companions/alert/incident/incident_book.h"
#include "companions/alert/settings_file.h"
#include "companions/alert/state_database.h"
#include "finding/anomaly.h"

namespace corvane::alert {

struct PassCounts {
  std::size_t records = 0;    // read
  std::size_t incidents = 0;  // new ones among them
  std::size_t ended = 0;
  std::size_t processed = 0;  // marked
};

// Everything throws QueryError. What was committed before stays, and the next pass continues from
// there. Logs only what people said about an incident.
class Intake {
 public:
  // `database` is the path of the anomaly database. The summary of a storm waits `settle` seconds
  // for more. `stop` is called between records; a pass that is stopped leaves the rest to the next.
  Intake(const std::string& database, StateDatabase& state, std::string master, std::int64_t settle,
         std::function<bool()> stop);

  void set_settings(const Settings& settings) { settings_ = settings; }

  // True when the anomaly database has changed since the last complete pass.
  bool has_news();
  PassCounts pass(std::int64_t now);

  // Sets PROCESSED to 1 for records that every channel has delivered. Returns how many.
  std::size_t mark_processed();

  // Deletes messages that are no longer needed, dead letters of channels that have been
  // missing from the settings for a week, and incidents whose records were purged. The week begins
  // with the first call that finds the channel missing.
  void prune(std::int64_t now);

 private:
  void take_in_new(PassCounts& counts, std::int64_t now);
  bool take_in_next(const std::string& id, PassCounts& counts, std::int64_t now);
  void take_in(AnomalyRow row, PassCounts& counts, std::int64_t now);
  KnownIncident incident_of(const Anomaly& anomaly, std::int64_t now);
  std::size_t tell_people(const KnownIncident& incident, Severity severity, std::int64_t message,
                          std::int64_t now);
  void deliver(const NewDelivery& delivery);

  std::string incident_of_record(const std::string& anomaly_id);
  void follow_feedback(std::int64_t now);
  static void say_false_positive(const KnownIncident& incident);
  void reopen(const KnownIncident& incident, std::int64_t now);
  void resolve_ended(PassCounts& counts, std::int64_t now);
  bool end(const KnownIncident& incident, std::int64_t accepted, std::int64_t now);
  bool is_removed(const std::string& channel, std::int64_t now);
  void drop_dead_letters(std::int64_t now);
  std::optional<BackupReference> adopted_with(const std::string& first_record);

  StateDatabase& state_;
  Connection database_;
  IncidentBook book_;
  DeliveryQueue queue_;
  std::string master_;
  std::int64_t settle_;
  std::function<bool()> stop_;
  Settings settings_;
  std::optional<std::int64_t> seen_version_;
  // Names of the incidents with a record that is marked as a false positive, as of the last pass.
  std::unordered_set<std::string> false_positives_;
  // Incident names by record, for records that were processed before the alerts kept records.
  std::unordered_map<std::string, std::string> former_records_;
};

}  // namespace corvane::alert
