#include "operator_tool/ask/machine.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace corvane::ctl {

namespace {

constexpr int kStartField = 22;  // of /proc/PID/stat, counted from 1
constexpr int kFieldsBeforeState = 2;

std::string content(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::int64_t boot_time(const std::string& proc) {
  std::istringstream lines(content(proc + "/stat"));
  for (std::string word; lines >> word;) {
    std::int64_t seconds = 0;
    if (word == "btime" && lines >> seconds) return seconds;
  }
  return 0;
}

}  // namespace

std::int64_t started_at(pid_t process, const std::string& proc) {
  const std::string stat = content(proc + "/" + std::to_string(process) + "/stat");
  const std::size_t name_end = stat.rfind(')');  // the name before it may hold anything
  const std::int64_t boot = boot_time(proc);
  if (name_end == std::string::npos || boot == 0) return 0;
  std::istringstream fields(stat.substr(name_end + 1));
  std::string field;
  for (int i = kFieldsBeforeState; i < kStartField && fields >> field; ++i) {
  }
  const long ticks = sysconf(_SC_CLK_TCK);
  std::istringstream number(field);
  std::int64_t start = 0;
  if (!(number >> start) || ticks <= 0) return 0;
  return boot + start / ticks;
}

double DiskSpace::percent_free() const {
  return total > 0 ? 100.0 * static_cast<double>(available) / static_cast<double>(total) : 100.0;
}

DiskSpace disk_space(const std::string& path) {
  struct statvfs disk {};
  const std::filesystem::path directory = std::filesystem::path(path).parent_path();
  const std::string place = directory.empty() ? "." : directory.string();
  if (statvfs(place.c_str(), &disk) != 0) return {};
  const auto unit = static_cast<std::int64_t>(disk.f_frsize);
  return {static_cast<std::int64_t>(disk.f_blocks) * unit,
          static_cast<std::int64_t>(disk.f_bavail) * unit};
}

std::int64_t file_bytes(const std::string& path) {
  struct stat file {};
  return stat(path.c_str(), &file) == 0 ? static_cast<std::int64_t>(file.st_size) : 0;
}

}  // namespace corvane::ctl
