// Noticing that a file is no longer what it was.
#pragma once

#include <sys/stat.h>

#include <string>

namespace corvane {

// Tells when a file is no longer what it was: replaced, edited, gone or come.
class FileWatch {
 public:
  explicit FileWatch(std::string path);
  // True on the first call and after each change.
  bool changed();

 private:
  std::string path_;
  bool first_ = true;
  bool exists_ = false;
  struct stat seen_ {};
};

// Tells when a file that is kept open was removed or replaced; what it holds does not matter.
class FileIdentity {
 public:
  void remember(const std::string& path);
  // False also when there was no file to remember.
  bool is_same() const;

 private:
  std::string path_;
  bool found_ = false;
  struct stat seen_ {};
};

}  // namespace corvane
