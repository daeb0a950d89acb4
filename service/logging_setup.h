// The debug log of "cvanomalymgmt", which the command line and the daemon open alike.
#pragma once

// What open_debug_log has returned last.
extern int debugFD;

// Opens the debug log. 0, or 1 with a message on standard error.
int SetupLogging();
