// Keeping descriptors 0 to 2 free of what does not belong there.
#pragma once

#include <array>

namespace corvane {

// Holds whichever of the descriptors 0 to 2 are free with /dev/null (close-on-exec) for as long as
// it lives, so that nothing opened meanwhile lands there: the daemon runs with them closed, and
// what somebody prints would go into it.
class StandardDescriptorsFilled {
 public:
  StandardDescriptorsFilled();
  ~StandardDescriptorsFilled();
  StandardDescriptorsFilled(const StandardDescriptorsFilled&) = delete;
  StandardDescriptorsFilled& operator=(const StandardDescriptorsFilled&) = delete;

 private:
  std::array<int, 3> fillers_{-1, -1, -1};
};

}  // namespace corvane
