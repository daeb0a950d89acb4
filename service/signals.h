// The orderly end of the daemon: SIGINT and SIGTERM set a flag that long loops check.
#pragma once

// If true, a failure to install the handlers is also printed on standard output. Nothing sets it.
extern bool CLI_RUN;

// Installs SignalHandler for SIGINT, then SIGTERM. Returns 0, or 1 at the first failure (logged).
int SetupSignalHandler();

// Requests the shutdown. Logs from signal context, which the debug log allows.
void SignalHandler(int signal_number);

// Once requested, a shutdown stays requested. Returns 0, or 1 if the flag's mutex could not be
// locked.
int SetShutDownInitiated();

// Copies the flag to `initiated`. Returns 0, or 1 (`initiated` unchanged) if the flag's mutex could
// not be locked.
int IsShutDownInitiated(bool& initiated);

// Returns 1 if a shutdown was requested (logged each time), else 0; also 0 if that cannot be
// determined.
int isTimeToStop();
