// A companion's log.
#pragma once

namespace corvane {

// Opens the log of the program's name beside the service's. Without its log a companion still
// works; nobody may be there to read about it.
void open_program_log(const char* program);

}  // namespace corvane
