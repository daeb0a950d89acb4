// Writing large texts to a file or standard output, noticing every failure.
#pragma once

#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

namespace corvane::host {

// Writes `text`. Throws std::system_error.
inline void write_all(std::FILE* out, const std::string& text) {
  if (std::fwrite(text.data(), sizeof(char), text.size(), out) != text.size()) {
    throw std::system_error(errno, std::generic_category(), "cannot write the output");
  }
}

}  // namespace corvane::host
