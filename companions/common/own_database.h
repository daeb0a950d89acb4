// What the databases that this system's programs keep for themselves have in common: a version, and
// a table of single values.
//
//   meta  name TEXT PRIMARY KEY, value
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "sqlite/connection.h"

namespace corvane {

// One connection, for one thread. Everything throws QueryError, but a later version
// std::runtime_error.
class OwnDatabase : public Connection {
 public:
  // With kCreate it uses a write-ahead log, and a power failure may undo the last commits. Throws
  // std::runtime_error for a database of a later version than `newest`.
  OwnDatabase(const std::string& path, Access access, std::int64_t newest,
              std::chrono::milliseconds patience = std::chrono::seconds(5));

  // PRAGMA user_version; 0 in a new one.
  std::int64_t version();

  // Values of `meta`; 0 and the empty text where there is none.
  std::int64_t number_of(std::string_view name);
  void set_number(std::string_view name, std::int64_t number);
  std::string text_of(std::string_view name);
  void set_text(std::string_view name, std::string_view text);
};

}  // namespace corvane
