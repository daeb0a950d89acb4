// The job list: what qpdbjobs prints.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>

#include "sqlite/connection.h"

namespace corvane::host {

// Writes one JSON array, in one line, with an object for each of the jobs that has started by `now`
// (seconds since the epoch), in the given order. A job that is given twice appears once. Throws
// QueryError, std::system_error.
void write_job_list(Connection& catalog, std::span<const std::int64_t> job_ids, std::int64_t now,
                    std::FILE* out);

}  // namespace corvane::host
