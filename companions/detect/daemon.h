// The process: signals, waiting, and what is said when the database cannot be used.
#pragma once

#include "companions/detect/options.h"

namespace corvane::detect {

// Judges what waits, then exits. 0: done; 1: the database could not be used.
int run_once(const Options& options);

// Runs until SIGTERM or SIGINT, then returns 0.
int run_daemon(const Options& options);

// Print to standard output. 0: done; 1: nothing to print, the reason is on standard error.
int run_backtest(const Options& options);
int run_explain(const Options& options);

}  // namespace corvane::detect
