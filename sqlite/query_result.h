// A cursor that steps a prepared statement.
#pragma once

#include <sqlite3.h>

#include "sqlite/statement.h"
#include "sqlite/value.h"

namespace Altamir::Corvane::UsageReporting::SQLiteDatabase {

// Borrows the statement, which must outlive it. The constructor takes the first step, so an insert,
// update or delete has run once a QueryResult exists.
class QueryResult {
 public:
  // Throws sqlite_exception if the statement is null or its first step gives SQLITE_ERROR.
  explicit QueryResult(Statement& statement);

  // Sets the entries of `row` for the columns of the next record and returns true. Returns false at
  // the end, and also if a step fails (see get_last_status). NULL becomes an empty text.
  bool get_next_record(Row& row);

  // SQLite's result code of the last step.
  int get_last_status() const;

 private:
  void read_columns(Row& row) const;

  sqlite3_stmt* compiled_;
  Row first_row_;
  int last_status_ = SQLITE_OK;
  bool first_row_pending_ = false;
};

}  // namespace Altamir::Corvane::UsageReporting::SQLiteDatabase
