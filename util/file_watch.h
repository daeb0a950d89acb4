// Noticing that a file has changed.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

namespace corvane {

// Notices when a file is replaced, edited, removed or created.
class FileWatch {
 public:
  explicit FileWatch(std::string path);
  // True on the first call and after each change.
  bool changed();

 private:
  std::string path_;
  std::optional<bool> existed_;  // nothing before the first call
  struct stat seen_ {};
};

// Notices when a file that is kept open was removed or replaced, whatever its content.
class FileIdentity {
 public:
  void remember(const std::string& path);
  // False also if there was no file to remember.
  bool is_same() const;

 private:
  std::string path_;
  bool found_ = false;
  struct stat seen_ {};
};

}  // namespace corvane
