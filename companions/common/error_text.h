// What an exception says, in one line.
#pragma once

#include <exception>
#include <string>

namespace corvane {

// With SQLite's own text where there is one, once.
std::string reason_of(const std::exception& error);

// "program: reason" on standard error and, at level 16, in the log.
void complain_on_console(const char* program, const std::exception& error);

}  // namespace corvane
