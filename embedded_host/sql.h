// The few pieces of SQLite that the embedded host needs: a database, and a prepared statement that
// is read row by row, so that a reader's memory does not grow with the number of rows.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace corvane::host {

// What SQLite refused to do, in words.
class SqlError : public std::runtime_error {
 public:
  SqlError(const std::string& what, int sqlite_code)
      : std::runtime_error(what), code_(sqlite_code) {}
  int code() const { return code_; }  // an extended result code

 private:
  int code_;
};

enum class OpenMode { kRead, kWrite, kCreate };

// One connection, for use by one thread at a time. Waits up to five seconds for a lock.
class Database {
 public:
  // Throws SqlError. Only kCreate makes a missing file.
  Database(const std::string& path, OpenMode mode);

  // Runs statements without results. Throws SqlError.
  void execute(const char* sql);

  sqlite3* handle() const { return handle_.get(); }

 private:
  struct Close {
    void operator()(sqlite3* handle) const noexcept { sqlite3_close_v2(handle); }
  };
  std::unique_ptr<sqlite3, Close> handle_;
};

// Everything throws SqlError. Parameters count from 1, columns from 0.
class Statement {
 public:
  Statement(Database& database, std::string_view sql);

  void bind(int position, std::int64_t value);
  void bind(int position, double value);
  void bind(int position, std::string_view value);  // copies the text

  // True when there is a row. After false, or an error, the statement is ready to be bound afresh.
  bool step();
  // Ends a run before its last row.
  void reset();

  std::int64_t integer(int column) const;
  double real(int column) const;
  std::string_view text(int column) const;  // until the next step

 private:
  void check(int code, int wanted) const;

  struct Finalize {
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
  };
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

// Rolls back unless commit() was reached.
class Transaction {
 public:
  // `begin` is "BEGIN" for reading, "BEGIN IMMEDIATE" for writing. Throws SqlError.
  Transaction(Database& database, const char* begin);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void commit();  // throws SqlError

 private:
  Database& database_;
  bool open_ = true;
};

}  // namespace corvane::host
