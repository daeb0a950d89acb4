// A program of the build, run by a test as a user runs it.
#pragma once

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

#include "tests/support/scratch_dir.h"

namespace corvane::test {

// The program's output, then what it prints to standard error, then "status N". The shell reads
// `command`, which may redirect standard input.
inline std::string program_run(const std::string& command) {
  const ScratchDir dir;
  std::FILE* pipe = popen((command + " 2>" + dir("complaints")).c_str(), "r");
  if (pipe == nullptr) return "cannot be run";
  std::string text;
  std::array<char, 4096> buffer{};
  while (std::fgets(buffer.data(), buffer.size(), pipe) != nullptr) text += buffer.data();
  const int status = pclose(pipe);
  const int shown = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return text + read_file(dir("complaints")) + "status " + std::to_string(shown);
}

}  // namespace corvane::test
