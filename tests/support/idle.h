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

// The processor time of all threads of this process while `work` is done.
template <typename Work>
std::chrono::nanoseconds processor_time_of(const Work& work) {
  const std::chrono::nanoseconds before = shown_by(CLOCK_PROCESS_CPUTIME_ID);
  work();
  return shown_by(CLOCK_PROCESS_CPUTIME_ID) - before;
}

// True when all threads of this process together worked for less than a quarter of the time that it
// took; without a pause they get more than that also on a busy machine. It should take some 100 ms.
template <typename Work>
bool is_idle_during(const Work& work) {
  const std::chrono::nanoseconds began = shown_by(CLOCK_MONOTONIC);
  const std::chrono::nanoseconds worked = processor_time_of(work);
  return 4 * worked < shown_by(CLOCK_MONOTONIC) - began;
}

}  // namespace corvane::test
