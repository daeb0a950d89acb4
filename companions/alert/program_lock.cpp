#include "companions/alert/program_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace corvane::alert {

ProgramLock::ProgramLock(std::string path) : path_(std::move(path)) {}

ProgramLock::~ProgramLock() {
  if (descriptor_ != -1) close(descriptor_);
}

bool ProgramLock::take() {
  if (descriptor_ == -1) descriptor_ = open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (descriptor_ == -1) throw std::runtime_error(path_ + ": " + std::strerror(errno));
  return flock(descriptor_, LOCK_EX | LOCK_NB) == 0;
}

}  // namespace corvane::alert
