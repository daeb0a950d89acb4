// The product's tools for targets that read their output: linked in place of the real Process, it
// starts nothing and writes what the target has set.
#pragma once

#include <functional>
#include <string>

namespace corvane::fuzz {

// What a run of `command` (as given to Process, with its arguments) prints.
using Tool = std::function<std::string(const std::string& command)>;

// The tool that runs from now on; none prints nothing.
void set_tool(Tool tool);

}  // namespace corvane::fuzz
