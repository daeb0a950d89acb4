// Makes sure that only one cvanomalyalert uses a database.
#pragma once

#include <string>

namespace corvane::alert {

// The system releases the lock when the process ends, also after a crash.
class ProgramLock {
 public:
  explicit ProgramLock(std::string path);
  ~ProgramLock();
  ProgramLock(const ProgramLock&) = delete;
  ProgramLock& operator=(const ProgramLock&) = delete;

  // False while another process holds the lock. Throws std::runtime_error when the file cannot be
  // created.
  bool take();

 private:
  std::string path_;
  int descriptor_ = -1;
};

}  // namespace corvane::alert
