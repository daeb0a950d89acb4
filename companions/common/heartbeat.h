// When a companion notes in its own database that it works: once a minute. Health is judged by it:
// a program that hangs notes nothing.
#pragma once

#include <cstdint>
#include <optional>

namespace corvane {

class Heartbeat {
 public:
  // True at first, then once a minute, and when the clock was set back.
  bool is_due();
  // As if it had just been due.
  void restart();
  // It is due at once.
  void reset() { last_.reset(); }

 private:
  std::optional<std::int64_t> last_;  // seconds since the epoch
};

}  // namespace corvane
