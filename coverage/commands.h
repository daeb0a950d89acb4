// What cvanomalyheal does. All return the exit status, and throw std::exception.
#pragma once

#include "coverage/options.h"

namespace corvane::coverage {

// One look. 0 also when something could not be gathered yet: the ledger tells.
int run_look(const Options& options);

// Becomes a companion. Returns only if it is not to run (any more), or runs already.
int run_companion(const Options& options);

// Gathers a range, and prints how many backups were missing.
int gather_by_hand(const Options& options);

}  // namespace corvane::coverage
