// Runs one of the product's command-line tools to completion.
#pragma once

#include <optional>
#include <string>

class Process {
 public:
  // `command` is the program, possibly with arguments; `arguments` follow it after a space. The
  // line is split into arguments without a shell.
  Process(const std::string& command, std::string arguments);

  // Standard output and standard error go to this file, which is created if missing and NOT
  // truncated: callers empty it first.
  void redirect_to_file(const std::string& path);

  // Runs the command and waits for it, without a time limit. Nothing is reported: callers check the
  // output file. Throws only std::bad_alloc.
  void start();

  // The raw status word of waitpid(2) (an exit with 3 is 768); -1 before start().
  int exit_code() const;

 private:
  std::string command_;
  std::string arguments_;
  std::optional<std::string> output_path_;
  int exit_status_ = -1;
};
