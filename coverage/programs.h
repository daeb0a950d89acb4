// The programs of this machine, as restarts need them.
#pragma once

#include <sys/types.h>

#include <string>

#include "companions/common/stop_signals.h"
#include "coverage/options.h"
#include "coverage/restarts.h"

namespace corvane::coverage {

// Whether a process of the service has this id.
bool runs_as_service(pid_t process);

// Starts and stops programs as the service and an operator would, or has a systemd unit do it. What
// is started must not inherit that the signals are blocked. The arguments must outlive the result.
Programs programs_of(const Options& options, const StopSignals& signals);

// Whether a process belongs to the service's systemd unit, going by its control groups (the text of
// /proc/PID/cgroup).
bool is_in_service_unit(const std::string& groups);

}  // namespace corvane::coverage
