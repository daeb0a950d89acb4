// Gathers a range with the service's own code, in a process of its own: a server that hangs, or an
// answer that takes all memory, costs only that process.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "coverage/time_ranges.h"

namespace corvane::coverage {

// Names within the scratch directory.
inline constexpr char kScratchDatabase[] = "CV_Anomaly.db";
inline constexpr char kScratchLog[] = "gather.log";

struct GatherResult {
  enum class Ending {
    kComplete,
    kFailed,
    kInterrupted,  // by a request to end: the gather itself did not fail
    kNotAdded,     // what was gathered could not be added to the anomaly database
  };
  Ending ending = Ending::kFailed;
  std::string reason{};       // why it is not complete
  bool lacks_images = false;  // a backup was left out, because the server did not give its image
  std::int64_t added = 0;     // backups, by whoever adds them
};

// How a gather is run.
struct GatherProcess {
  std::vector<std::string> command;  // to which both times are added
  std::string log;                   // that it writes
  std::chrono::milliseconds deadline;
  std::function<bool()> stop;
};

// Runs a gather of a range, and says what came of it. When it takes too long or a stop is asked
// for, it is killed with everything that it has started. Throws std::system_error if it cannot be
// started.
GatherResult run_gather(const GatherProcess& process, TimeRange range);

// The process itself: gathers a range into a new database in a directory, and logs there. Ends with
// the process that has started it. Throws std::exception.
void gather_into(const std::string& directory, TimeRange range);

}  // namespace corvane::coverage
