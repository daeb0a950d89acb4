#include "sqlite/statement.h"

#include "sqlite/sqlite_exception.h"

namespace Altamir::Corvane::UsageReporting::SQLiteDatabase {

namespace {

void require_bound(int result) {
  if (result != SQLITE_OK) throw sqlite_exception("sqlite bind failed.");
}

}  // namespace

Statement::Statement(sqlite3* db, const std::string& query) : db_(db) {
  if (db_ == nullptr) throw sqlite_exception("Invalid database object received.");
  // Callers expect the result codes of the legacy interface, where a step that violates a
  // constraint gives SQLITE_ERROR.
  if (sqlite3_prepare(db_, query.c_str(), -1, &compiled_, nullptr) != SQLITE_OK) {
    throw sqlite_exception("sqlite prepare statement failed for query - " + query);
  }
}

Statement::~Statement() { sqlite3_finalize(compiled_); }

void Statement::bind(int index, const std::string& text) {
  require_bound(sqlite3_bind_text(compiled_, index, text.c_str(), -1, SQLITE_STATIC));
}

void Statement::bind(int index, double number) {
  require_bound(sqlite3_bind_double(compiled_, index, number));
}

void Statement::bind(int index, int number) {
  require_bound(sqlite3_bind_int(compiled_, index, number));
}

int Statement::reset() { return sqlite3_reset(compiled_); }

sqlite3_stmt* Statement::get_compiled_statement() const { return compiled_; }

}  // namespace Altamir::Corvane::UsageReporting::SQLiteDatabase
