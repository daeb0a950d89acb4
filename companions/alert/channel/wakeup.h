// Wakes a waiting thread.
#pragma once

#include <atomic>

namespace corvane::alert {

// May be used from any thread. A notification that comes before the wait is not lost.
class Wakeup {
 public:
  // Throws std::runtime_error when no descriptor is available.
  Wakeup();
  ~Wakeup();
  Wakeup(const Wakeup&) = delete;
  Wakeup& operator=(const Wakeup&) = delete;

  // Readable once notified.
  int descriptor() const { return descriptor_; }
  void notify();
  // Waits for a notification and clears it. False when none came in time.
  bool wait(int milliseconds);

 private:
  int descriptor_;
};

// A request to stop, which also wakes whoever polls its descriptor.
class StopFlag {
 public:
  void ask() {
    asked_ = true;
    wakeup_.notify();
  }
  bool is_asked() const { return asked_; }
  // Readable once the request was made.
  int descriptor() const { return wakeup_.descriptor(); }

 private:
  std::atomic<bool> asked_{false};
  Wakeup wakeup_;
};

}  // namespace corvane::alert
