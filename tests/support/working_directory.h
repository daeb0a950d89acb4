// Working in another directory for a while.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

namespace corvane::test {

// Makes `path` the working directory, and the former one again at the end. Throws when it cannot.
class WorkingDirectory {
 public:
  explicit WorkingDirectory(const std::string& path)
      : former_(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (former_ < 0 || chdir(path.c_str()) != 0) {
      throw std::runtime_error("cannot work in " + path);
    }
  }
  ~WorkingDirectory() {
    if (fchdir(former_) != 0) _exit(99);  // nothing after this would work where it should
    close(former_);
  }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;

 private:
  int former_;
};

}  // namespace corvane::test
