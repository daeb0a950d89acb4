// Wakes a waiting thread.
#pragma once

#include <atomic>
#include <chrono>

#include "platform/descriptor.h"

namespace corvane::alert {

// May be used from any thread. A notification that comes before the wait is not lost.
class Wakeup {
 public:
  // Throws std::runtime_error when no descriptor is available.
  Wakeup();

  // Readable once notified.
  int descriptor() const { return descriptor_.get(); }
  void notify();
  // Waits for a notification and clears it. False when none came in time.
  bool wait(std::chrono::milliseconds limit);

 private:
  Descriptor descriptor_;
};

// A request to stop, which also wakes whoever polls its descriptor.
class StopFlag {
 public:
  void ask() {
    asked_ = true;
    wakeup_.notify();
  }
  bool is_asked() const { return asked_; }
  // Waits for the request. False when it was not made in time.
  bool wait(std::chrono::milliseconds limit) const;
  // Readable once the request was made.
  int descriptor() const { return wakeup_.descriptor(); }

 private:
  std::atomic<bool> asked_{false};
  Wakeup wakeup_;
};

}  // namespace corvane::alert
