#include "companions/alert/ledger.h"

#include <algorithm>

namespace corvane::alert {

namespace {

constexpr std::int64_t kDay = 86'400;
constexpr std::int64_t kKeepTaken = 2 * kDay;  // longer than any storm's window
constexpr std::int64_t kForgetAfter = 90 * kDay;

#define INCIDENT_COLUMNS                                                              \
  "name, anomaly_id, last_anomaly, client, policy, policy_type, schedule_type, "      \
  "schedule_name, application_type, destination, has_stream, first_time, last_time, " \
  "severity, cause, records, is_open"

Incident read_incident(const Query& row) {
  Incident incident;
  incident.id = row.integer(0);
  incident.name = row.view(1);
  incident.anomaly_id = row.view(2);
  incident.last_anomaly = row.view(3);
  incident.stream = {row.text(4), row.text(5), row.text(6), row.text(7),
                     row.text(8), row.text(9), row.text(10)};
  incident.has_stream = row.integer(11) != 0;
  incident.first_time = row.integer(12);
  incident.last_time = row.integer(13);
  incident.severity = static_cast<int>(row.integer(14));
  incident.cause = row.view(15);
  incident.records = row.integer(16);
  incident.is_open = row.integer(17) != 0;
  return incident;
}

void bind_incident(Query& query, const Incident& incident) {
  const StreamKey& stream = incident.stream;
  for (const std::string* text :
       {&incident.name, &incident.anomaly_id, &incident.last_anomaly, &stream.client,
        &stream.policy, &stream.policy_type, &stream.schedule_type, &stream.schedule_name,
        &stream.app_type, &stream.destination}) {
    query.bind(*text);
  }
  query.bind(std::int64_t{incident.has_stream})
      .bind(incident.first_time)
      .bind(incident.last_time)
      .bind(std::int64_t{incident.severity})
      .bind(incident.cause)
      .bind(incident.records)
      .bind(std::int64_t{incident.is_open});
}

std::int64_t number(Kind kind) { return static_cast<std::int64_t>(kind); }

}  // namespace

bool Ledger::knows_record(const std::string& anomaly_id) {
  static constexpr char kSql[] = "SELECT 1 FROM record WHERE anomaly_id = ?";
  Query& asked = state_.query(kSql).bind(anomaly_id);
  const bool found = asked.step();
  asked.restart();
  return found;
}

void Ledger::add_record(const std::string& anomaly_id, std::size_t deliveries) {
  static constexpr char kSql[] = "INSERT INTO record VALUES (?, ?)";
  state_.query(kSql).bind(anomaly_id).bind(static_cast<std::int64_t>(deliveries)).run();
}

std::vector<std::string> Ledger::done_records(std::size_t most) {
  static constexpr char kSql[] = "SELECT anomaly_id FROM record WHERE pending <= 0 LIMIT ?";
  std::vector<std::string> done;
  Query& rows = state_.query(kSql).bind(static_cast<std::int64_t>(most));
  while (rows.step()) done.push_back(rows.text(0));
  return done;
}

void Ledger::forget_record(const std::string& anomaly_id) {
  static constexpr char kSql[] = "DELETE FROM record WHERE anomaly_id = ?";
  state_.query(kSql).bind(anomaly_id).run();
}

std::optional<Incident> Ledger::find_incident(const std::string& name) {
  static constexpr char kSql[] = "SELECT id, " INCIDENT_COLUMNS " FROM incident WHERE name = ?";
  Query& asked = state_.query(kSql).bind(name);
  if (!asked.step()) return std::nullopt;
  const Incident incident = read_incident(asked);
  asked.restart();
  return incident;
}

std::vector<Incident> Ledger::open_incidents() {
  static constexpr char kSql[] =
      "SELECT id, " INCIDENT_COLUMNS " FROM incident WHERE is_open = 1 ORDER BY id";
  std::vector<Incident> open;
  Query& rows = state_.query(kSql);
  while (rows.step()) open.push_back(read_incident(rows));
  return open;
}

void Ledger::put_incident(Incident& incident, std::int64_t now) {
  static constexpr char kInsert[] =
      "INSERT INTO incident (" INCIDENT_COLUMNS
      ", changed, until) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, 0)";
  static constexpr char kUpdate[] =
      "UPDATE incident SET (" INCIDENT_COLUMNS
      ") = (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?), changed = ?, until = 0 "
      "WHERE id = ?";
  const bool is_new = incident.id == 0;
  Query& query = state_.query(is_new ? kInsert : kUpdate);
  bind_incident(query, incident);
  query.bind(now);
  if (!is_new) query.bind(incident.id);
  query.run();
  if (is_new) incident.id = sqlite3_last_insert_rowid(state_.handle());
}

void Ledger::close_incident(std::int64_t id, std::int64_t until, std::int64_t now) {
  static constexpr char kSql[] =
      "UPDATE incident SET is_open = 0, until = ?, changed = ? WHERE id = ?";
  state_.query(kSql).bind(until).bind(now).bind(id).run();
}

int Ledger::told(std::int64_t incident, const std::string& channel) {
  static constexpr char kSql[] = "SELECT severity FROM told WHERE incident = ? AND channel = ?";
  Query& asked = state_.query(kSql).bind(incident).bind(channel);
  const int severity = asked.step() ? static_cast<int>(asked.integer(0)) : 0;
  asked.restart();
  return severity;
}

void Ledger::set_told(std::int64_t incident, const std::string& channel, int severity) {
  static constexpr char kSql[] = "INSERT OR REPLACE INTO told VALUES (?, ?, ?)";
  state_.query(kSql).bind(incident).bind(channel).bind(std::int64_t{severity}).run();
}

void Ledger::forget_told(std::int64_t incident) {
  static constexpr char kSql[] = "DELETE FROM told WHERE incident = ?";
  state_.query(kSql).bind(incident).run();
}

std::int64_t Ledger::add_message(std::int64_t incident, const std::string& record, int severity,
                                 std::int64_t created, const Words& words,
                                 const std::string& details) {
  static constexpr char kSql[] =
      "INSERT INTO message (incident, record, severity, created, subject, body, details) "
      "VALUES (?, ?, ?, ?, ?, ?, ?)";
  state_.query(kSql)
      .bind(incident)
      .bind(record)
      .bind(std::int64_t{severity})
      .bind(created)
      .bind(words.subject)
      .bind(words.body)
      .bind(details)
      .run();
  return sqlite3_last_insert_rowid(state_.handle());
}

void Ledger::add_delivery(const NewDelivery& delivery) {
  static constexpr char kSql[] =
      "INSERT INTO delivery (message, channel, kind, incident, severity, state, created, held, "
      "not_before, attempts, failing_since, reason, summary) "
      "VALUES (?, ?, ?, ?, ?, 0, ?, ?7, ?7, 0, 0, '', 0)";
  state_.query(kSql)
      .bind(delivery.message)
      .bind(delivery.channel)
      .bind(number(delivery.kind))
      .bind(delivery.incident)
      .bind(std::int64_t{delivery.severity})
      .bind(delivery.created)
      .bind(delivery.held)
      .run();
}

bool Ledger::replace_untold(std::int64_t incident, const std::string& channel) {
  static constexpr char kFind[] =
      "SELECT d.message, d.kind, m.record FROM delivery d JOIN message m ON m.id = d.message "
      "WHERE d.incident = ? AND d.channel = ? AND d.state = 0 AND d.attempts = 0 "
      "AND d.kind IN (1, 2)";
  static constexpr char kReplace[] =
      "UPDATE delivery SET state = 4 WHERE message = ? AND channel = ?";
  static constexpr char kCount[] = "UPDATE record SET pending = pending - 1 WHERE anomaly_id = ?";
  struct Untold {
    std::int64_t message;
    Kind kind;
    std::string record;
  };
  std::vector<Untold> untold;
  Query& rows = state_.query(kFind).bind(incident).bind(channel);
  while (rows.step()) {
    untold.push_back({rows.integer(0), static_cast<Kind>(rows.integer(1)), rows.text(2)});
  }
  bool had_begin = false;
  for (const Untold& one : untold) {
    state_.query(kReplace).bind(one.message).bind(channel).run();
    state_.query(kCount).bind(one.record).run();
    had_begin = had_begin || one.kind == Kind::kBegin;
  }
  return had_begin;
}

void Ledger::fold_storm(const NewDelivery& delivery, const StormRule& rule) {
  static constexpr char kCount[] =
      "SELECT count(*) FROM (SELECT 1 FROM delivery WHERE channel = ? AND kind = ? AND held = ? "
      "AND created > ? AND state <> 4 LIMIT ?)";
  static constexpr char kFoldOne[] =
      "UPDATE delivery SET state = 1, summary = ? WHERE message = ? AND channel = ?";
  static constexpr char kFoldAll[] =
      "UPDATE delivery SET state = 1, summary = ? WHERE channel = ? AND kind = ? AND held = ? "
      "AND created > ? AND state = 0 AND attempts = 0";
  static constexpr char kPostpone[] =
      "UPDATE delivery SET severity = max(severity, ?), "
      "not_before = max(not_before, min(?, created + ?)) WHERE message = ? AND channel = ?";
  // Everything that one quiet night holds back comes at once.
  const std::int64_t since = delivery.held != 0 ? 0 : delivery.created - rule.window;
  Query& count = state_.query(kCount)
                     .bind(delivery.channel)
                     .bind(number(delivery.kind))
                     .bind(delivery.held)
                     .bind(since)
                     .bind(rule.limit + 1);
  count.step();
  const bool is_storm = count.integer(0) > rule.limit;
  count.restart();
  if (!is_storm) return;

  std::int64_t summary = find_summary(delivery);
  if (summary != 0) {
    state_.query(kFoldOne).bind(summary).bind(delivery.message).bind(delivery.channel).run();
  } else {
    summary = add_summary(delivery, rule);
    state_.query(kFoldAll)
        .bind(summary)
        .bind(delivery.channel)
        .bind(number(delivery.kind))
        .bind(delivery.held)
        .bind(since)
        .run();
  }
  state_.query(kPostpone)
      .bind(std::int64_t{delivery.severity})
      .bind(delivery.created + rule.settle)
      .bind(rule.longest_settle)
      .bind(summary)
      .bind(delivery.channel)
      .run();
}

// A summary that has not been sent yet takes more.
std::int64_t Ledger::find_summary(const NewDelivery& delivery) {
  static constexpr char kSql[] =
      "SELECT message FROM delivery WHERE channel = ? AND kind = 4 AND held = ? AND state = 0 "
      "AND attempts = 0";
  return state_.query(kSql).bind(delivery.channel).bind(delivery.held).first_integer();
}

std::int64_t Ledger::add_summary(const NewDelivery& delivery, const StormRule& rule) {
  static constexpr char kLast[] =
      "SELECT max(created) FROM delivery WHERE channel = ? AND kind = 4 AND held = 0";
  static constexpr char kWait[] =
      "UPDATE delivery SET not_before = max(not_before, ?) WHERE message = ? AND channel = ?";
  const std::int64_t last = state_.query(kLast).bind(delivery.channel).first_integer();

  NewDelivery summary = delivery;
  summary.kind = Kind::kSummary;
  summary.incident = 0;
  summary.message = add_message(0, "", delivery.severity, delivery.created, {}, "");
  add_delivery(summary);
  if (delivery.held == 0 && last > 0 && last <= delivery.created) {
    state_.query(kWait).bind(last + rule.window).bind(summary.message).bind(summary.channel).run();
  }
  return summary.message;
}

void Ledger::prune(std::int64_t now) {
  // What still waits, was given up or goes with a summary is not over.
  static constexpr char kDeliveries[] =
      "DELETE FROM delivery WHERE message IN (SELECT id FROM message m WHERE created < ? AND NOT "
      "EXISTS (SELECT 1 FROM delivery d WHERE d.message = m.id AND d.state IN (0, 1, 3)))";
  static constexpr char kMessages[] =
      "DELETE FROM message WHERE created < ? AND NOT EXISTS "
      "(SELECT 1 FROM delivery d WHERE d.message = message.id)";
  static constexpr char kClose[] =
      "UPDATE incident SET is_open = 0, changed = ?1 WHERE is_open = 1 AND changed < ?2";
  static constexpr char kIncidents[] =
      "DELETE FROM incident WHERE is_open = 0 AND changed < ? AND NOT EXISTS "
      "(SELECT 1 FROM delivery d WHERE d.incident = incident.id)";
  static constexpr char kTold[] =
      "DELETE FROM told WHERE incident NOT IN (SELECT id FROM incident WHERE is_open = 1)";
  Transaction transaction(state_.handle());
  state_.query(kDeliveries).bind(now - kKeepTaken).run();
  state_.query(kMessages).bind(now - kKeepTaken).run();
  state_.query(kClose).bind(now).bind(now - kForgetAfter).run();
  state_.query(kIncidents).bind(now - kForgetAfter).run();
  state_.query(kTold).run();
  transaction.commit();
}

}  // namespace corvane::alert
