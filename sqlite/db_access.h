// One open SQLite connection.
#pragma once

#include <sqlite3.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "sqlite/statement.h"
#include "sqlite/value.h"

namespace Altamir::Corvane::UsageReporting::SQLiteDatabase {

// Every failure throws sqlite_exception, with SQLite's own text, if any, as inner message; nothing
// is logged. For use from one thread if opened with SQLITE_OPEN_NOMUTEX.
class DBAccess {
 public:
  // Opens `path` with the flags of sqlite3_open_v2.
  DBAccess(std::string path, int flags);
  ~DBAccess();
  DBAccess(const DBAccess&) = delete;
  DBAccess& operator=(const DBAccess&) = delete;

  // A statement waits up to 5 seconds for the lock of another process.
  void open_database();
  void close_database();

  void begin_transaction();
  void commit_transaction();
  void rollback_transaction();

  // Not supported: always throws.
  bool is_auto_commit_on();

  void execute_query(const std::string& query);
  void create_table(const std::string& query);

  // Appends the result to `rows`. The query should not yield NULL, which becomes an empty text.
  void read_data(const std::string& query, std::vector<Row>& rows);
  void read_data_prepared(Statement& statement, std::vector<Row>& rows);

  // Runs a statement that yields no row; a row is a failure.
  void execute_query_prepared(Statement& statement);

  // Like execute_query_prepared() on a new statement whose parameters `bind` sets, but the
  // statement stays compiled until the database is closed or its schema changes. Also fails in a
  // transaction that SQLite has rolled back by itself (a full disk), until it is rolled back here.
  void execute_query_kept(const std::string& query, const std::function<void(Statement&)>& bind);

  // For preparing statements; not given away. Null when closed.
  sqlite3* get_db_handle() const;

 private:
  bool has_open_transaction() const;  // as SQLite sees it

  // Throws sqlite_exception(message + subject, SQLite's text) if the query fails. Otherwise
  // allocates nothing: a rollback must work without memory, too.
  void execute(const char* query, const char* message, const char* subject = "",
               int (*callback)(void*, int, char**, char**) = nullptr, void* context = nullptr);

  sqlite3* handle_ = nullptr;
  std::map<std::string, Statement> kept_;  // by query
  bool in_transaction_ = false;            // by our own calls
  int flags_;
  std::string path_;
};

// The row callback of read_data, in the form that sqlite3_exec expects: appends one Row to the
// std::vector<Row> at `context`. Returns 0 to continue.
int read_query_callback(void* context, int column_count, char** values, char** names);

}  // namespace Altamir::Corvane::UsageReporting::SQLiteDatabase
