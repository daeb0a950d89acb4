// Making files under another umask.
#pragma once

#include <sys/stat.h>

namespace corvane::test {

// While it lives, the umask of this process is `mask`.
class FileCreationMask {
 public:
  explicit FileCreationMask(mode_t mask) : former_(umask(mask)) {}
  ~FileCreationMask() { umask(former_); }
  FileCreationMask(const FileCreationMask&) = delete;
  FileCreationMask& operator=(const FileCreationMask&) = delete;

 private:
  mode_t former_;
};

}  // namespace corvane::test
