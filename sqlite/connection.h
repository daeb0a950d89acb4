// One open database with its compiled queries, and transactions on it. Every program except the
// service itself uses it to read and write databases.
#pragma once

#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sqlite/query.h"

namespace corvane {

// For one thread at a time. Every failure throws QueryError.
class Connection {
 public:
  enum class Access { kRead, kWrite, kCreate };  // only kCreate creates a missing file

  // `name` is a path or, beginning with "file:", a URI. Waits up to `patience` for the lock of
  // another connection.
  Connection(const std::string& name, Access access,
             std::chrono::milliseconds patience = std::chrono::seconds(5));
  Connection(Connection&&) = default;

  // The query, ready to be bound; it stays compiled for as long as the connection exists. It is
  // identified by the address of `sql`, not by its text: pass only static constants.
  Query& query(const char* sql);
  Query& query(const std::string& sql) { return query(sql.c_str()); }
  Query& query(std::string&& sql) = delete;
  // The first column of the query's first row; 0 if there is none.
  std::int64_t number(const char* sql) { return query(sql).first_integer(); }

  // Runs statements, ignoring their rows; they do not stay compiled.
  void execute(const char* sql);

  // Changes whenever another connection has committed something.
  std::int64_t data_version();

  // Rows that the last insert, update or delete changed; the rowid of the last insert.
  std::int64_t changes() const { return sqlite3_changes64(handle_.get()); }
  std::int64_t last_rowid() const { return sqlite3_last_insert_rowid(handle_.get()); }

  sqlite3* handle() const { return handle_.get(); }

 private:
  struct Close {
    void operator()(sqlite3* handle) const noexcept { sqlite3_close_v2(handle); }
  };

  std::unique_ptr<sqlite3, Close> handle_;
  std::vector<std::unique_ptr<Query>>
      queries_;  // after the handle, so that they are destroyed before it
};

// A transaction, rolled back unless it was committed. The constructor and commit() throw
// QueryError.
class Transaction {
 public:
  enum class Kind {
    kWrite,     // takes the write lock at once
    kSnapshot,  // all reads see the same state
  };

  explicit Transaction(Connection& connection, Kind kind = Kind::kWrite);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void commit();

 private:
  Connection& connection_;
  bool committed_ = false;
};

}  // namespace corvane
