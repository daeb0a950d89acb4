// The backups that the master server knows.
#pragma once

#include <functional>
#include <string>

#include "coverage/time_ranges.h"

namespace corvane::coverage {

// Throws std::runtime_error if the master server is not known.
std::string known_master();

// A backup that has succeeded.
struct EndedJob {
  std::string unique_key;  // of its row in the anomaly database
  TimeRange job;           // from its start to its end
  bool has_data = true;    // the service keeps no backup without
};

// Visits the backups that ended in a range, page by page. Throws std::runtime_error if the master
// server cannot be asked or its answer is no list of jobs. Unlike a gather, which gets the jobs
// that both start and end in its range, this also gets those that started before it.
void read_ended_jobs(const std::string& master, TimeRange range,
                     const std::function<void(const EndedJob&)>& visit);

}  // namespace corvane::coverage
