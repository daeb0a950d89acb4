#include "util/process.h"

#include <ace/OS_NS_fcntl.h>
#include <ace/OS_NS_sys_wait.h>
#include <ace/OS_NS_unistd.h>
#include <ace/Process.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include "platform/descriptor.h"
#include "platform/standard_descriptors.h"

namespace {

constexpr std::size_t kUsualLineBuffer = 2048;
constexpr std::size_t kEnvironmentBuffer = 16384;
constexpr std::size_t kMaxEnvironmentEntries = 512;
constexpr std::size_t kMaxArguments = 128;

// If there is no memory for a buffer, ACE's options only set errno and then use the buffer anyway.
void throw_when_out_of_memory() {
  if (errno == ENOMEM) throw std::bad_alloc();
}

struct Destroy {
  void operator()(ACE_Process_Options* options) const { std::destroy_at(options); }
};

// The options for a command line. Their storage is zeroed: after a failed allocation their
// destructor frees members that their constructor did not reach. Throws std::bad_alloc.
class SpawnOptions {
 public:
  SpawnOptions(std::size_t line_buffer, const std::string& line) {
    errno = 0;
    options_.reset(::new (storage_.data()) ACE_Process_Options(
        true, line_buffer, kEnvironmentBuffer, kMaxEnvironmentEntries, kMaxArguments));
    throw_when_out_of_memory();
    options_->command_line("%s", line.c_str());
    options_->command_line_argv();  // splits the line, as the spawn expects
    throw_when_out_of_memory();
  }

  ACE_Process_Options& operator*() { return *options_; }

 private:
  alignas(ACE_Process_Options) std::array<std::byte, sizeof(ACE_Process_Options)> storage_{};
  std::unique_ptr<ACE_Process_Options, Destroy> options_;
};

}  // namespace

Process::Process(const std::string& command, std::string arguments)
    : command_(command), arguments_(std::move(arguments)) {}

void Process::redirect_to_file(const std::string& path) { output_path_ = path; }

void Process::start() {
  const std::size_t line_buffer =
      arguments_.size() <= kUsualLineBuffer / 2 ? kUsualLineBuffer : 2 * arguments_.size();
  SpawnOptions spawn_options(line_buffer, command_ + " " + arguments_);
  ACE_Process_Options& options = *spawn_options;

  ACE_Process process;
  corvane::Descriptor output;
  if (output_path_) {
    // The spawn duplicates its three handles into the lowest free descriptors, and the child closes
    // the duplicates after moving them into place. If a duplicate got 1 or 2, which the daemon has
    // closed, the tool's output would be lost with it.
    const corvane::StandardDescriptorsFilled filled;
    output.reset(ACE_OS::open(output_path_->c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    options.set_handles(0, output.get(), output.get());
    process.spawn(options);
    options.release_handles();
  } else {
    process.spawn(options);
  }
  ACE_OS::waitpid(process.getpid(), &exit_status_, 0);
}

int Process::exit_code() const { return exit_status_; }
