// What the tests of the poller share.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>
#include <string>

#include "config/poller.h"
#include "tests/fakes/platform_fake.h"

namespace corvane::test {

inline constexpr char kPoller[] = "Poller::poller";
inline const fake::LogLine kEnter{2, kPoller, "ENTER"};
inline const fake::LogLine kExit{2, kPoller, "EXIT"};

inline void set_modified_at(const std::string& path, std::time_t seconds, long nanoseconds = 0) {
  const timespec times[2] = {{0, UTIME_OMIT}, {seconds, nanoseconds}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

// Reads and clears the flag.
inline bool is_modified(Poller& poller) {
  bool modified = true;
  EXPECT_EQ(poller.IsModified(modified), 0);
  return modified;
}

}  // namespace corvane::test
