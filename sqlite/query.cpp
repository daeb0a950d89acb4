#include "sqlite/query.h"

namespace corvane {

QueryError::QueryError(const std::string& message, sqlite3* db)
    : sqlite_exception(message, sqlite3_errmsg(db)), code_(sqlite3_extended_errcode(db)) {
  // SQLite keeps the errno of an earlier failure.
  if (code() == SQLITE_CANTOPEN) system_errno_ = sqlite3_system_errno(db);
}

Query::Query(sqlite3* db, const char* sql) : db_(db), sql_(sql) {
  sqlite3_stmt* compiled = nullptr;
  check(sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &compiled, nullptr));
  compiled_.reset(compiled);
}

Query& Query::restart() {
  sqlite3_reset(compiled_.get());
  next_ = 1;
  return *this;
}

Query& Query::bind(std::int64_t number) {
  check(sqlite3_bind_int64(compiled_.get(), next_++, number));
  return *this;
}

Query& Query::bind(double number) {
  check(sqlite3_bind_double(compiled_.get(), next_++, number));
  return *this;
}

Query& Query::bind(std::string_view text) {
  const char* begin = text.data() == nullptr ? "" : text.data();
  check(sqlite3_bind_text64(compiled_.get(), next_++, begin, text.size(), SQLITE_TRANSIENT,
                            SQLITE_UTF8));
  return *this;
}

bool Query::step() {
  const int result = sqlite3_step(compiled_.get());
  if (result == SQLITE_ROW) return true;
  if (result == SQLITE_DONE) {
    sqlite3_reset(compiled_.get());
    return false;
  }
  // Resetting clears the text, so the error is created first.
  const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_reset)> ended(compiled_.get(),
                                                                      sqlite3_reset);
  throw QueryError(std::string("Query failed: ") + sqlite3_errmsg(db_), db_);
}

void Query::run() {
  while (step()) {
  }
}

std::int64_t Query::first_integer() {
  const std::int64_t first = step() ? integer(0) : 0;
  restart();
  return first;
}

bool Query::has_row() {
  const bool found = step();
  restart();
  return found;
}

std::string_view Query::view(int column) const {
  const unsigned char* text = sqlite3_column_text(compiled_.get(), column);
  const int bytes = sqlite3_column_bytes(compiled_.get(), column);
  if (text == nullptr) return {};
  return {reinterpret_cast<const char*>(text), static_cast<std::size_t>(bytes)};
}

void Query::check(int result) const {
  if (result == SQLITE_OK) return;
  throw QueryError(std::string("Query failed: ") + sqlite3_errmsg(db_), db_);
}

}  // namespace corvane
