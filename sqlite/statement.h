// One prepared statement.
#pragma once

#include <sqlite3.h>

#include <string>

namespace Altamir::Corvane::UsageReporting::SQLiteDatabase {

// Copies share one compiled statement without counting, and each destructor finalizes it: two live
// copies finalize it twice. Never copy statements; pass them by reference.
class Statement {
 public:
  // Throws sqlite_exception if `db` (not owned) is null or the query cannot be prepared.
  Statement(sqlite3* db, const std::string& query);
  Statement(const Statement& other) = default;
  Statement& operator=(const Statement& other) = default;
  ~Statement();

  // Parameters count from 1. A text is not copied: it must exist unchanged until the statement has
  // been stepped. Throws sqlite_exception.
  void bind(int index, const std::string& text);
  void bind(int index, double number);
  void bind(int index, int number);

  // Makes the statement ready to run again; bindings are kept. Returns SQLite's result code.
  int reset();

  sqlite3_stmt* get_compiled_statement() const;

 private:
  sqlite3* db_;
  sqlite3_stmt* compiled_ = nullptr;
};

}  // namespace Altamir::Corvane::UsageReporting::SQLiteDatabase
