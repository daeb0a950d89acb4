// The anomaly database, opened so that nothing can be changed and nobody is held up.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <string>

#include "health/trouble.h"
#include "sqlite/connection.h"

namespace corvane::health {

// How to open a database read-only. Normally its write-ahead log is shared. A database that no
// program has open has no log, and creating one needs write permission; it is then read as a file
// that does not change, and has_changed() tells if it did.
class ReadOnlySource {
 public:
  // Throws Trouble when there is no such file, or it may not be read.
  explicit ReadOnlySource(const std::string& path);

  // A name for sqlite3_open_v2() and whatever calls it.
  const std::string& uri() const { return uri_; }
  const std::string& path() const { return path_; }
  bool has_changed() const;

 private:
  bool is_unused_log_database() const;

  std::string path_;
  std::string uri_;
  struct stat seen_ {};
  bool is_still_ = false;
};

// Somebody wrote while the database was read as one that does not change: read it again.
class ChangedMeanwhile : public std::exception {
 public:
  const char* what() const noexcept override {
    return "the database changed while it was being read";
  }
};

// One connection, for one thread; waits up to 5 seconds for a lock. Each query is a transaction of
// its own, so that the service can fold its log back in between.
class Database {
 public:
  // Throws Trouble, also for a database without the tables and columns that the tool reads.
  explicit Database(const std::string& path);

  const std::string& path() const { return source_.path(); }
  Connection& connection() { return *connection_; }

  // Throws ChangedMeanwhile if what was read may mix two states of the database.
  void check_unchanged() const;

 private:
  ReadOnlySource source_;
  std::unique_ptr<Connection> connection_;
};

// The file at `path` may not be read.
Trouble permission_denied(const std::string& path);

// What an error of SQLite while reading the database at `path` means to people.
Trouble trouble_of(const std::string& path, const std::exception& error);

}  // namespace corvane::health
