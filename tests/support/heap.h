// Whether what was allocated is freed.
#pragma once

#include <malloc.h>

#include <cstddef>
#include <cstdint>

namespace corvane::test {

// The bytes that `work`, done once more, leaves allocated. Its first times do not count: a library
// may keep something, and the heap keeps some freed blocks at hand as if they were in use. A
// sanitizer has a heap of its own, which is not looked at: 0.
template <typename Work>
std::int64_t bytes_left_by(const Work& work) {
  constexpr int kFirstTimes = 10;
  for (int i = 0; i < kFirstTimes; ++i) work();
  const std::size_t before = mallinfo2().uordblks;
  work();
  return static_cast<std::int64_t>(mallinfo2().uordblks - before);
}

}  // namespace corvane::test
