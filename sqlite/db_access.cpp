#include "sqlite/db_access.h"

#include <memory>
#include <new>
#include <utility>

#include "sqlite/query_result.h"
#include "sqlite/sqlite_exception.h"

namespace Altamir::Corvane::UsageReporting::SQLiteDatabase {

namespace {

// The companions write to the same file in short transactions, which must not cost a record.
constexpr int kBusyTimeoutMs = 5000;

}  // namespace

DBAccess::DBAccess(std::string path, int flags) : flags_(flags), path_(std::move(path)) {
  open_database();
}

DBAccess::~DBAccess() { close_database(); }

void DBAccess::open_database() {
  if (sqlite3_open_v2(path_.c_str(), &handle_, flags_, nullptr) != SQLITE_OK) {
    close_database();  // SQLite returns a connection even if it cannot open the file
    throw sqlite_exception("Could not open database " + path_);
  }
  sqlite3_busy_timeout(handle_, kBusyTimeoutMs);
}

void DBAccess::close_database() {
  kept_.clear();  // SQLite does not close a connection with statements
  sqlite3_close(handle_);
  handle_ = nullptr;
  in_transaction_ = false;
}

void DBAccess::begin_transaction() {
  execute("BEGIN TRANSACTION;", "BEGIN TRANSACTION execution failed.");
  in_transaction_ = true;
}

void DBAccess::commit_transaction() {
  execute("END TRANSACTION;", "END TRANSACTION execution failed.");
  in_transaction_ = false;
}

void DBAccess::rollback_transaction() {
  in_transaction_ = false;
  execute("ROLLBACK TRANSACTION;", "ROLLBACK TRANSACTION execution failed.");
}

bool DBAccess::is_auto_commit_on() { throw sqlite_exception("Not implemented"); }

void DBAccess::execute_query(const std::string& query) {
  const bool was_open = has_open_transaction();
  execute(query.c_str(), "Query execution failed for  ", query.c_str());
  if (was_open && !has_open_transaction()) in_transaction_ = false;  // the query has ended it
}

void DBAccess::create_table(const std::string& query) {
  execute(query.c_str(), "Failed to create table with query ", query.c_str());
}

void DBAccess::read_data(const std::string& query, std::vector<Row>& rows) {
  execute(query.c_str(), "Query execution failed for  ", query.c_str(), read_query_callback, &rows);
}

void DBAccess::read_data_prepared(Statement& statement, std::vector<Row>& rows) {
  QueryResult result(statement);
  for (Row row; result.get_next_record(row); row.clear()) rows.push_back(row);
}

void DBAccess::execute_query_prepared(Statement& statement) {
  QueryResult result(statement);
  if (result.get_last_status() != SQLITE_DONE) {
    throw sqlite_exception("sqlite query execution failed.");
  }
}

void DBAccess::execute_query_kept(const std::string& query,
                                  const std::function<void(Statement&)>& bind) {
  // Otherwise this row would survive without those that belong to it.
  if (in_transaction_ && !has_open_transaction()) {
    throw sqlite_exception("sqlite query execution failed.");
  }
  const auto [kept, is_new] = kept_.try_emplace(query, handle_, query);
  Statement& statement = kept->second;
  try {
    bind(statement);
    execute_query_prepared(statement);
    statement.reset();
  } catch (...) {
    const bool outdated = statement.reset() == SQLITE_SCHEMA && !is_new;
    kept_.erase(kept);
    if (!outdated) throw;
    execute_query_kept(query, bind);
  }
}

sqlite3* DBAccess::get_db_handle() const { return handle_; }

bool DBAccess::has_open_transaction() const {
  return handle_ != nullptr && sqlite3_get_autocommit(handle_) == 0;
}

void DBAccess::execute(const char* query, const char* message, const char* subject,
                       int (*callback)(void*, int, char**, char**), void* context) {
  char* error = nullptr;
  const int result = sqlite3_exec(handle_, query, callback, context, &error);
  const std::unique_ptr<char, decltype(&sqlite3_free)> owned_error(error, sqlite3_free);
  if (result != SQLITE_OK) {
    throw sqlite_exception(std::string(message) + subject, error == nullptr ? "" : error);
  }
}

int read_query_callback(void* context, int column_count, char** values, char** names) {
  try {
    Row row;
    for (int i = 0; i < column_count; ++i) {
      row.emplace(names[i], Value(values[i] == nullptr ? "" : values[i]));
    }
    static_cast<std::vector<Row>*>(context)->push_back(std::move(row));
    return 0;
  } catch (const std::bad_alloc&) {
    return 1;  // an exception must not pass through SQLite; this ends the query with an error
  }
}

}  // namespace Altamir::Corvane::UsageReporting::SQLiteDatabase
