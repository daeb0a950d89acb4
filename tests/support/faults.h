// Makes the n-th call of a kind fail: of the system, of the allocator, of SQLite. The executable
// has to be put together as in tests/unit/faults/CMakeLists.txt: it defines the calls itself, and
// so those of the libraries fail too.
//
//   arm({Fault::kWrite, 3, Duration::kOnce});
//   run_the_code();
//   const int failed = disarm();  // 0: the code makes fewer calls than that
//
// The debug log is left out: the real one needs nothing that it could fail to get.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace corvane::test {

enum class Fault {
  kOpen,        // open, fopen, opendir: EMFILE
  kRead,        // read, pread: EIO
  kWrite,       // write, writev, pwrite: ENOSPC
  kSync,        // fsync, fdatasync: EIO; one that does not fail does nothing, to save time
  kFork,        // fork: EAGAIN
  kAllocation,  // operator new in all its forms
  kStatement,   // sqlite3_step and sqlite3_exec: SQLITE_IOERR, the statement not run
  kRequest,     // where a test's fake server asks fails()
};

enum class Duration { kOnce, kFromThenOn };

struct FaultPoint {
  Fault kind;
  int nth;  // from 1 on; 0: nothing fails
  Duration duration;
};

void arm(const FaultPoint& point);

// Returns how many calls have failed since arm().
int disarm();

// Counts a call and says whether it is to fail.
bool fails(Fault kind);

// While one lives, calls are neither counted nor fail.
class FaultsSuspended {
 public:
  FaultsSuspended();
  ~FaultsSuspended();
  FaultsSuspended(const FaultsSuspended&) = delete;
  FaultsSuspended& operator=(const FaultsSuspended&) = delete;

 private:
  bool was_armed_;
};

// Called with each line that has been logged; may arm and disarm.
using LogHook = std::function<void(std::string_view tag, std::string_view text)>;
void on_log(LogHook hook);

}  // namespace corvane::test
