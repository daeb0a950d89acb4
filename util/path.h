// Joining path components.
#pragma once

#include <string>

class Path {
 public:
  // `a`, "/", `b`: always, whatever `a` ends with or `b` begins with.
  static std::string Combine(const std::string& a, const std::string& b);
};
