#include "util/to_int.h"

#include <cstdlib>

namespace corvane {

int to_int(const std::string& text) {
  return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

}  // namespace corvane
