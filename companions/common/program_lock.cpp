#include "companions/common/program_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace corvane {

ProgramLock::ProgramLock(std::string path) : path_(std::move(path)) {}

bool ProgramLock::take() {
  if (!file_.is_open()) file_.reset(open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  if (!file_.is_open()) throw std::runtime_error(path_ + ": " + std::strerror(errno));
  return flock(file_.get(), LOCK_EX | LOCK_NB) == 0;
}

}  // namespace corvane
