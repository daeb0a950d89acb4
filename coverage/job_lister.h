// Lists the backups that the master server knows, in a worker.
#pragma once

#include <functional>
#include <string>

#include "coverage/job_list.h"
#include "coverage/worker.h"

namespace corvane::coverage {

// Name within the scratch directory.
inline constexpr char kScratchJobs[] = "jobs";

// Runs a worker whose result is the list of jobs that ended in a range, and visits them. Returns
// false, without a visit, if a stop was asked for. Throws std::runtime_error if the list is not
// whole, even after some visits.
bool list_jobs(const Worker& worker, TimeRange range,
               const std::function<void(const EndedJob&)>& visit);

// The worker itself: writes the list, or why there is none, to a file in a directory. Ends with the
// process that has started it. Throws std::runtime_error if the file cannot be written.
void list_jobs_into(const std::string& directory, TimeRange range);

}  // namespace corvane::coverage
