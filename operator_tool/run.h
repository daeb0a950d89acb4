// cvanomalyctl from its arguments to its exit status.
#pragma once

namespace corvane::ctl {

// `arguments` with the program's name. The command's output goes to standard output once it is
// complete, an error to standard error as one sentence. Returns the exit status, throws nothing.
int run(int count, const char* const* arguments);

}  // namespace corvane::ctl
