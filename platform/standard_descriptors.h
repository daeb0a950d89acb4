// Keeping descriptors 0 to 2 out of use for other files.
#pragma once

#include <array>

#include "platform/descriptor.h"

namespace corvane {

// Opens /dev/null (close-on-exec) on those descriptors from 0 to 2 that are free, for as long as it
// exists, so that no other file gets their numbers: the daemon runs with them closed, and printed
// text would end up in that file.
class StandardDescriptorsFilled {
 public:
  StandardDescriptorsFilled();
  ~StandardDescriptorsFilled() = default;
  StandardDescriptorsFilled(const StandardDescriptorsFilled&) = delete;
  StandardDescriptorsFilled& operator=(const StandardDescriptorsFilled&) = delete;

 private:
  std::array<Descriptor, 3> fillers_;
};

}  // namespace corvane
