#include "companions/alert/channel/wakeup.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace corvane::alert {

Wakeup::Wakeup() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (descriptor_ == -1) throw std::runtime_error(std::string("eventfd: ") + std::strerror(errno));
}

Wakeup::~Wakeup() { close(descriptor_); }

void Wakeup::notify() {
  // It fails only when the counter is full, and then the descriptor is readable anyway.
  eventfd_write(descriptor_, 1);
}

bool Wakeup::wait(int milliseconds) {
  pollfd polled{descriptor_, POLLIN, 0};
  poll(&polled, 1, milliseconds);
  eventfd_t count = 0;
  return eventfd_read(descriptor_, &count) == 0;
}

}  // namespace corvane::alert
