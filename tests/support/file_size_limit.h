// A disk that is full, as far as one process can tell.
#pragma once

#include <sys/resource.h>

#include <csignal>
#include <cstddef>

namespace corvane::test {

// While it lives, no file of this process may grow past `bytes`: a write that begins there fails
// with EFBIG, one that begins before it is cut short. Do not use EXPECT or ASSERT meanwhile: their
// output may go to a file.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(std::size_t bytes) {
    getrlimit(RLIMIT_FSIZE, &former_);
    const rlimit lower{bytes, former_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &lower);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &former_);
    std::signal(SIGXFSZ, former_handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit former_{};
  void (*former_handler_)(int) = std::signal(SIGXFSZ, SIG_IGN);
};

}  // namespace corvane::test
