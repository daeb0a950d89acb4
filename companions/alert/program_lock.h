// One cvanomalyalert for a database at a time.
#pragma once

#include <string>

namespace corvane::alert {

// The system lets go of the lock when the process ends, however it does.
class ProgramLock {
 public:
  explicit ProgramLock(std::string path);
  ~ProgramLock();
  ProgramLock(const ProgramLock&) = delete;
  ProgramLock& operator=(const ProgramLock&) = delete;

  // False while another process has it. Throws std::runtime_error when the file cannot be made.
  bool take();

 private:
  std::string path_;
  int descriptor_ = -1;
};

}  // namespace corvane::alert
