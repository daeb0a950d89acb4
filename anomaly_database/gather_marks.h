// How far the service has gathered (LAST_BACKUP_DATA_CAPTURE, QUEUED_TO_CAPTURE_DATA). Both throw
// QueryError.
#pragma once

#include <cstdint>

#include "sqlite/connection.h"

namespace corvane {

// When the last gather began, in seconds since the epoch; 0: the history is not gathered yet.
std::int64_t last_gather(Connection& database);

// Running jobs that the next gather looks at again.
std::int64_t count_queued_jobs(Connection& database);

}  // namespace corvane
