#include "tests/unit/service/process_calls.h"

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <fstream>
#include <sstream>

#include "tests/support/scratch_dir.h"

namespace corvane::test {

namespace {

std::string report_path(int depth) {
  return process_calls().report_directory + "/" + std::to_string(depth);
}

// Reports this process's end, unless it is the test's own.
void report_end(const std::string& end) {
  if (process_calls().depth == 0 || process_calls().report_directory.empty()) return;
  std::ofstream(report_path(process_calls().depth)) << report_text(fake::log_lines(), end);
}

bool counts_down_to_failure(int& calls_left) { return calls_left > 0 && --calls_left == 0; }

}  // namespace

ProcessCalls& process_calls() {
  static ProcessCalls calls;
  return calls;
}

std::string report_of(int depth) {
  const std::string path = report_path(depth);
  return std::filesystem::exists(path) ? read_file(path) : "";
}

std::string report_text(const std::vector<fake::LogLine>& log, const std::string& end) {
  std::ostringstream text;
  for (const fake::LogLine& line : log) text << line << '\n';
  text << end << '\n';
  return text.str();
}

}  // namespace corvane::test

using corvane::test::counts_down_to_failure;
using corvane::test::process_calls;
using corvane::test::report_end;

extern "C" {

using Handler = void (*)(int);

pid_t __real_fork();
pid_t __real_setsid();
Handler __real_signal(int number, Handler handler);
[[noreturn]] void __real__exit(int status);
[[noreturn]] void __real_exit(int status);

pid_t __wrap_fork() {
  if (counts_down_to_failure(process_calls().fork_fails_in)) {
    errno = EAGAIN;
    return -1;
  }
  const pid_t pid = __real_fork();
  if (pid == 0) {
    ++process_calls().depth;
    corvane::fake::state().log.clear();
  }
  return pid;
}

pid_t __wrap_setsid() {
  if (process_calls().setsid_error == 0) return __real_setsid();
  errno = process_calls().setsid_error;
  return -1;
}

Handler __wrap_signal(int number, Handler handler) {
  const char* const meaning = handler == SIG_IGN   ? " ignore"
                              : handler == SIG_DFL ? " default"
                                                   : " handler";
  process_calls().signal_calls.push_back(std::to_string(number) + meaning);
  if (counts_down_to_failure(process_calls().signal_fails_in)) return SIG_ERR;
  return __real_signal(number, handler);
}

[[noreturn]] void __wrap__exit(int status) {
  report_end("_exit " + std::to_string(status));
  __real__exit(status);
}

[[noreturn]] void __wrap_exit(int status) {
  report_end("exit " + std::to_string(status));
  __real_exit(status);
}

int __wrap_execlp(const char* program, const char* first_argument, ...) {
  std::vector<char*> arguments;
  std::va_list rest;
  va_start(rest, first_argument);
  std::string end = std::string("exec ") + program;
  for (const char* argument = first_argument; argument != nullptr;
       argument = va_arg(rest, const char*)) {
    arguments.push_back(const_cast<char*>(argument));
    end += std::string(" ") + argument;
  }
  va_end(rest);
  arguments.push_back(nullptr);
  report_end(end);
  return execvp(program, arguments.data());
}

// What the compiler puts in place of execlp where coverage is counted.
int __wrap___gcov_execlp(const char* program, const char* first_argument, ...)
    __attribute__((alias("__wrap_execlp")));

}  // extern "C"
