#include "companions/common/stop_signals.h"

#include <ctime>

namespace corvane {

StopSignals::StopSignals() {
  sigemptyset(&signals_);
  sigaddset(&signals_, SIGTERM);
  sigaddset(&signals_, SIGINT);
  sigprocmask(SIG_BLOCK, &signals_, nullptr);
}

bool StopSignals::wait(int seconds) {
  const timespec limit{seconds, {}};
  if (!stopped_ && sigtimedwait(&signals_, nullptr, &limit) != -1) stopped_ = true;
  return stopped_;
}

StopSignals::Unblocked::Unblocked(const StopSignals& signals) : signals_(signals.signals_) {
  sigprocmask(SIG_UNBLOCK, &signals_, nullptr);
}

StopSignals::Unblocked::~Unblocked() { sigprocmask(SIG_BLOCK, &signals_, nullptr); }

}  // namespace corvane
