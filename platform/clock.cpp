#include "platform/clock.h"

#include <unistd.h>

namespace corvane {

std::time_t now() { return std::time(nullptr); }

unsigned sleep(unsigned seconds) { return ::sleep(seconds); }

}  // namespace corvane
