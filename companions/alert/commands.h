// What people ask of the program on the command line.
#pragma once

#include "companions/alert/options.h"

namespace corvane::alert {

// Each prints what it did and gives the exit status. 0: done; 1: something failed. A signal breaks
// off what is being sent. As with run_daemon() the caller hands the status to _exit() at once.

// Takes in what is new and tries to deliver everything that waits, once.
int run_once(const Options& options);
// Sends a test message by one channel or all that are configured.
int run_test(const Options& options);
int run_status(const Options& options);
// What was given up waits again; delivered at once unless a running cvanomalyalert does it.
int run_resend(const Options& options);

}  // namespace corvane::alert
