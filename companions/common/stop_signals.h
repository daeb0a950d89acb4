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

  // Lets the signals through while it lives: a program that is started then does not inherit that
  // they are blocked. One that arrives ends this program.
  class Unblocked {
   public:
    explicit Unblocked(const StopSignals& signals);
    ~Unblocked();
    Unblocked(const Unblocked&) = delete;
    Unblocked& operator=(const Unblocked&) = delete;

   private:
    const sigset_t& signals_;
  };

 private:
  sigset_t signals_{};
  bool stopped_ = false;
};

}  // namespace corvane
