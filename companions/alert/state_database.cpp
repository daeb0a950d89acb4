#include "companions/alert/state_database.h"

#include <array>
#include <cstdio>
#include <random>

namespace corvane::alert {

namespace {

constexpr int kBusyTimeoutMs = 5000;

constexpr std::array kSchema{
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

constexpr char kPutOnce[] = "INSERT OR IGNORE INTO meta VALUES (?, ?)";
constexpr char kGet[] = "SELECT value FROM meta WHERE name = ?";
constexpr char kTag[] = "tag";

std::string random_tag() {
  std::random_device random;
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%08x", random());
  return text.data();
}

}  // namespace

StateDatabase::StateDatabase(const std::string& path, bool create)
    : database_(path,
                SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0) | SQLITE_OPEN_NOMUTEX) {
  sqlite3_busy_timeout(handle(), kBusyTimeoutMs);
  if (!create) return;
  // A power failure may take the last commits back: what they noted is told once more.
  Query(handle(), "PRAGMA journal_mode=WAL").run();
  database_.execute_query("PRAGMA synchronous=NORMAL;");
  Transaction transaction(handle());
  for (const char* statement : kSchema) Query(handle(), statement).run();
  query(kPutOnce).bind(kTag).bind(random_tag()).run();
  transaction.commit();
}

StateDatabase::~StateDatabase() { queries_.clear(); }  // before the connection

Query& StateDatabase::query(const char* sql) { return queries_.get(handle(), sql); }

std::int64_t StateDatabase::data_version() {
  static constexpr char kSql[] = "PRAGMA data_version";
  return query(kSql).first_integer();
}

std::int64_t StateDatabase::number(const char* name) {
  return query(kGet).bind(name).first_integer();
}

void StateDatabase::set_number(const char* name, std::int64_t number) {
  static constexpr char kSql[] = "INSERT OR REPLACE INTO meta VALUES (?, ?)";
  query(kSql).bind(name).bind(number).run();
}

std::string StateDatabase::tag() {
  Query& asked = query(kGet).bind(kTag);
  std::string text = asked.step() ? asked.text(0) : "";
  asked.restart();
  return text;
}

}  // namespace corvane::alert
