#include "companions/common/heartbeat.h"

#include "platform/clock.h"

namespace corvane {

namespace {

constexpr std::int64_t kEverySeconds = 60;

}  // namespace

bool Heartbeat::is_due() {
  const std::int64_t time = now();
  if (last_ && time >= *last_ && time - *last_ < kEverySeconds) return false;
  last_ = time;
  return true;
}

void Heartbeat::restart() { last_ = now(); }

}  // namespace corvane
