// Companions that have died, and a service whose last gather lies in the future, are started again.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "coverage/ledger.h"

namespace corvane::coverage {

// What restarts need of the world. Configuration and processes are looked at whenever they are
// asked for.
struct Programs {
  std::function<std::int64_t()> now;  // seconds since the epoch
  std::function<bool()> service_runs;
  std::function<bool(const std::string& companion)> is_wanted;
  std::function<bool(const std::string& companion)> is_running;
  std::function<void(const std::string& companion)> start;
  std::function<void(const std::string& companion)> stop;
  std::function<void()> restart_service;
  std::function<void()> start_service;  // which was to be restarted, and is not running
};

// Starts a companion that is wanted and was absent in two looks, while the service runs. Pauses
// grow from one start to the next. Whoever stops it or the service at the same moment wins.
void look_after_companion(Ledger& ledger, const Programs& programs, const std::string& companion);

// The next start waits for no pause.
void begin_anew(Ledger& ledger, const std::string& companion);

// Restarts a service whose last gather, by the time it stored, lies in the future: it would not
// gather before that time. Once for each such time, and not again within its interval and five
// minutes.
void look_after_service(Ledger& ledger, const Programs& programs, std::int64_t last_gather,
                        std::int64_t interval_seconds);

}  // namespace corvane::coverage
