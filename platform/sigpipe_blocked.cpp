#include "platform/sigpipe_blocked.h"

#include <cerrno>
#include <ctime>

namespace corvane {

SigpipeBlocked::SigpipeBlocked() {
  sigset_t pending;
  sigpending(&pending);
  was_pending_ = sigismember(&pending, SIGPIPE) == 1;
  sigemptyset(&sigpipe_);
  sigaddset(&sigpipe_, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &sigpipe_, &former_mask_);
}

SigpipeBlocked::~SigpipeBlocked() {
  const int saved_errno = errno;
  const timespec at_once{};
  while (!was_pending_ && sigtimedwait(&sigpipe_, nullptr, &at_once) < 0 && errno == EINTR) {
  }
  pthread_sigmask(SIG_SETMASK, &former_mask_, nullptr);
  errno = saved_errno;
}

}  // namespace corvane
