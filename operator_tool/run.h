// cvanomalyctl from its arguments to its exit status.
#pragma once

namespace corvane::ctl {

// `arguments` with the program's name. What the command has to say goes to standard output once it
// is complete, trouble to standard error, one sentence.
int run(int count, const char* const* arguments);

}  // namespace corvane::ctl
