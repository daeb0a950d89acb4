// The clock of the services.
#pragma once

#include <ctime>

namespace corvane {

// Seconds since the epoch.
std::time_t now();

// Sleeps once, like sleep(3): a signal handler ends it early. Returns the seconds left.
unsigned sleep(unsigned seconds);

}  // namespace corvane
