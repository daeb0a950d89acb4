// The configuration file as far as the detection goes by it.
#pragma once

#include <string>
#include <vector>

#include "companions/detect/judge.h"

namespace corvane::detect {

// Reads the settings of the file at `path` into `settings`, whose eps and min_samples stay. What is
// no valid number counts as the default, or, of the purge interval, as what the service makes of
// it; `complaints` gets a line for each.
void read_settings(const std::string& path, Settings& settings,
                   std::vector<std::string>& complaints);

}  // namespace corvane::detect
