// A process of its own that asks the master server something: when the server hangs, or an answer
// takes all memory, it costs only that process.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "coverage/time_ranges.h"

namespace corvane::coverage {

struct Worker {
  std::vector<std::string> command;  // to which both times of a range are added
  std::string result;                // the file that it writes
  std::chrono::milliseconds deadline;
  std::function<bool()> stop;
};

enum class WorkerEnding {
  kSucceeded,
  kFailed,       // the file may have been cut
  kInterrupted,  // by a request to end: the worker itself did not fail
  kTooLong,
};

// Runs a worker for a range. When it takes too long or a stop is asked for, it is killed with
// everything that it has started. Throws std::system_error if it cannot be started.
WorkerEnding run_worker(const Worker& worker, TimeRange range);

// What a worker took longer than, for people.
std::string deadline_text(const Worker& worker);

// In the worker: ends it when the process that has started it ends. Throws std::runtime_error if
// that one is gone.
void end_with_parent();

}  // namespace corvane::coverage
