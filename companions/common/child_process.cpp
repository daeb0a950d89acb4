#include "companions/common/child_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <system_error>

namespace corvane {

namespace {

void check(int error, const std::string& what = "posix_spawn") {
  if (error != 0) throw std::system_error(error, std::generic_category(), what);
}

class SpawnSettings {
 public:
  SpawnSettings(ChildProcess::Output output, std::optional<int> input) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attributes_);
    if (input) check(posix_spawn_file_actions_adddup2(&actions_, *input, STDIN_FILENO));
    if (output == ChildProcess::Output::kDropped) {
      for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
        check(posix_spawn_file_actions_addopen(&actions_, stream, "/dev/null", O_WRONLY, 0));
      }
    }
    check(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setflags(
        &attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
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

pid_t spawn(const std::vector<std::string>& command, const SpawnSettings& settings) {
  std::vector<char*> arguments;
  // posix_spawn() does not write to them.
  std::ranges::transform(command, std::back_inserter(arguments),
                         [](const std::string& word) { return const_cast<char*>(word.c_str()); });
  arguments.push_back(nullptr);
  pid_t id = 0;
  check(posix_spawn(&id, arguments.front(), settings.actions(), settings.attributes(),
                    arguments.data(), environ),
        command.front());
  return id;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command, Output output,
                           std::optional<int> input)
    : id_(spawn(command, SpawnSettings(output, input))),
      ended_(static_cast<int>(syscall(SYS_pidfd_open, id_, 0))) {
  if (ended_.is_open()) return;
  const int error = errno;
  finish();
  check(error, "cannot wait for " + command.front());
}

int ChildProcess::finish() {
  if (status_) return *status_;
  // Before waitpid(): until then no other group can get this number.
  kill(-id_, SIGKILL);
  int status = 0;
  while (waitpid(id_, &status, 0) == -1 && errno == EINTR) {
  }
  status_ = status;
  return status;
}

}  // namespace corvane
