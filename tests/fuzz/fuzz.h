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
// strings sees past one anyway.
inline std::vector<std::string> parts_of(const std::string& input) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  for (std::size_t end; (end = input.find('\0', begin)) != std::string::npos; begin = end + 1) {
    parts.push_back(input.substr(begin, end - begin));
  }
  parts.push_back(input.substr(begin));
  return parts;
}

// Exactly `count` parts: further ones are left out, missing ones empty.
inline std::vector<std::string> parts_of(const std::string& input, std::size_t count) {
  std::vector<std::string> parts = parts_of(input);
  parts.resize(count);
  return parts;
}

}  // namespace corvane::fuzz
