#include "util/path.h"

std::string Path::Combine(const std::string& a, const std::string& b) { return a + "/" + b; }
