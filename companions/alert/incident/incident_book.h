// The records that the alerts have read, and their incidents, in the alerts' database.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "companions/alert/state_database.h"
#include "finding/incident.h"

namespace corvane::alert {

// An incident as people were notified of it.
struct KnownIncident {
  std::int64_t id = 0;  // 0: not stored yet
  std::string name;
  std::string anomaly_id;    // of its first record; its id at the web service
  std::string last_anomaly;  // its latest record
  StreamKey stream;
  bool has_stream = false;
  std::int64_t first_time = 0;  // backup times
  std::int64_t last_time = 0;
  Severity severity = Severity::kNone;
  std::optional<CauseKind> cause;
  std::int64_t records = 0;
  // Backup time of the normal backup that resolved it, or that is known to be later than its last
  // record; 0: none is known.
  std::int64_t until = 0;
  IncidentEnd end = IncidentEnd::kNone;

  bool is_open() const { return end == IncidentEnd::kNone; }
};

// For use inside transactions of the caller. Everything throws QueryError.
class IncidentBook {
 public:
  explicit IncidentBook(StateDatabase& state) : state_(state) {}

  // --- Records ---

  bool knows_record(const std::string& anomaly_id);
  // It is done when `deliveries` channels have delivered their part.
  void add_record(const std::string& anomaly_id, std::int64_t incident, std::size_t deliveries);
  // Those that every channel has delivered and that are not marked as processed yet, at most
  // `most`.
  std::vector<std::string> done_records(std::size_t most);
  void set_marked(const std::string& anomaly_id, bool is_marked);
  // The name of its incident; empty when the record is not known.
  std::string incident_of_record(const std::string& anomaly_id);

  // --- Incidents ---

  std::optional<KnownIncident> find_incident(const std::string& name);
  std::vector<KnownIncident> open_incidents();
  std::vector<KnownIncident> ended_by(IncidentEnd end);
  // Adds it and sets its id, or replaces the one with its id.
  void put_incident(KnownIncident& incident, std::int64_t now);
  // Stores how and when it was resolved; kNone makes it ongoing again.
  void set_end(std::int64_t id, IncidentEnd end, std::int64_t until, std::int64_t now);
  // Those that have not changed since `time`.
  std::vector<KnownIncident> unchanged_since(std::int64_t time);
  // Deletes it with its records, unless there are still deliveries of it.
  void forget(std::int64_t id);

  // --- Who was notified ---

  // The severity at which the channel was notified of the incident; kNone: it was not.
  Severity told(std::int64_t incident, const std::string& channel);
  void set_told(std::int64_t incident, const std::string& channel, Severity severity);
  void forget_told(std::int64_t incident);

 private:
  std::vector<KnownIncident> read_incidents(Query& rows);

  StateDatabase& state_;
};

}  // namespace corvane::alert
