// Writing to connections that the other side may have broken.
#pragma once

#include <csignal>

namespace corvane {

// While it lives, a write to a broken connection raises no SIGPIPE in this thread, and what was
// raised is gone afterwards. The signal's disposition, which belongs to the whole process, stays as
// it is, and a SIGPIPE that was pending before stays pending. errno is kept.
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
