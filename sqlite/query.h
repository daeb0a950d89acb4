// Queries that stay compiled, with typed parameters and columns, on an open connection.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "sqlite/sqlite_exception.h"

namespace corvane {

// A failure of SQLite. inner_message() is SQLite's own text, never the query's.
class QueryError : public Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception {
 public:
  QueryError(const std::string& message, sqlite3* db);
  int extended_code() const { return code_; }
  int code() const { return code_ & 0xFF; }
  // The file is no database, or a damaged one.
  bool is_damage() const { return code() == SQLITE_CORRUPT || code() == SQLITE_NOTADB; }
  // The errno if a file could not be opened; 0 for other failures.
  int system_errno() const { return system_errno_; }

 private:
  int code_;
  int system_errno_ = 0;
};

// SQLite prepares it again if another connection has changed the schema. Every failure throws
// QueryError; the query can be used again afterwards.
class Query {
 public:
  // `db` and `sql` are not owned and must outlive it.
  Query(sqlite3* db, const char* sql);

  const char* sql() const { return sql_; }

  // Ends a run before its last row, and releases its locks.
  Query& restart();

  // The next parameter, in the order of the query. Texts are copied; an empty text is not NULL.
  Query& bind(std::int64_t number);
  Query& bind(double number);
  Query& bind(std::string_view text);
  Query& bind(const std::string& text) { return bind(std::string_view(text)); }
  Query& bind(const char* text) { return bind(std::string_view(text)); }
  // An enumerator is stored as its number.
  template <typename Enum>
  requires std::is_enum_v<Enum> Query& bind(Enum value) {
    return bind(static_cast<std::int64_t>(value));
  }

  // Goes to the next row; false if there is none.
  bool step();
  void run();
  // Returns the first column of the first row, or 0 if there is no row, and ends the run.
  std::int64_t first_integer();
  // Returns whether there is a row, and ends the run.
  bool has_row();

  // Columns of the current row, from 0. NULL is 0 and the empty text.
  std::int64_t integer(int column) const { return sqlite3_column_int64(compiled_.get(), column); }
  double real(int column) const { return sqlite3_column_double(compiled_.get(), column); }
  std::string text(int column) const { return std::string(view(column)); }
  // Valid until the next step.
  std::string_view view(int column) const;

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* compiled) const noexcept { sqlite3_finalize(compiled); }
  };

  void check(int result) const;

  sqlite3* db_;
  const char* sql_;
  std::unique_ptr<sqlite3_stmt, Finalize> compiled_;
  int next_ = 1;
};

}  // namespace corvane
