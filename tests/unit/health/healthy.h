// An installation in which all is well, and what is said of one.
#pragma once

#include "finding/words.h"
#include "health/problems.h"
#include "platform/program_names.h"
#include "tests/support/test_backup.h"

namespace corvane::health {

using test::kNow;

inline Health good() {
  Health health;
  health.now = kNow;
  health.daemons = {{kManagementProgram, true, 10, kNow - kDay},
                    {kDetectionProgram, true, 11, kNow - kDay, 0, kNow - 30, 0},
                    {kAlertProgram, true, 12, kNow - kDay, 0, kNow - 40, 0}};
  health.gather.last = kNow - 600;
  health.disk = {1000, 500};
  health.ledger.last_look = kNow - 60;
  health.service_database = OpenFile::kOpen;
  health.configured.purge = "12";
  return health;
}

// "OK", or the status and the problems.
inline std::string said_of(const Health& health, const Thresholds& thresholds = {}) {
  const std::vector<Problem> problems = problems_of(health, thresholds);
  if (problems.empty()) return "OK";
  std::string said = problems.front().level == Level::kCritical ? "CRITICAL" : "WARNING";
  for (const Problem& problem : problems) said += "; " + problem.words;
  return said;
}

}  // namespace corvane::health
