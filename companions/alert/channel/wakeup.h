// Waking a thread that waits.
#pragma once

#include <atomic>

namespace corvane::alert {

// From any thread; a notification before the wait is not lost.
class Wakeup {
 public:
  // Throws std::runtime_error when the system has no descriptor left.
  Wakeup();
  ~Wakeup();
  Wakeup(const Wakeup&) = delete;
  Wakeup& operator=(const Wakeup&) = delete;

  // Readable once notified.
  int descriptor() const { return descriptor_; }
  void notify();
  // Waits for a notification and takes it; false when none came in that time.
  bool wait(int milliseconds);

 private:
  int descriptor_;
};

// A request to end that also interrupts whoever polls its descriptor.
class StopFlag {
 public:
  void ask() {
    asked_ = true;
    wakeup_.notify();
  }
  bool is_asked() const { return asked_; }
  // Readable from the request on.
  int descriptor() const { return wakeup_.descriptor(); }

 private:
  std::atomic<bool> asked_{false};
  Wakeup wakeup_;
};

}  // namespace corvane::alert
