// Looking at a database from a test: plain queries, and a record of the statements that the code
// under test has run.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace corvane::test {

// Connections that are opened from now on in this process do not wait for the disk: nobody pulls
// the plug on a test.
inline void open_databases_without_syncing() {
  constexpr auto kTurnOff = +[](sqlite3* db, const char**, const sqlite3_api_routines*) -> int {
    sqlite3_exec(db, "PRAGMA synchronous=OFF", nullptr, nullptr, nullptr);
    sqlite3_exec(db, "", nullptr, nullptr, nullptr);  // forgets the error of a file that is none
    return SQLITE_OK;
  };
  sqlite3_auto_extension(reinterpret_cast<void (*)()>(kTurnOff));
}

// The values of a row as texts; NULL is "NULL".
using SqlRow = std::vector<std::string>;

// Runs one statement. Throws std::runtime_error with SQLite's text.
inline std::vector<SqlRow> query(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* compiled = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &compiled, nullptr) != SQLITE_OK) {
    throw std::runtime_error(sql + ": " + sqlite3_errmsg(db));
  }
  const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> owned(compiled,
                                                                         sqlite3_finalize);
  std::vector<SqlRow> rows;
  int status;
  while ((status = sqlite3_step(compiled)) == SQLITE_ROW) {
    SqlRow& row = rows.emplace_back();
    for (int i = 0; i < sqlite3_column_count(compiled); ++i) {
      const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(compiled, i));
      row.emplace_back(text == nullptr ? "NULL" : text);
    }
  }
  if (status != SQLITE_DONE) throw std::runtime_error(sql + ": " + sqlite3_errmsg(db));
  return rows;
}

// The first value of the first row; "" when there is none.
inline std::string query_one(sqlite3* db, const std::string& sql) {
  const auto rows = query(db, sql);
  return rows.empty() ? "" : rows.at(0).at(0);
}

inline std::string count(sqlite3* db, const std::string& table) {
  return query_one(db, "SELECT COUNT(*) FROM " + table);
}

// The first column of all rows.
inline std::vector<std::string> query_column(sqlite3* db, const std::string& sql) {
  std::vector<std::string> column;
  for (const SqlRow& row : query(db, sql)) column.push_back(row.at(0));
  return column;
}

// Keeps every statement that runs on a connection while it lives: as written (SQLite leaves out
// blanks behind the last semicolon) and with its parameters filled in.
class SqlRecorder {
 public:
  explicit SqlRecorder(sqlite3* db) : db_(db) {
    sqlite3_trace_v2(db_, SQLITE_TRACE_STMT, record, this);
  }
  ~SqlRecorder() { sqlite3_trace_v2(db_, 0, nullptr, nullptr); }
  SqlRecorder(const SqlRecorder&) = delete;
  SqlRecorder& operator=(const SqlRecorder&) = delete;

  std::vector<std::string> texts;
  std::vector<std::string> expanded;

 private:
  static int record(unsigned, void* context, void* statement, void* text) {
    auto* self = static_cast<SqlRecorder*>(context);
    auto* compiled = static_cast<sqlite3_stmt*>(statement);
    const std::string comment = static_cast<const char*>(text);
    if (comment.starts_with("--")) return 0;  // a trigger's statement
    self->texts.emplace_back(sqlite3_sql(compiled));
    const std::unique_ptr<char, decltype(&sqlite3_free)> filled(sqlite3_expanded_sql(compiled),
                                                                sqlite3_free);
    self->expanded.emplace_back(filled.get());
    return 0;
  }

  sqlite3* db_;
};

}  // namespace corvane::test
