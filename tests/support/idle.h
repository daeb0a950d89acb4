// Whether a wait is one, or looks again and again without a pause.
#pragma once

#include <chrono>
#include <ctime>

namespace corvane::test {

inline std::chrono::nanoseconds shown_by(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

// True when all threads of this process together worked for less than a quarter of the time that it
// took; without a pause they get more than that also on a busy machine. It should take some 100 ms.
template <typename Work>
bool is_idle_during(const Work& work) {
  const std::chrono::nanoseconds worked = shown_by(CLOCK_PROCESS_CPUTIME_ID);
  const std::chrono::nanoseconds began = shown_by(CLOCK_MONOTONIC);
  work();
  return 4 * (shown_by(CLOCK_PROCESS_CPUTIME_ID) - worked) < shown_by(CLOCK_MONOTONIC) - began;
}

}  // namespace corvane::test
