// Why a command cannot do its work: a line for people, an exit status for scripts.
#pragma once

#include <stdexcept>
#include <string>

namespace corvane::health {

// The exit statuses of every command but check, which has those of monitoring plug-ins.
enum class ExitStatus {
  kDone = 0,
  kNotFound = 1,    // what was asked for is not there
  kUsage = 2,       // the command line
  kMissing = 3,     // no database
  kLocked = 4,      // another program has locked it
  kOlder = 5,       // a table or a column is missing
  kDamaged = 6,     // not an SQLite database, or a damaged one
  kUnreadable = 7,  // permission denied: the database or the configuration
  kFailed = 8,      // anything else
};

// what() is full sentences on one line, without a line end.
class Trouble : public std::runtime_error {
 public:
  Trouble(ExitStatus status, const std::string& sentence)
      : std::runtime_error(sentence), status_(status) {}
  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

}  // namespace corvane::health
