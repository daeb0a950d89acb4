// The configuration file as far as the detection goes by it.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "companions/detect/judge.h"

namespace corvane::detect {

// Reads the settings of the file at `path` into `settings`, whose eps and min_samples stay. What is
// no valid number counts as the default; `complaints` gets a line for each.
void read_settings(const std::string& path, Settings& settings,
                   std::vector<std::string>& complaints);

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

}  // namespace corvane::detect
