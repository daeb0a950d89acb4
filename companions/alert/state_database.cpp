#include "companions/alert/state_database.h"

#include <array>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "companions/alert/channel/message.h"
#include "finding/incident.h"

namespace corvane::alert {

namespace {

constexpr std::int64_t kVersion = 1;  // PRAGMA user_version

// As the first version created it.
constexpr std::array kFirstSchema{
    "CREATE TABLE IF NOT EXISTS meta (name TEXT PRIMARY KEY NOT NULL, value NOT NULL)",
    "CREATE TABLE IF NOT EXISTS record (anomaly_id TEXT PRIMARY KEY NOT NULL, "
    "pending INT NOT NULL) WITHOUT ROWID",
    "CREATE INDEX IF NOT EXISTS record_done ON record (pending) WHERE pending <= 0",
    "CREATE TABLE IF NOT EXISTS incident (id INTEGER PRIMARY KEY AUTOINCREMENT, "
    "name TEXT UNIQUE NOT NULL, anomaly_id TEXT NOT NULL, last_anomaly TEXT NOT NULL, "
    "client TEXT NOT NULL, policy TEXT NOT NULL, policy_type TEXT NOT NULL, "
    "schedule_type TEXT NOT NULL, schedule_name TEXT NOT NULL, application_type TEXT NOT NULL, "
    "destination TEXT NOT NULL, has_stream INT NOT NULL, first_time INT NOT NULL, "
    "last_time INT NOT NULL, severity INT NOT NULL, cause TEXT NOT NULL, records INT NOT NULL, "
    "until INT NOT NULL, is_open INT NOT NULL, changed INT NOT NULL)",
    "CREATE INDEX IF NOT EXISTS incident_open ON incident (id) WHERE is_open = 1",
    "CREATE INDEX IF NOT EXISTS incident_closed ON incident (changed) WHERE is_open = 0",
    "CREATE TABLE IF NOT EXISTS message (id INTEGER PRIMARY KEY AUTOINCREMENT, "
    "incident INT NOT NULL, record TEXT NOT NULL, severity INT NOT NULL, created INT NOT NULL, "
    "subject TEXT NOT NULL, body TEXT NOT NULL, details TEXT NOT NULL)",
    "CREATE INDEX IF NOT EXISTS message_created ON message (created)",
    "CREATE TABLE IF NOT EXISTS delivery (message INT NOT NULL, channel TEXT NOT NULL, "
    "kind INT NOT NULL, incident INT NOT NULL, severity INT NOT NULL, state INT NOT NULL, "
    "created INT NOT NULL, held INT NOT NULL, not_before INT NOT NULL, attempts INT NOT NULL, "
    "failing_since INT NOT NULL, reason TEXT NOT NULL, summary INT NOT NULL, "
    "PRIMARY KEY (message, channel)) WITHOUT ROWID",
    "CREATE INDEX IF NOT EXISTS delivery_open ON delivery (channel, state, attempts, message)",
    "CREATE INDEX IF NOT EXISTS delivery_incident ON delivery (incident, channel, state)",
    "CREATE INDEX IF NOT EXISTS delivery_summary ON delivery (summary) WHERE summary <> 0",
    "CREATE INDEX IF NOT EXISTS delivery_failing ON delivery (channel, failing_since) "
    "WHERE failing_since > 0",
    "CREATE INDEX IF NOT EXISTS delivery_recent ON delivery (channel, kind, held, created)",
    "CREATE TABLE IF NOT EXISTS told (incident INT NOT NULL, channel TEXT NOT NULL, "
    "severity INT NOT NULL, PRIMARY KEY (incident, channel)) WITHOUT ROWID",
    "CREATE TABLE IF NOT EXISTS channel (name TEXT PRIMARY KEY NOT NULL, failures INT NOT NULL, "
    "paused_until INT NOT NULL, failing_since INT NOT NULL, last_error TEXT NOT NULL, "
    "last_success INT NOT NULL, taken INT NOT NULL) WITHOUT ROWID",
};

// To version 1: why an incident is resolved, and the incident of each record. Incidents that people
// closed have the time of that as their end, and later records may have come since. Incidents that
// were closed because nothing happened for long have no end and are ongoing. To find normal backups
// of these the whole history is read again.
constexpr std::array kToVersion1{
    "ALTER TABLE incident ADD COLUMN ended_by INT NOT NULL DEFAULT 0",
    "UPDATE incident SET ended_by = iif(until = changed OR until <= last_time, 3, 1) "
    "WHERE is_open = 0 AND until > 0",
    "UPDATE incident SET is_open = 1 WHERE is_open = 0 AND until = 0",
    "DELETE FROM meta WHERE name = 'history'",
    "DROP INDEX incident_closed",
    "CREATE INDEX incident_changed ON incident (changed)",
    "CREATE INDEX incident_ended ON incident (ended_by) WHERE is_open = 0",
    "ALTER TABLE record ADD COLUMN incident INT NOT NULL DEFAULT 0",
    "ALTER TABLE record ADD COLUMN is_marked INT NOT NULL DEFAULT 0",
    "CREATE INDEX message_record ON message (record)",
    "UPDATE record SET incident = coalesce((SELECT max(m.incident) FROM message m "
    "WHERE m.record = record.anomaly_id), 0)",
    "DROP INDEX message_record",
    "DROP INDEX record_done",
    "CREATE INDEX record_done ON record (pending) WHERE pending <= 0 AND is_marked = 0",
    "CREATE INDEX record_incident ON record (incident)",
    "PRAGMA user_version = 1",
};
static_assert(static_cast<int>(IncidentEnd::kUsualBackup) == 1);
static_assert(static_cast<int>(IncidentEnd::kFalsePositive) == 3);

constexpr char kPutOnce[] = "INSERT OR IGNORE INTO meta VALUES (?, ?)";
constexpr char kTag[] = "tag";

std::string random_tag() {
  std::random_device random;
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%08x", random());
  return text.data();
}

int number_named(std::string_view name) {
  constexpr std::array<std::pair<std::string_view, DeliveryState>, 5> kStates{
      {{"waiting", DeliveryState::kWaiting},
       {"folded", DeliveryState::kFolded},
       {"delivered", DeliveryState::kDelivered},
       {"given_up", DeliveryState::kGivenUp},
       {"replaced", DeliveryState::kReplaced}}};
  for (const auto& [known, state] : kStates) {
    if (name == known) return static_cast<int>(state);
  }
  for (int number = 0; number <= static_cast<int>(Kind::kTest); ++number) {
    if (name == name_of(static_cast<Kind>(number))) return number;
  }
  throw std::logic_error("no state or kind is called " + std::string(name));
}

}  // namespace

std::string typed_sql(std::string_view text) {
  std::string sql;
  for (;;) {
    const std::size_t begin = text.find('{');
    sql += text.substr(0, begin);
    if (begin == std::string_view::npos) return sql;
    const std::size_t end = text.find('}', begin);
    if (end == std::string_view::npos) throw std::logic_error("SQL with an open brace");
    sql += std::to_string(number_named(text.substr(begin + 1, end - begin - 1)));
    text.remove_prefix(end + 1);
  }
}

// What a power failure undoes and was delivered is sent once more.
StateDatabase::StateDatabase(const std::string& path, bool create)
    : OwnDatabase(path, create ? Access::kCreate : Access::kWrite, kVersion) {
  if (!create) return;
  Transaction transaction(*this);
  if (version() == 0) {
    for (const char* statement : kFirstSchema) execute(statement);
    for (const char* statement : kToVersion1) execute(statement);
  }
  query(kPutOnce).bind(kTag).bind(random_tag()).run();
  transaction.commit();
}

std::string StateDatabase::tag() { return text_of(kTag); }

}  // namespace corvane::alert
