// Starting, stopping and running the daemon.
#pragma once

// Forks the daemon and waits until it is running. Returns 0, or 1 after about 10 seconds without
// it. If a service is already running, that is a success, and the fork ends. The display name is
// not used.
int StartSvc(const char* display_name);

// Asks the companions and the daemon to end, without waiting for the daemon. Returns 0, or 1
// (logged) if no daemon is running. The display name is not used.
int StopSvc(const char* display_name);

// Ends all three by name. Returns 0.
int TerminateSVC();

// The daemon's body: runs the service until it ends, then stops the companions. Returns 0, or
// non-zero if the service could not be configured or "cvanomalydetect" is still running.
int SVC_MAIN();
