// The descriptors that this process has open, and how many it may have.
#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>

namespace corvane::test {

// The number that the next descriptor gets. It is the same before and after code that closes what
// it has opened.
inline int lowest_free_descriptor() {
  const int descriptor = dup(STDIN_FILENO);
  close(descriptor);
  return descriptor;
}

// While it lives, this process gets no descriptor of the number `count` or above.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(std::size_t count) {
    getrlimit(RLIMIT_NOFILE, &former_);
    const rlimit lower{count, former_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &lower);
  }
  ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &former_); }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
  rlimit former_{};
};

}  // namespace corvane::test
