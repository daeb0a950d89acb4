#include "companions/common/query.h"

#include "sqlite/sqlite_exception.h"

namespace corvane {

using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;

namespace {

sqlite_exception failure(const std::string& why) { return {"Query failed: " + why, why}; }

}  // namespace

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
  const std::string why = sqlite3_errmsg(db_);  // until the reset
  sqlite3_reset(compiled_.get());
  throw failure(why);
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

std::string_view Query::view(int column) const {
  const unsigned char* text = sqlite3_column_text(compiled_.get(), column);
  const int bytes = sqlite3_column_bytes(compiled_.get(), column);
  if (text == nullptr) return {};
  return {reinterpret_cast<const char*>(text), static_cast<std::size_t>(bytes)};
}

void Query::check(int result) const {
  if (result != SQLITE_OK) throw failure(sqlite3_errmsg(db_));
}

Query& Queries::get(sqlite3* db, const char* sql) {
  for (const auto& known : known_) {
    if (known->sql() == sql) return known->restart();
  }
  known_.push_back(std::make_unique<Query>(db, sql));
  return *known_.back();
}

Transaction::Transaction(sqlite3* db) : db_(db) { Query(db, "BEGIN IMMEDIATE").run(); }

Transaction::~Transaction() {
  if (committed_ || sqlite3_get_autocommit(db_) != 0) return;
  sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
  Query(db_, "COMMIT").run();
  committed_ = true;
}

}  // namespace corvane
