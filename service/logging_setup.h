// The debug log of "cvanomalymgmt"; both the command line and the daemon open it.
#pragma once

// The last result of open_debug_log.
extern int debugFD;

// Opens the debug log. Returns 0, or 1 with a message on standard error.
int SetupLogging();
