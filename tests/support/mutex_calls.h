// Mutexes that fail, or are interrupted, at the worst moment. Needs mutex_calls.cpp and the link
// option "LINKER:--wrap=pthread_mutex_lock" in the test's executable.
#pragma once

namespace corvane::test {

// Makes the next lock that this thread takes fail: std::mutex::lock throws std::system_error.
void fail_next_lock();

// Calls `hook` once, right after the next lock of this thread has been taken.
void call_inside_next_lock(void (*hook)());

}  // namespace corvane::test
