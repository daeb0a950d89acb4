#include "operator_tool/healer_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "health/trouble.h"
#include "platform/program_names.h"

namespace corvane::ctl {

namespace {

[[noreturn]] void fail(const std::string& why) {
  throw health::Trouble(health::ExitStatus::kFailed, why);
}

pid_t started(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  // posix_spawn() does not write to them.
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t process = 0;
  const int error = posix_spawn(&process, arguments[0], &files, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  if (error != 0) fail("Cannot start " + command[0] + ": " + std::strerror(error) + ".");
  return process;
}

}  // namespace

std::string healer_path() {
  std::error_code error;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  return (self.parent_path() / kHealProgram).string();
}

std::vector<std::string> healer_command(const std::string& program, const Options& options) {
  const std::filesystem::path database = std::filesystem::absolute(options.database);
  std::vector<std::string> command{program,
                                   "-database_location",
                                   database.parent_path().string(),
                                   "-database_file_name",
                                   database.filename().string(),
                                   "-config_file",
                                   std::filesystem::absolute(options.config).string()};
  if (options.command == Command::kHeal) command.emplace_back("-now");
  if (options.command == Command::kGather) {
    command.insert(command.end(),
                   {"-gather", std::to_string(options.from), std::to_string(options.to)});
  }
  return command;
}

void run_healer(const std::vector<std::string>& command) {
  const pid_t process = started(command);
  int status = 0;
  while (waitpid(process, &status, 0) == -1 && errno == EINTR) {
  }
  if (WIFSIGNALED(status)) {
    fail(std::string(kHealProgram) + " was ended by signal " + std::to_string(WTERMSIG(status)) +
         ".");
  }
  if (WEXITSTATUS(status) != 0) {
    fail(std::string(kHealProgram) + " failed. Its log gives the reason.");
  }
}

}  // namespace corvane::ctl
