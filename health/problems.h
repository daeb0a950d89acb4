// What is wrong: the one place that decides whether all is well.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "health/health.h"
#include "health/problem.h"

namespace corvane::health {

// From when on something is a problem. Negative: depends on the gather interval.
struct Thresholds {
  int gather_warning = -1;  // minutes since the last gather
  int gather_critical = -1;
  int alerts_warning = 30;  // minutes that the oldest message has been pending
  int alerts_critical = 240;
  int disk_warning = 10;  // percent that is free
  int disk_critical = 3;
};

struct Limits {
  std::int64_t warning = 0;  // seconds
  std::int64_t critical = 0;
};
// Of the time since the last gather.
Limits gather_limits(const Health& health, const Thresholds& at);

// "12.5"
std::string percent_text(double percent);

// The worst first; those of one level in the order in which programs and data depend on each other.
std::vector<Problem> problems_of(const Health& health, const Thresholds& at = {});

}  // namespace corvane::health
