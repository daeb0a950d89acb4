#include "tests/support/mutex_calls.h"

#include <pthread.h>

#include <cerrno>
#include <utility>

namespace {

thread_local bool next_lock_fails = false;
thread_local void (*inside_next_lock)() = nullptr;

}  // namespace

void corvane::test::fail_next_lock() { next_lock_fails = true; }

void corvane::test::call_inside_next_lock(void (*hook)()) { inside_next_lock = hook; }

extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  if (std::exchange(next_lock_fails, false)) return EINVAL;
  const int result = __real_pthread_mutex_lock(mutex);
  if (inside_next_lock != nullptr) std::exchange(inside_next_lock, nullptr)();
  return result;
}

}  // extern "C"
