// The orderly end of the daemon: SIGINT and SIGTERM set a flag that the long loops ask for.
#pragma once

// When true, a failed set-up of the handlers is also said on standard output. Nothing sets it.
extern bool CLI_RUN;

// Installs SignalHandler for SIGINT, then SIGTERM. 0, or 1 at the first failure (logged).
int SetupSignalHandler();

// Requests the shutdown. Logs from signal context, which the debug log allows.
void SignalHandler(int signal_number);

// Once requested, a shutdown stays requested. 0, or 1 when the flag's mutex could not be taken.
int SetShutDownInitiated();

// Copies the flag into `initiated`. 0, or 1 (and `initiated` untouched) when the flag's mutex could
// not be taken.
int IsShutDownInitiated(bool& initiated);

// 1 when a shutdown was requested (logged each time), else 0; also 0 when that cannot be found out.
int isTimeToStop();
