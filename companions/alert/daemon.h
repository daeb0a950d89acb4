// The process: signals, waiting, following the files, and what is said when the databases cannot be
// used.
#pragma once

#include "companions/alert/options.h"

namespace corvane::alert {

// Runs until SIGTERM or SIGINT. Gives the exit status, which the caller hands to _exit() at once: a
// channel that hangs may have left a thread behind.
int run_daemon(const Options& options);

}  // namespace corvane::alert
