#include "embedded_host/sql.h"

#include <cstring>

namespace corvane::host {

namespace {

constexpr int kBusyMilliseconds = 5000;

int open_flags(OpenMode mode) {
  switch (mode) {
    case OpenMode::kRead:
      return SQLITE_OPEN_READONLY;
    case OpenMode::kWrite:
      return SQLITE_OPEN_READWRITE;
    case OpenMode::kCreate:
      return SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  }
  return SQLITE_OPEN_READONLY;
}

}  // namespace

Database::Database(const std::string& path, OpenMode mode) {
  sqlite3* raw = nullptr;
  const int code =
      sqlite3_open_v2(path.c_str(), &raw, open_flags(mode) | SQLITE_OPEN_NOMUTEX, nullptr);
  handle_.reset(raw);  // SQLite gives a handle to be closed even when it could not open the file
  if (code != SQLITE_OK) {
    const int reason = raw != nullptr ? sqlite3_system_errno(raw) : 0;
    throw SqlError(path + ": " + (reason != 0 ? std::strerror(reason) : sqlite3_errstr(code)),
                   code);
  }
  sqlite3_extended_result_codes(raw, 1);
  sqlite3_busy_timeout(raw, kBusyMilliseconds);
}

void Database::execute(const char* sql) {
  const int code = sqlite3_exec(handle_.get(), sql, nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) throw SqlError(sqlite3_errmsg(handle_.get()), code);
}

Statement::Statement(Database& database, std::string_view sql) {
  sqlite3_stmt* raw = nullptr;
  const int code = sqlite3_prepare_v2(database.handle(), sql.data(), static_cast<int>(sql.size()),
                                      &raw, nullptr);
  statement_.reset(raw);
  if (code != SQLITE_OK) throw SqlError(sqlite3_errmsg(database.handle()), code);
}

void Statement::check(int code, int wanted) const {
  if (code == wanted) return;
  sqlite3* database = sqlite3_db_handle(statement_.get());
  throw SqlError(sqlite3_errmsg(database), code);
}

void Statement::bind(int position, std::int64_t value) {
  check(sqlite3_bind_int64(statement_.get(), position, value), SQLITE_OK);
}

void Statement::bind(int position, double value) {
  check(sqlite3_bind_double(statement_.get(), position, value), SQLITE_OK);
}

void Statement::bind(int position, std::string_view value) {
  // A null pointer would bind NULL where an empty text is meant.
  const char* start = value.data() != nullptr ? value.data() : "";
  check(sqlite3_bind_text64(statement_.get(), position, start, value.size(), SQLITE_TRANSIENT,
                            SQLITE_UTF8),
        SQLITE_OK);
}

bool Statement::step() {
  const int code = sqlite3_step(statement_.get());
  if (code == SQLITE_ROW) return true;
  if (code == SQLITE_DONE) {
    reset();
    return false;
  }
  const std::string why = sqlite3_errmsg(sqlite3_db_handle(statement_.get()));
  reset();
  throw SqlError(why, code);
}

void Statement::reset() { sqlite3_reset(statement_.get()); }

std::int64_t Statement::integer(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

double Statement::real(int column) const { return sqlite3_column_double(statement_.get(), column); }

std::string_view Statement::text(int column) const {
  const unsigned char* start = sqlite3_column_text(statement_.get(), column);
  if (start == nullptr) return {};
  return {reinterpret_cast<const char*>(start),
          static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

Transaction::Transaction(Database& database, const char* begin) : database_(database) {
  database_.execute(begin);
}

Transaction::~Transaction() {
  // SQLite may have rolled back by itself, on a full disk for example; then this changes nothing.
  if (open_) sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
  database_.execute("COMMIT");
  open_ = false;
}

}  // namespace corvane::host
