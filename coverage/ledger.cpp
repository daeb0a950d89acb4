#include "coverage/ledger.h"

#include <array>

#include "companions/common/damaged_database.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"

namespace corvane::coverage {

namespace {

constexpr std::int64_t kVersion = 1;  // PRAGMA user_version

// gather   a range that the service asked for, and what came of it
// span     the time whose backups were gathered, by the end of each backup; that of which the
//          server was asked whether any is missing; that which was gathered because of the answer
// hole     time that is not covered: how often it was gathered again, and when that is tried next
// lost     holes that are not tried any more
// missing  backups that the server has, and the anomaly database has not
// look     when the ledger was brought up to date
// act      what cvanomalyheal did
constexpr std::array kSchema{
    "CREATE TABLE meta (name TEXT PRIMARY KEY NOT NULL, value NOT NULL) WITHOUT ROWID",
    "CREATE TABLE gather (id INTEGER PRIMARY KEY, is_live INT NOT NULL, start INT NOT NULL, "
    "until INT NOT NULL, began INT NOT NULL, ended INT NOT NULL, outcome INT NOT NULL, "
    "reason TEXT NOT NULL)",
    "CREATE TABLE span (kind TEXT NOT NULL, start INT NOT NULL, until INT NOT NULL, "
    "PRIMARY KEY (kind, start)) WITHOUT ROWID",
    "CREATE TABLE hole (start INTEGER PRIMARY KEY, until INT NOT NULL, found INT NOT NULL, "
    "attempts INT NOT NULL, next_try INT NOT NULL, reason TEXT NOT NULL)",
    "CREATE TABLE lost (start INTEGER PRIMARY KEY, until INT NOT NULL, lost INT NOT NULL, "
    "reason TEXT NOT NULL)",
    "CREATE TABLE missing (unique_key TEXT PRIMARY KEY NOT NULL, start INT NOT NULL, "
    "until INT NOT NULL, found INT NOT NULL, attempts INT NOT NULL, next_try INT NOT NULL, "
    "answers INT NOT NULL, state INT NOT NULL) WITHOUT ROWID",
    "CREATE INDEX missing_state ON missing (state)",
    "CREATE TABLE look (id INTEGER PRIMARY KEY, time INT NOT NULL)",
    "CREATE TABLE act (id INTEGER PRIMARY KEY, time INT NOT NULL, text TEXT NOT NULL)",
    "PRAGMA user_version = 1",
};

constexpr std::int64_t kLooksKept = 1000;

}  // namespace

Ledger::Ledger(const std::string& path, bool create)
    : OwnDatabase(path, create ? Access::kCreate : Access::kRead, kVersion) {
  if (!create) return;
  Transaction transaction(*this);
  if (version() == 0) {
    for (const char* statement : kSchema) execute(statement);
  }
  transaction.commit();
}

bool Ledger::is_sound() {
  Query& check = query("PRAGMA quick_check(1)");
  const bool is_sound = check.step() && check.text(0) == "ok";
  check.restart();
  return is_sound;
}

void Ledger::add_look(std::int64_t now) {
  static constexpr char kSql[] = "INSERT INTO look (time) VALUES (?)";
  static constexpr char kForget[] = "DELETE FROM look WHERE id <= last_insert_rowid() - ?";
  query(kSql).bind(now).run();
  query(kForget).bind(kLooksKept).run();
}

std::int64_t Ledger::last_look() {
  static constexpr char kSql[] = "SELECT time FROM look ORDER BY id DESC LIMIT 1";
  return query(kSql).first_integer();
}

std::int64_t Ledger::forget_looks_after(std::int64_t now) {
  static constexpr char kForget[] = "DELETE FROM look WHERE time > ?";
  query(kForget).bind(now).run();
  return last_look();
}

void Ledger::note(std::int64_t now, std::string_view text) {
  static constexpr char kSql[] = "INSERT INTO act (time, text) VALUES (?, ?)";
  query(kSql).bind(now).bind(text).run();
}

std::vector<Act> Ledger::acts(int most) {
  static constexpr char kSql[] = "SELECT time, text FROM act ORDER BY id DESC LIMIT ?";
  std::vector<Act> all;
  Query& rows = query(kSql).bind(std::int64_t{most});
  while (rows.step()) all.push_back({rows.integer(0), rows.text(1)});
  return all;
}

void Ledger::forget_acts(std::int64_t before) {
  static constexpr char kSql[] = "DELETE FROM act WHERE time < ?";
  query(kSql).bind(before).run();
}

Ledger open_ledger(const std::string& path) {
  try {
    Ledger ledger(path);
    if (ledger.is_sound()) return ledger;
  } catch (const QueryError& error) {
    if (!error.is_damage()) throw;
  }
  move_damaged_database_aside(path);
  logmsgf(kLogError, kHealProgram, "%s is damaged. It was moved to %s.damaged", path.c_str(),
          path.c_str());
  return Ledger(path);
}

}  // namespace corvane::coverage
