// Makes sure that only one process of a program uses a database.
#pragma once

#include <string>

#include "platform/descriptor.h"

namespace corvane {

// The system releases the lock when the process ends, also after a crash.
class ProgramLock {
 public:
  explicit ProgramLock(std::string path);

  // False while another process holds the lock. Throws std::runtime_error when the file cannot be
  // created.
  bool take();

 private:
  std::string path_;
  Descriptor file_;
};

}  // namespace corvane
