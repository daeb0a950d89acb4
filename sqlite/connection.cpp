#include "sqlite/connection.h"

#include <stdexcept>

namespace corvane {

namespace {

int flags_of(Connection::Access access) {
  constexpr int kCommon = SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  switch (access) {
    case Connection::Access::kRead:
      return kCommon | SQLITE_OPEN_READONLY;
    case Connection::Access::kWrite:
      return kCommon | SQLITE_OPEN_READWRITE;
    case Connection::Access::kCreate:
      return kCommon | SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  }
  throw std::invalid_argument("no such access");
}

}  // namespace

Connection::Connection(const std::string& name, Access access, std::chrono::milliseconds patience) {
  sqlite3* handle = nullptr;
  const int result = sqlite3_open_v2(name.c_str(), &handle, flags_of(access), nullptr);
  handle_.reset(handle);  // SQLite returns a connection even if it cannot open the file
  if (result != SQLITE_OK) throw QueryError("Could not open database " + name, handle);
  sqlite3_busy_timeout(handle, static_cast<int>(patience.count()));
}

Query& Connection::query(const char* sql) {
  for (const auto& known : queries_) {
    if (known->sql() == sql) return known->restart();
  }
  queries_.push_back(std::make_unique<Query>(handle(), sql));
  return *queries_.back();
}

void Connection::execute(const char* sql) {
  if (sqlite3_exec(handle(), sql, nullptr, nullptr, nullptr) == SQLITE_OK) return;
  throw QueryError(std::string("Query failed: ") + sqlite3_errmsg(handle()), handle());
}

std::int64_t Connection::data_version() {
  static constexpr char kSql[] = "PRAGMA data_version";
  return number(kSql);
}

Transaction::Transaction(Connection& connection, Kind kind) : connection_(connection) {
  static constexpr char kWrite[] = "BEGIN IMMEDIATE";
  static constexpr char kSnapshot[] = "BEGIN";
  connection_.query(kind == Kind::kWrite ? kWrite : kSnapshot).run();
}

Transaction::~Transaction() {
  // SQLite may already have rolled back, on a full disk for example.
  if (committed_ || sqlite3_get_autocommit(connection_.handle()) != 0) return;
  sqlite3_exec(connection_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
  static constexpr char kCommit[] = "COMMIT";
  connection_.query(kCommit).run();
  committed_ = true;
}

}  // namespace corvane
