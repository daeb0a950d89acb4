#include "companions/alert/incident/incident_book.h"

namespace corvane::alert {

namespace {

#define INCIDENT_COLUMNS                                                              \
  "name, anomaly_id, last_anomaly, client, policy, policy_type, schedule_type, "      \
  "schedule_name, application_type, destination, has_stream, first_time, last_time, " \
  "severity, cause, records, until, is_open, ended_by"

KnownIncident read_incident(const Query& row) {
  KnownIncident incident;
  incident.id = row.integer(0);
  incident.name = row.view(1);
  incident.anomaly_id = row.view(2);
  incident.last_anomaly = row.view(3);
  incident.stream = {row.text(4), row.text(5), row.text(6), row.text(7),
                     row.text(8), row.text(9), row.text(10)};
  incident.has_stream = row.integer(11) != 0;
  incident.first_time = row.integer(12);
  incident.last_time = row.integer(13);
  incident.severity = severity_of(row.integer(14));
  if (!row.view(15).empty()) incident.cause = cause_of(row.view(15));
  incident.records = row.integer(16);
  incident.until = row.integer(17);
  incident.end = static_cast<IncidentEnd>(row.integer(19));
  return incident;
}

void bind_incident(Query& query, const KnownIncident& incident) {
  query.bind(incident.name).bind(incident.anomaly_id).bind(incident.last_anomaly);
  bind_stream_key(query, incident.stream);
  query.bind(std::int64_t{incident.has_stream})
      .bind(incident.first_time)
      .bind(incident.last_time)
      .bind(incident.severity)
      .bind(incident.cause ? id_of(*incident.cause) : "")
      .bind(incident.records)
      .bind(incident.until)
      .bind(std::int64_t{incident.is_open()})
      .bind(incident.end);
}

}  // namespace

bool IncidentBook::knows_record(const std::string& anomaly_id) {
  static constexpr char kSql[] = "SELECT 1 FROM record WHERE anomaly_id = ?";
  return state_.query(kSql).bind(anomaly_id).has_row();
}

void IncidentBook::add_record(const std::string& anomaly_id, std::int64_t incident,
                              std::size_t deliveries) {
  static constexpr char kSql[] =
      "INSERT INTO record (anomaly_id, incident, pending, is_marked) VALUES (?, ?, ?, 0)";
  state_.query(kSql)
      .bind(anomaly_id)
      .bind(incident)
      .bind(static_cast<std::int64_t>(deliveries))
      .run();
}

std::vector<std::string> IncidentBook::done_records(std::size_t most) {
  static constexpr char kSql[] =
      "SELECT anomaly_id FROM record WHERE pending <= 0 AND is_marked = 0 LIMIT ?";
  std::vector<std::string> done;
  Query& rows = state_.query(kSql).bind(static_cast<std::int64_t>(most));
  while (rows.step()) done.push_back(rows.text(0));
  return done;
}

void IncidentBook::set_marked(const std::string& anomaly_id, bool is_marked) {
  static constexpr char kSql[] =
      "UPDATE record SET is_marked = ?1 WHERE anomaly_id = ?2 AND is_marked <> ?1";
  state_.query(kSql).bind(std::int64_t{is_marked}).bind(anomaly_id).run();
}

std::string IncidentBook::incident_of_record(const std::string& anomaly_id) {
  static constexpr char kSql[] =
      "SELECT i.name FROM record r JOIN incident i ON i.id = r.incident WHERE r.anomaly_id = ?";
  Query& row = state_.query(kSql).bind(anomaly_id);
  std::string name = row.step() ? row.text(0) : "";
  row.restart();
  return name;
}

std::vector<KnownIncident> IncidentBook::read_incidents(Query& rows) {
  std::vector<KnownIncident> incidents;
  while (rows.step()) incidents.push_back(read_incident(rows));
  return incidents;
}

std::optional<KnownIncident> IncidentBook::find_incident(const std::string& name) {
  static constexpr char kSql[] = "SELECT id, " INCIDENT_COLUMNS " FROM incident WHERE name = ?";
  const std::vector<KnownIncident> found = read_incidents(state_.query(kSql).bind(name));
  return found.empty() ? std::nullopt : std::optional(found.front());
}

std::vector<KnownIncident> IncidentBook::open_incidents() {
  static constexpr char kSql[] =
      "SELECT id, " INCIDENT_COLUMNS " FROM incident WHERE is_open = 1 ORDER BY id";
  return read_incidents(state_.query(kSql));
}

std::vector<KnownIncident> IncidentBook::ended_by(IncidentEnd end) {
  static constexpr char kSql[] = "SELECT id, " INCIDENT_COLUMNS
                                 " FROM incident WHERE is_open = 0 AND ended_by = ? ORDER BY id";
  return read_incidents(state_.query(kSql).bind(end));
}

void IncidentBook::put_incident(KnownIncident& incident, std::int64_t now) {
  static constexpr char kInsert[] =
      "INSERT INTO incident (" INCIDENT_COLUMNS
      ", changed) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";
  static constexpr char kUpdate[] =
      "UPDATE incident SET (" INCIDENT_COLUMNS
      ") = (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?), changed = ? WHERE id = ?";
  const bool is_new = incident.id == 0;
  Query& query = state_.query(is_new ? kInsert : kUpdate);
  bind_incident(query, incident);
  query.bind(now);
  if (!is_new) query.bind(incident.id);
  query.run();
  if (is_new) incident.id = state_.last_rowid();
}

void IncidentBook::set_end(std::int64_t id, IncidentEnd end, std::int64_t until, std::int64_t now) {
  static constexpr char kSql[] =
      "UPDATE incident SET is_open = ?, ended_by = ?, until = ?, changed = ? WHERE id = ?";
  state_.query(kSql)
      .bind(std::int64_t{end == IncidentEnd::kNone})
      .bind(end)
      .bind(until)
      .bind(now)
      .bind(id)
      .run();
}

std::vector<KnownIncident> IncidentBook::unchanged_since(std::int64_t time) {
  static constexpr char kSql[] =
      "SELECT id, " INCIDENT_COLUMNS " FROM incident WHERE changed < ? ORDER BY id";
  return read_incidents(state_.query(kSql).bind(time));
}

void IncidentBook::forget(std::int64_t id) {
  static constexpr char kDeliveries[] = "SELECT 1 FROM delivery WHERE incident = ?";
  static constexpr char kRecords[] = "DELETE FROM record WHERE incident = ?";
  static constexpr char kIncident[] = "DELETE FROM incident WHERE id = ?";
  if (state_.query(kDeliveries).bind(id).has_row()) return;
  forget_told(id);
  state_.query(kRecords).bind(id).run();
  state_.query(kIncident).bind(id).run();
}

Severity IncidentBook::told(std::int64_t incident, const std::string& channel) {
  static constexpr char kSql[] = "SELECT severity FROM told WHERE incident = ? AND channel = ?";
  return static_cast<Severity>(state_.query(kSql).bind(incident).bind(channel).first_integer());
}

void IncidentBook::set_told(std::int64_t incident, const std::string& channel, Severity severity) {
  static constexpr char kSql[] = "INSERT OR REPLACE INTO told VALUES (?, ?, ?)";
  state_.query(kSql).bind(incident).bind(channel).bind(severity).run();
}

void IncidentBook::forget_told(std::int64_t incident) {
  static constexpr char kSql[] = "DELETE FROM told WHERE incident = ?";
  state_.query(kSql).bind(incident).run();
}

}  // namespace corvane::alert
