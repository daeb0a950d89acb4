// Numbers as the service reads them from text.
#pragma once

#include <string>

namespace corvane {

// The number that the text begins with, white space before it left out: base 10, what follows it
// ignored, 0 for what is no number, the low 32 bits of what is too large.
int to_int(const std::string& text);

}  // namespace corvane
