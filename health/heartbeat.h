// Tells a server elsewhere that this machine has looked at its health, so that somebody notices
// when it does not any more.
#pragma once

#include <string>

#include "health/configured.h"

namespace corvane::health {

// Calls HEARTBEAT_URL: as it stands, or with "/fail" added to its path. Takes at most 10 seconds.
// Returns an empty text, also without an address; or why the call failed, without the address,
// which may be secret.
std::string call_heartbeat(const Configured& configured, bool is_healthy);

// The address with "/fail" added to its path.
std::string failure_url(const std::string& url);

}  // namespace corvane::health
