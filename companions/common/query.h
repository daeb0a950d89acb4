// Queries that stay compiled, with typed parameters and columns, on an open connection.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// Prepared anew by SQLite itself when the service has changed the schema meanwhile. Every failure
// throws sqlite_exception with SQLite's text, not the query's; it can be used again afterwards.
class Query {
 public:
  // `db` and `sql` are not owned and must outlive it.
  Query(sqlite3* db, const char* sql);

  const char* sql() const { return sql_; }

  // Ends a run that was left before its last row, and lets go of its locks.
  Query& restart();

  // The next parameter, in the order of the query. Texts are copied; an empty one is no NULL.
  Query& bind(std::int64_t number);
  Query& bind(double number);
  Query& bind(std::string_view text);
  Query& bind(const std::string& text) { return bind(std::string_view(text)); }
  Query& bind(const char* text) { return bind(std::string_view(text)); }

  // Goes to the next row; false when there is none.
  bool step();
  void run();
  // The first column of the first row, and the end of the run; 0 when there is no row.
  std::int64_t first_integer();

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

// The compiled queries of one connection.
class Queries {
 public:
  // The query, ready to be bound. `sql` is told by its address: give constants.
  Query& get(sqlite3* db, const char* sql);
  // To be called before the connection is closed.
  void clear() { known_.clear(); }

 private:
  std::vector<std::unique_ptr<Query>> known_;
};

// A write transaction, taken back unless it was committed. The constructor and commit() throw
// sqlite_exception.
class Transaction {
 public:
  explicit Transaction(sqlite3* db);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void commit();

 private:
  sqlite3* db_;
  bool committed_ = false;
};

}  // namespace corvane
