// The descriptors that this process has open, and how many it may have.
#pragma once

#include <unistd.h>

#include "tests/support/resource_limit.h"

namespace corvane::test {

// The number that the next descriptor gets. It is the same before and after code that closes what
// it has opened.
inline int lowest_free_descriptor() {
  const int descriptor = dup(STDIN_FILENO);
  close(descriptor);
  return descriptor;
}

// While it lives, this process gets no descriptor of its number or above.
using DescriptorLimit = ResourceLimit<RLIMIT_NOFILE>;

}  // namespace corvane::test
