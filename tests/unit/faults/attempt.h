// One operation tried again and again, each time with another of its calls failing.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "tests/fakes/platform_fake.h"
#include "tests/support/faults.h"

namespace corvane::test {

struct FaultKind {
  Fault kind;
  Duration duration = Duration::kOnce;
};

inline std::string name_of(const FaultKind& kind) {
  constexpr std::array kNames{"Open", "Read",       "Write",     "Sync",
                              "Fork", "Allocation", "Statement", "Request"};
  return std::string(kNames.at(static_cast<std::size_t>(kind.kind))) +
         (kind.duration == Duration::kOnce ? "" : "FromThenOn");
}

inline void PrintTo(const FaultKind& kind, std::ostream* out) { *out << name_of(kind); }

inline std::string kind_name(const ::testing::TestParamInfo<FaultKind>& info) {
  return name_of(info.param);
}

// Both durations of some kinds, for INSTANTIATE_TEST_SUITE_P.
inline std::vector<FaultKind> once_and_from_then_on(const std::vector<Fault>& kinds) {
  std::vector<FaultKind> both;
  for (const Fault kind : kinds) {
    both.push_back({kind, Duration::kOnce});
    both.push_back({kind, Duration::kFromThenOn});
  }
  return both;
}

// Counts descriptors, children and HTTPS clients around one attempt: it is made first and goes
// last.
class NothingLeftBehind {
 public:
  NothingLeftBehind() : descriptors_(open_descriptors()) {}
  ~NothingLeftBehind() {
    EXPECT_EQ(open_descriptors(), descriptors_);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    EXPECT_EQ(corvane::fake::state().clients, 0);
  }
  NothingLeftBehind(const NothingLeftBehind&) = delete;
  NothingLeftBehind& operator=(const NothingLeftBehind&) = delete;

 private:
  static std::ptrdiff_t open_descriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
  }

  std::ptrdiff_t descriptors_;
};

// Runs an operation with a call in it failing; says so if an exception leaves it. Returns how many
// calls have failed.
template <typename Operation>
int failed_calls_of(Operation operation, const FaultPoint& point) {
  const pid_t self = getpid();
  arm(point);
  try {
    operation();
  } catch (...) {
    disarm();
    ADD_FAILURE() << "an exception came out";
  }
  if (getpid() != self) _exit(99);  // a child that should have become another program
  return disarm();
}

// Scratch directories are made in memory: a disk makes thousands of databases ten times slower.
// Programs may not run from there.
class FaultTest : public ::testing::TestWithParam<FaultKind> {
 protected:
  static void SetUpTestSuite() {
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 1);
  }
  static void TearDownTestSuite() { unsetenv("TMPDIR"); }

  // Calls attempt(point) with the first call of the kind failing, the second and so on, until a run
  // in which none fails. `attempt` checks what a failure has left and returns how many calls have
  // failed. Prints how many points there were.
  void try_every_point(const std::function<int(const FaultPoint&)>& attempt) {
    constexpr int kMostPoints = 5000;
    for (int n = 1; n <= kMostPoints; ++n) {
      SCOPED_TRACE(name_of(GetParam()) + " " + std::to_string(n));
      int failed = 0;
      {
        corvane::fake::reset();
        const NothingLeftBehind nothing_left_behind;
        failed = attempt({GetParam().kind, n, GetParam().duration});
      }
      if (failed == 0) {
        std::printf("%d points\n", n - 1);
        EXPECT_GT(n, 1) << "the operation makes no such call";
        return;
      }
      if (HasFailure()) return;
    }
    ADD_FAILURE() << "no success after " << kMostPoints << " failures";
  }
};

}  // namespace corvane::test
