// The commands that people give on the command line.
#pragma once

#include "companions/alert/options.h"

namespace corvane::alert {

// Each prints what it did and returns the exit status: 0 for success, 1 for a failure. Errors go to
// standard error and the log. A signal interrupts what is being sent. As with run_daemon(), the
// caller passes the status to _exit() at once.

// Reads new anomalies and tries to deliver each pending message once.
int run_once(const Options& options);
// Sends a test message by one channel, or by all configured ones.
int run_test(const Options& options);
// Prints the status of each channel.
int run_status(const Options& options);
// Makes dead letters pending again, and delivers them unless a cvanomalyalert that is running does.
int run_resend(const Options& options);

}  // namespace corvane::alert
