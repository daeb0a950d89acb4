#include "companions/alert/channel/command_channel.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <iterator>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "config/settings.h"
#include "platform/descriptor.h"
#include "platform/sigpipe_blocked.h"

namespace corvane::alert {

namespace {

using Clock = std::chrono::steady_clock;

void check(int error) {
  if (error != 0) throw std::runtime_error(std::strerror(error));
}

// Default signals, a process group of its own, no output, and no other descriptor open.
class SpawnSettings {
 public:
  explicit SpawnSettings(int input) {
    check(posix_spawn_file_actions_init(&actions_));
    check(posix_spawnattr_init(&attributes_));
    check(posix_spawn_file_actions_adddup2(&actions_, input, STDIN_FILENO));
    for (const int output : {STDOUT_FILENO, STDERR_FILENO}) {
      check(posix_spawn_file_actions_addopen(&actions_, output, "/dev/null", O_WRONLY, 0));
    }
    check(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    check(posix_spawnattr_setsigdefault(&attributes_, &all));
    check(posix_spawnattr_setsigmask(&attributes_, &none));
    check(posix_spawnattr_setflags(
        &attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP));
  }
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

// A child that gets `text` on its input. At the end nothing of its process group is left running.
class Running {
 public:
  Running(pid_t pid, Descriptor input, const std::string& text)
      : pid_(pid),
        input_(std::move(input)),
        ended_(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))),
        text_(text) {}
  ~Running() { finish(); }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  // True when the child has ended by itself.
  bool watch(Clock::time_point deadline, const StopFlag& stop) {
    if (!ended_.is_open()) throw std::runtime_error("cannot wait for the program");
    for (;;) {
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
      if (left <= 0 || stop.is_asked()) return false;
      pollfd polled[]{
          {ended_.get(), POLLIN, {}}, {input_.get(), POLLOUT, {}}, {stop.descriptor(), POLLIN, {}}};
      poll(polled, std::size(polled), static_cast<int>(left));
      const auto& [ended, room, stopped] = polled;
      if (ended.revents != 0) return true;
      if (room.revents != 0) feed();
    }
  }

  // Ends what is left of its process group. Returns waitpid()'s status of the child.
  int finish() {
    if (status_) return *status_;
    // Before waitpid(): until then no other group can get this number.
    kill(-pid_, SIGKILL);
    int status{};
    while (waitpid(pid_, &status, 0) == -1 && errno == EINTR) {
    }
    status_ = status;
    return status;
  }

 private:
  void feed() {
    const SigpipeBlocked blocked;
    const ssize_t written = write(input_.get(), text_.data() + at_, text_.size() - at_);
    if (written > 0) at_ += static_cast<std::size_t>(written);
    const bool is_over = written < 0 && errno != EAGAIN && errno != EINTR;
    if (is_over || at_ == text_.size()) input_.reset();
  }

  pid_t pid_;
  Descriptor input_;
  Descriptor ended_;
  const std::string& text_;
  std::size_t at_ = 0;
  std::optional<int> status_;
};

pid_t spawn(const std::vector<std::string>& words, int input) {
  std::vector<char*> arguments;
  std::ranges::transform(words, std::back_inserter(arguments),
                         [](const std::string& word) { return const_cast<char*>(word.c_str()); });
  arguments.push_back(nullptr);
  const SpawnSettings settings(input);
  pid_t pid{};
  check(posix_spawn(&pid, arguments.front(), settings.actions(), settings.attributes(),
                    arguments.data(), environ));
  return pid;
}

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
  pid_t pid{};
  try {
    pid = spawn(words_, output.get());
  } catch (const std::exception& error) {
    return {false, words_.front() + ": " + error.what()};
  }
  output.reset();
  const std::string text = document_of(message) + "\n";
  Running running(pid, std::move(input), text);
  if (running.watch(Clock::now() + std::chrono::seconds(seconds_), stop_)) {
    return result_of(running.finish());
  }
  if (stop_.is_asked()) return {false, "interrupted: cvanomalyalert is stopping"};
  return {false, "the program took longer than " + std::to_string(seconds_) + " s and was killed"};
}

}  // namespace corvane::alert
