#include "sqlite/query_result.h"

#include "sqlite/sqlite_exception.h"

namespace Altamir::Corvane::UsageReporting::SQLiteDatabase {

QueryResult::QueryResult(Statement& statement) : compiled_(statement.get_compiled_statement()) {
  if (compiled_ == nullptr) throw sqlite_exception("Invalid statement object received.");
  last_status_ = sqlite3_step(compiled_);
  if (last_status_ == SQLITE_ERROR) throw sqlite_exception("sqlite query execution failed.");
  if (last_status_ == SQLITE_ROW) {
    read_columns(first_row_);
    first_row_pending_ = true;
  }
}

bool QueryResult::get_next_record(Row& row) {
  if (first_row_pending_) {
    first_row_pending_ = false;
    row = first_row_;
    return true;
  }
  if (last_status_ == SQLITE_DONE) return false;
  last_status_ = sqlite3_step(compiled_);
  if (last_status_ != SQLITE_ROW) return false;
  read_columns(row);
  return true;
}

int QueryResult::get_last_status() const { return last_status_; }

void QueryResult::read_columns(Row& row) const {
  const int columns = sqlite3_data_count(compiled_);
  for (int i = 0; i < columns; ++i) {
    const unsigned char* text = sqlite3_column_text(compiled_, i);
    row[sqlite3_column_name(compiled_, i)] =
        Value(text == nullptr ? "" : reinterpret_cast<const char*>(text));
  }
}

}  // namespace Altamir::Corvane::UsageReporting::SQLiteDatabase
