// Another program that runs as a child. It leads a process group of its own, which ends with the
// object.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/descriptor.h"

namespace corvane {

class ChildProcess {
 public:
  enum class Output { kShared, kDropped };

  // Starts a program, by its path, with default signals and no open file but its streams. Its
  // standard input is `input`, or shared with this process. Throws std::system_error.
  explicit ChildProcess(const std::vector<std::string>& command, Output output = Output::kShared,
                        std::optional<int> input = std::nullopt);
  ~ChildProcess() { finish(); }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Can be read as soon as the program has ended.
  int ended() const { return ended_.get(); }

  // Kills what is left of the group. Returns waitpid()'s status of the program.
  int finish();

 private:
  pid_t id_ = 0;
  Descriptor ended_;
  std::optional<int> status_;
};

}  // namespace corvane
