// SIGTERM and SIGINT as a request to end.
#pragma once

#include <signal.h>

namespace corvane {

// Both signals are blocked, also in threads that are started later, and taken when the program
// looks for them. For use by one thread.
class StopSignals {
 public:
  StopSignals();

  bool arrived() { return wait(0); }

  // Waits up to `seconds`. True once a signal has arrived, and from then on.
  bool wait(int seconds);

 private:
  sigset_t signals_{};
  bool stopped_ = false;
};

}  // namespace corvane
