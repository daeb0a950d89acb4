// Opening the anomaly database while the service uses it.
#pragma once

#include <string>

#include "sqlite/connection.h"

namespace corvane {

// Read-only; waits up to 5 seconds for a lock. `name`: a path or a URI. Throws QueryError.
Connection open_for_reading(const std::string& name);

// For a companion, which also writes, in short transactions; waits up to half a second for a lock,
// so that it still ends promptly when it is asked to. Does not create a missing database. Throws
// QueryError.
Connection open_for_companion(const std::string& path);

}  // namespace corvane
