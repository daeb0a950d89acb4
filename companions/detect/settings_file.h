// The detection's settings in the configuration file.
#pragma once

#include <string>
#include <vector>

#include "companions/detect/judge.h"

namespace corvane::detect {

// Reads the file at `path` into `settings`; eps and min_samples stay. A value that is not a valid
// number counts as the default; an invalid purge interval counts as what the service makes of it.
// `complaints` gets a line for each.
void read_settings(const std::string& path, Settings& settings,
                   std::vector<std::string>& complaints);

}  // namespace corvane::detect
