#include "tests/fuzz/process_fake.h"

#include <fstream>
#include <utility>

#include "util/process.h"

namespace {

corvane::fuzz::Tool& the_tool() {
  static corvane::fuzz::Tool tool;
  return tool;
}

}  // namespace

void corvane::fuzz::set_tool(Tool tool) { the_tool() = std::move(tool); }

Process::Process(const std::string& command, std::string arguments)
    : command_(command), arguments_(std::move(arguments)) {}

void Process::redirect_to_file(const std::string& path) { output_path_ = path; }

void Process::start() {
  exit_status_ = 0;
  if (!output_path_ || !the_tool()) return;
  std::ofstream output(*output_path_, std::ios::binary | std::ios::app);
  output << the_tool()(command_ + " " + arguments_);
}

int Process::exit_code() const { return exit_status_; }
