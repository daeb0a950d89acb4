#include "companions/alert/channel/wakeup.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

namespace corvane::alert {

Wakeup::Wakeup() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (descriptor_ < 0) throw std::runtime_error(std::string("eventfd: ") + std::strerror(errno));
}

Wakeup::~Wakeup() { close(descriptor_); }

void Wakeup::notify() {
  const std::uint64_t one = 1;
  // It fails only when the counter is full, and then the descriptor is readable anyway.
  [[maybe_unused]] const ssize_t ignored = write(descriptor_, &one, sizeof one);
}

bool Wakeup::wait(int milliseconds) {
  pollfd polled{descriptor_, POLLIN, 0};
  poll(&polled, 1, milliseconds);
  std::uint64_t count = 0;
  return read(descriptor_, &count, sizeof count) > 0;
}

}  // namespace corvane::alert
