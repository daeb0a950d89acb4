// For an exception that is let through a C library, which then keeps what it would have freed.
#pragma once

extern "C" {
// Only there under a sanitizer that looks for leaks.
[[gnu::weak]] void __lsan_disable();
[[gnu::weak]] void __lsan_enable();
}

namespace corvane::test {

// What this thread allocates while one lives may leak.
class LeaksIgnored {
 public:
  LeaksIgnored() {
    if (__lsan_disable != nullptr) __lsan_disable();
  }
  ~LeaksIgnored() {
    if (__lsan_enable != nullptr) __lsan_enable();
  }
  LeaksIgnored(const LeaksIgnored&) = delete;
  LeaksIgnored& operator=(const LeaksIgnored&) = delete;
};

}  // namespace corvane::test
