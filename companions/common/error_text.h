// What an exception says, in one line.
#pragma once

#include <exception>
#include <functional>
#include <string>

namespace corvane {

// With SQLite's own text where there is one, once.
std::string reason_of(const std::exception& error);

// What `work` returns, or 1 when it throws: then "program: reason" stands on standard error and, at
// level 16, in the log.
int guarded(const char* program, const std::function<int()>& work);

}  // namespace corvane
