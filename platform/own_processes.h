// The processes of this system, without those of containers and chroots on the same machine.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace corvane {

// Whether the process has the same root directory and the same process ids as this one. True when
// that cannot be told. `proc`: where the process table is.
bool is_of_this_system(pid_t process, const std::string& proc = "/proc");

// Of this name: see ProcessHandler.
std::vector<pid_t> own_processes(const std::string& name);

}  // namespace corvane
