// What the service's log says of its gathers: which ranges it asked for, and what came of each.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "util/log_record.h"

namespace corvane::coverage {

// Stored as numbers in the ledger.
enum class Outcome {
  kComplete = 0,
  kFailed = 1,   // something of the range was not stored
  kCut = 2,      // the service ended before the gather did
  kSkipped = 3,  // the service had no range to ask for, but its gather time moved on
};

// A range that was asked for. Times are seconds since the epoch; a range includes both ends.
struct Gather {
  bool is_live = true;     // otherwise a slice of the history
  std::int64_t start = 0;  // 0 and 0: no range
  std::int64_t end = 0;
  std::int64_t began = 0;  // by the log
  std::int64_t ended = 0;  // of one that was cut: the time of its last line
  Outcome outcome = Outcome::kComplete;
  std::string reason{};  // of a failure: the first error, without its tag

  friend bool operator==(const Gather&, const Gather&) = default;
};

// What a reader knows between two lines.
struct ReaderState {
  pid_t process = 0;             // of the last line about a gather
  bool is_history = false;       // until its last slice has ended
  bool has_whole_range = false;  // what a history asks for as a whole comes before its slices
  bool is_open = false;          // `gather` has begun and not ended
  bool is_told_empty = false;    // the image list says that it has no image
  bool is_problem_next = false;  // the next line is the reason
  // The last purge: records before this time were deleted; when. 0: none is known.
  std::int64_t purged_before = 0;
  std::int64_t purged_at = 0;
  std::int64_t interval = 0;  // minutes between two gathers; 0: unknown
  Gather gather{};            // its reason: the first error, of one that is open

  friend bool operator==(const ReaderState&, const ReaderState&) = default;
};

// Reads one line after the other. What it knows in between can be stored, and given to a reader
// that goes on.
class GatherReader {
 public:
  // `visit` gets every gather that has ended.
  explicit GatherReader(std::function<void(const Gather&)> visit, ReaderState state = {});

  void read(std::string_view line);

  // The gather that is open will not end: its process is gone, or lines are missing.
  void cut();

  const ReaderState& state() const { return state_; }

 private:
  void read_record(const LogRecord& record);
  void read_history(const LogRecord& record, std::string_view text);
  void read_service(const LogRecord& record, std::string_view text);
  void follow_process(const LogRecord& record);
  void begin(const LogRecord& record, std::string_view range);
  void fail(std::string_view text);
  void end(std::int64_t time);

  std::function<void(const Gather&)> visit_;
  ReaderState state_;
};

}  // namespace corvane::coverage
