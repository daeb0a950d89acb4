// Gathers a range with the service's own code.
#pragma once

#include <cstdint>
#include <string>

#include "coverage/worker.h"

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

// Runs a gather of a range in a worker whose result is the gather's log, and says what came of it.
// Throws std::system_error if it cannot be started.
GatherResult run_gather(const Worker& worker, TimeRange range);

// The process itself: gathers a range into a new database in a directory, and logs there. Ends with
// the process that has started it. Throws std::exception.
void gather_into(const std::string& directory, TimeRange range);

}  // namespace corvane::coverage
