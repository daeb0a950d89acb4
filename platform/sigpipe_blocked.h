// Writing to connections that the peer may have closed.
#pragma once

#include <csignal>

namespace corvane {

// While it exists, a write to a broken connection delivers no SIGPIPE to this thread, and none is
// pending afterwards. The signal's disposition, which belongs to the whole process, does not
// change, and a SIGPIPE that was pending before stays pending. errno is preserved.
class SigpipeBlocked {
 public:
  SigpipeBlocked();
  ~SigpipeBlocked();
  SigpipeBlocked(const SigpipeBlocked&) = delete;
  SigpipeBlocked& operator=(const SigpipeBlocked&) = delete;

 private:
  sigset_t sigpipe_{};
  sigset_t former_mask_{};
  bool was_pending_ = false;
};

}  // namespace corvane
