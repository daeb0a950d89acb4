// What a benchmark's program reports of one run.
#pragma once

#include <sys/resource.h>
#include <time.h>

#include <chrono>
#include <cstdio>

namespace corvane::bench {

// Measures from its construction on.
class Figures {
 public:
  // One JSON object: wall clock and processor seconds, and the process's peak memory in KiB.
  void print() const {
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - wall_;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("{\"seconds\": %.6f, \"cpu\": %.6f, \"peak_kib\": %ld}\n", wall.count(),
                cpu_seconds() - cpu_, usage.ru_maxrss);
  }

 private:
  static double cpu_seconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
  }

  std::chrono::steady_clock::time_point wall_ = std::chrono::steady_clock::now();
  double cpu_ = cpu_seconds();
};

}  // namespace corvane::bench
