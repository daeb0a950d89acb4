// Joining path components.
#pragma once

#include <string>

class Path {
 public:
  // `a`, one "/", `b`: always, whatever `a` ends or `b` begins with.
  static std::string Combine(const std::string& a, const std::string& b);
};
