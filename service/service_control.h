// Starting, stopping and being the daemon.
#pragma once

// Forks the daemon and reports whether it runs: 0, or 1 after some 10 seconds without it. A service
// that runs already is a success, and the fork ends. The display name is not used.
int StartSvc(const char* display_name);

// Asks the companions and the daemon to end, without waiting for the daemon. 1 (logged) when no
// daemon runs. The display name is not used.
int StopSvc(const char* display_name);

// Ends all three by name. Returns 0.
int TerminateSVC();

// The daemon's body: runs the service until it ends, then stops the companions. Returns 0, or
// non-zero when the service could not be configured or "cvanomalydetect" still runs.
int SVC_MAIN();
