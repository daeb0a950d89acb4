// Why a command cannot do its work: one sentence for people, an exit status for scripts.
#pragma once

#include <stdexcept>
#include <string>

namespace corvane::ctl {

// The exit statuses of every command but check, which has those of monitoring plug-ins.
enum class ExitStatus {
  kDone = 0,
  kNotFound = 1,    // what was asked for is not there
  kUsage = 2,       // the command line
  kMissing = 3,     // no database
  kLocked = 4,      // another program keeps it locked
  kOlder = 5,       // a table or a column is missing
  kDamaged = 6,     // no SQLite database, or a broken one
  kUnreadable = 7,  // no right to read it, or the configuration
  kFailed = 8,      // anything else
};

// what() is one sentence, without a line end.
class Trouble : public std::runtime_error {
 public:
  Trouble(ExitStatus status, const std::string& sentence)
      : std::runtime_error(sentence), status_(status) {}
  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

}  // namespace corvane::ctl
