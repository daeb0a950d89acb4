#include "companions/alert/channel/command_channel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iterator>
#include <optional>
#include <sstream>
#include <system_error>
#include <utility>

#include "companions/common/child_process.h"
#include "config/settings.h"
#include "platform/descriptor.h"
#include "platform/sigpipe_blocked.h"

namespace corvane::alert {

namespace {

using Clock = std::chrono::steady_clock;

// Gives a program a text on its input.
class Feed {
 public:
  Feed(Descriptor input, const std::string& text) : input_(std::move(input)), text_(text) {}

  // Returns true when the program has ended by itself.
  bool watch(const ChildProcess& program, Clock::time_point deadline, const StopFlag& stop) {
    for (;;) {
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
      if (left <= 0 || stop.is_asked()) return false;
      pollfd polled[]{{program.ended(), POLLIN, {}},
                      {input_.get(), POLLOUT, {}},
                      {stop.descriptor(), POLLIN, {}}};
      poll(polled, std::size(polled), static_cast<int>(left));
      const auto& [ended, room, stopped] = polled;
      if (ended.revents != 0) return true;
      if (room.revents != 0) write_some();
    }
  }

 private:
  void write_some() {
    const SigpipeBlocked blocked;
    const ssize_t written = write(input_.get(), text_.data() + at_, text_.size() - at_);
    if (written > 0) at_ += static_cast<std::size_t>(written);
    const bool is_over = written < 0 && errno != EAGAIN && errno != EINTR;
    if (is_over || at_ == text_.size()) input_.reset();
  }

  Descriptor input_;
  const std::string& text_;
  std::size_t at_ = 0;
};

SendResult result_of(int status) {
  if (WIFSIGNALED(status)) {
    return {false, "the program was killed by signal " + std::to_string(WTERMSIG(status))};
  }
  if (WEXITSTATUS(status) == 0) return {true, ""};
  return {false, "the program exited with status " + std::to_string(WEXITSTATUS(status))};
}

}  // namespace

CommandChannel::CommandChannel(const std::string& command, int seconds, const StopFlag& stop)
    : seconds_(seconds), stop_(stop) {
  std::istringstream words(command);
  for (std::string word; words >> word;) words_.push_back(word);
}

SendResult CommandChannel::send(const Message& message) {
  if (words_.empty() || !words_.front().starts_with('/')) {
    return {false, std::string(setting::kCommand.key) + " must be the full path of a program"};
  }
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return {false, std::strerror(errno)};
  Descriptor output(ends.front());
  Descriptor input(ends.back());
  fcntl(input.get(), F_SETFL, O_NONBLOCK);
  std::optional<ChildProcess> program;
  try {
    program.emplace(words_, ChildProcess::Output::kDropped, output.get());
  } catch (const std::system_error& error) {
    return {false, error.what()};
  }
  output.reset();
  const std::string text = document_of(message) + "\n";
  Feed feed(std::move(input), text);
  if (feed.watch(*program, Clock::now() + std::chrono::seconds(seconds_), stop_)) {
    return result_of(program->finish());
  }
  if (stop_.is_asked()) return {false, "interrupted: cvanomalyalert is stopping"};
  return {false, "the program took longer than " + std::to_string(seconds_) + " s and was killed"};
}

}  // namespace corvane::alert
