#include "companions/alert/channel/wakeup.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <string>

namespace corvane::alert {

namespace {

bool is_readable_within(std::chrono::milliseconds limit, int descriptor) {
  pollfd polled[]{{descriptor, POLLIN, {}}};
  return poll(polled, std::size(polled), static_cast<int>(limit.count())) > 0;
}

}  // namespace

Wakeup::Wakeup() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!descriptor_.is_open()) {
    throw std::runtime_error(std::string("eventfd: ") + std::strerror(errno));
  }
}

void Wakeup::notify() {
  // It fails only when the counter is full, and then the descriptor is readable anyway.
  eventfd_write(descriptor_.get(), 1);
}

bool Wakeup::wait(std::chrono::milliseconds limit) {
  eventfd_t count{};
  return is_readable_within(limit, descriptor_.get()) &&
         eventfd_read(descriptor_.get(), &count) == 0;
}

bool StopFlag::wait(std::chrono::milliseconds limit) const {
  return is_readable_within(limit, descriptor());
}

}  // namespace corvane::alert
