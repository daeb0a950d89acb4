// What the fuzz targets share. A target is one source file that defines LLVMFuzzerTestOneInput():
// it hands the bytes to a parser and checks what has to hold afterwards, whatever they are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

// Called for each input. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace corvane::fuzz {

// Ends the process, so that the input is kept, when something does not hold.
inline void require(bool holds, const char* what, const std::string& detail = "") {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s%s%s\n", what, detail.empty() ? "" : ": ", detail.c_str());
  std::abort();
}

inline std::string text_of(const std::uint8_t* data, std::size_t size) {
  return std::string(reinterpret_cast<const char*>(data), size);
}

// Inputs of several parts have them one after another, with a NUL between: no parser that takes C
// strings sees past one anyway. The last of `most` parts is the rest.
inline std::vector<std::string> parts_of(const std::string& input, std::size_t most) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  while (parts.size() + 1 < most) {
    const std::size_t end = input.find('\0', begin);
    if (end == std::string::npos) break;
    parts.push_back(input.substr(begin, end - begin));
    begin = end + 1;
  }
  parts.push_back(input.substr(begin));
  return parts;
}

// Like parts_of(), padded with empty parts up to `count`.
inline std::vector<std::string> exactly(std::size_t count, const std::string& input) {
  std::vector<std::string> parts = parts_of(input, count);
  parts.resize(count);
  return parts;
}

}  // namespace corvane::fuzz
