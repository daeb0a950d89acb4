#include "platform/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace corvane {

StandardDescriptorsFilled::StandardDescriptorsFilled() {
  for (int standard = 0; standard <= STDERR_FILENO; ++standard) {
    if (fcntl(standard, F_GETFD) >= 0 || errno != EBADF) continue;
    // It is the lowest free one.
    fillers_[static_cast<std::size_t>(standard)].reset(open("/dev/null", O_RDWR | O_CLOEXEC));
  }
}

}  // namespace corvane
