// Backups that the anomaly database may lack, and what is done about it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "health/health.h"
#include "health/problem.h"

namespace corvane::health {

// In the order of what they mean for people. A hole is a warning when it has been known for 10
// minutes, a missing backup when it has been known for 30 minutes, each at once when an attempt
// failed. It is critical when it has been known for an hour, and an attempt at it failed or nothing
// (no hole, no missing backup) was healed for an hour.
std::vector<Problem> gap_problems(const Health& health);

// True if `time` is at least `age` seconds ago, or in the future: a wrong clock wrote it, and
// nobody knows when.
bool is_old(const Health& health, std::int64_t time, std::int64_t age);
bool is_future(const Health& health, std::int64_t time);

// "for 20 min"
std::string since_text(const Health& health, std::int64_t time);

// Problems are separated by semicolons.
std::string without_full_stop(std::string sentence);

}  // namespace corvane::health
