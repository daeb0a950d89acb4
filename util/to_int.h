// Numbers as the service reads them from text.
#pragma once

#include <string>

namespace corvane {

// The number that the text begins with, in base 10, ignoring white space before it and everything
// after it; 0 if there is none, the low 32 bits if it is too large.
int to_int(const std::string& text);

}  // namespace corvane
