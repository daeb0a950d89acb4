// What a benchmark's program reports of one run.
#pragma once

#include <time.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>

namespace corvane::bench {

// Measures from its construction on.
class Figures {
 public:
  // One JSON object: wall clock and processor seconds, and the process's peak memory in KiB.
  void print() const {
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - wall_;
    std::printf("{\"seconds\": %.6f, \"cpu\": %.6f, \"peak_kib\": %ld}\n", wall.count(),
                cpu_seconds() - cpu_, peak_kib());
  }

 private:
  static double cpu_seconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
  }

  // getrusage's figure will not do: a program started by a larger one begins with that one's peak.
  static long peak_kib() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
      if (long kib = 0; word == "VmHWM:" && status >> kib) return kib;
    }
    return -1;
  }

  std::chrono::steady_clock::time_point wall_ = std::chrono::steady_clock::now();
  double cpu_ = cpu_seconds();
};

}  // namespace corvane::bench
