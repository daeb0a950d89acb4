// A disk that is full, as far as one process can tell.
#pragma once

#include <csignal>
#include <cstddef>

#include "tests/support/resource_limit.h"

namespace corvane::test {

// While it lives, no file of this process may grow past `bytes`: a write that begins there fails
// with EFBIG, one that begins before it is cut short. Do not use EXPECT or ASSERT meanwhile: their
// output may go to a file.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(std::size_t bytes) : limit_(bytes) {}
  ~FileSizeLimit() { std::signal(SIGXFSZ, former_handler_); }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void (*former_handler_)(int) = std::signal(SIGXFSZ, SIG_IGN);  // before there is a limit
  ResourceLimit<RLIMIT_FSIZE> limit_;
};

}  // namespace corvane::test
