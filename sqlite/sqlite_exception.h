// The error type of the SQLite layer.
#pragma once

#include <exception>
#include <sstream>
#include <string>

namespace Altamir::Corvane::UsageReporting::SQLiteDatabase {

class sqlite_exception : public std::exception {
 public:
  explicit sqlite_exception(const std::string& message);
  sqlite_exception(const std::string& message, const std::string& inner_message);
  // The message is the present content of the stream.
  explicit sqlite_exception(const std::stringstream& message);
  sqlite_exception(const std::stringstream& message, const std::string& inner_message);

  const char* what() const noexcept override;

  // SQLite's own text of the error; empty if there is none.
  const std::string& inner_message() const noexcept;

 private:
  std::string message_;
  std::string inner_message_;
};

}  // namespace Altamir::Corvane::UsageReporting::SQLiteDatabase
