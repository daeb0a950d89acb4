#include "platform/process_handler.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <climits>
#include <csignal>
#include <filesystem>
#include <optional>
#include <set>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/descriptor.h"

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{2};   // before SIGKILL
constexpr std::chrono::seconds kWholeWait{5};  // of terminate()
constexpr std::chrono::milliseconds kPause{20};
constexpr std::string_view kDeletedSuffix = " (deleted)";

// The process id of a directory name of /proc. Threads have none there.
std::optional<pid_t> process_id(std::string_view name) {
  pid_t pid = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
  if (error != std::errc{} || end != name.data() + name.size() || pid <= 0) return std::nullopt;
  return pid;
}

// The beginning of a small file of /proc; one read returns all of it. Empty if the process has
// ended.
std::string read_start(const std::filesystem::path& path) {
  const corvane::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.is_open()) return "";
  std::array<char, 256> buffer{};
  const ssize_t size = read(file.get(), buffer.data(), buffer.size());
  return size > 0 ? std::string(buffer.data(), static_cast<std::size_t>(size)) : "";
}

std::string kernel_name(const std::filesystem::path& process) {
  std::string name = read_start(process / "comm");
  if (name.ends_with('\n')) name.pop_back();
  return name;
}

// Empty for kernel threads and for processes of other users, where permission is denied.
std::string executable_name(const std::filesystem::path& process) {
  std::array<char, PATH_MAX> buffer{};
  const ssize_t size = readlink((process / "exe").c_str(), buffer.data(), buffer.size());
  if (size <= 0) return "";
  std::string_view path(buffer.data(), static_cast<std::size_t>(size));
  if (path.ends_with(kDeletedSuffix)) path.remove_suffix(kDeletedSuffix.size());
  return std::string(path.substr(path.rfind('/') + 1));
}

// A process that has ended stays in the table, with its name, until its parent waits for it.
bool is_running(const std::filesystem::path& process) {
  const std::string stat = read_start(process / "stat");
  const std::size_t name_end = stat.rfind(") ");  // the name before it may contain anything
  if (name_end == std::string::npos) return false;
  const char state = stat[name_end + 2];
  return state != 'Z' && state != 'X' && state != 'x';
}

bool has_name(const std::filesystem::path& process, const std::string& name) {
  return kernel_name(process) == name || executable_name(process) == name;
}

}  // namespace

ProcessHandler::ProcessHandler(std::string name) : name_(std::move(name)) {}

std::vector<pid_t> ProcessHandler::getProcessIDs() const {
  std::vector<pid_t> ids;
  if (name_.empty()) return ids;
  std::error_code error;
  std::filesystem::directory_iterator entry("/proc", error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    const std::filesystem::path& process = entry->path();
    const auto pid = process_id(process.filename().native());
    if (!pid || *pid == getpid()) continue;
    if (has_name(process, name_) && is_running(process)) ids.push_back(*pid);
  }
  std::ranges::sort(ids);
  return ids;
}

void ProcessHandler::terminate() {
  const auto begin = steady_clock::now();
  std::set<pid_t> asked;
  for (;;) {
    const std::vector<pid_t> ids = getProcessIDs();
    const auto waited = steady_clock::now() - begin;
    if (ids.empty() || waited >= kWholeWait) return;
    for (const pid_t pid : ids) {
      // Processes that appeared during the wait get the signal too.
      if (asked.insert(pid).second) {
        kill(pid, SIGTERM);
      } else if (waited >= kPatience) {
        kill(pid, SIGKILL);
      }
    }
    std::this_thread::sleep_for(kPause);
  }
}
