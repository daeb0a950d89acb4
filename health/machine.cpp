#include "health/machine.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <system_error>
#include <vector>

namespace corvane::health {

namespace {

constexpr int kStateField = 3;  // of /proc/PID/stat, counted from 1
constexpr int kStartField = 22;
constexpr int kMostGroups = 1024;

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

bool is_same(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// A file, and the directories above it; empty when they cannot be looked at.
std::vector<struct stat> with_directories_above(const std::string& path) {
  std::error_code error;
  std::filesystem::path place = std::filesystem::canonical(path, error);
  std::vector<struct stat> all;
  while (!error) {
    if (stat(place.c_str(), &all.emplace_back()) != 0) break;
    if (place == place.root_path()) return all;
    place = place.parent_path();
  }
  return {};
}

// Whether somebody of this group, or of none that matters here, may open the file.
bool may_open(std::optional<gid_t> group, const struct stat& file,
              const std::vector<struct stat>& directories) {
  const auto allows = [&](const struct stat& found, mode_t of_group, mode_t of_others) {
    return (found.st_mode & (found.st_gid == group ? of_group : of_others)) != 0;
  };
  return allows(file, S_IRGRP | S_IWGRP, S_IROTH | S_IWOTH) &&
         std::ranges::all_of(directories, [&](const struct stat& directory) {
           return allows(directory, S_IXGRP, S_IXOTH);
         });
}

// A field of /proc/PID/stat that is not before the state; empty without one.
std::string stat_field(pid_t process, int number, const std::string& proc) {
  const std::string stat = content(proc + "/" + std::to_string(process) + "/stat");
  const std::size_t name_end = stat.rfind(')');  // the name before it may hold anything
  if (name_end == std::string::npos) return {};
  std::istringstream fields(stat.substr(name_end + 1));
  std::string field;
  for (int i = kStateField; i <= number; ++i) {
    if (!(fields >> field)) return {};
  }
  return field;
}

std::vector<gid_t> groups_of(uid_t account) {
  const struct passwd* known = getpwuid(account);
  if (known == nullptr) return {};
  std::vector<gid_t> groups(kMostGroups);
  int count = kMostGroups;
  if (getgrouplist(known->pw_name, known->pw_gid, groups.data(), &count) < 0)
    return {known->pw_gid};
  groups.resize(static_cast<std::size_t>(count));
  return groups;
}

}  // namespace

std::int64_t started_at(pid_t process, const std::string& proc) {
  const std::int64_t boot = boot_time(proc);
  if (boot == 0) return 0;
  const long ticks = sysconf(_SC_CLK_TCK);
  std::istringstream number(stat_field(process, kStartField, proc));
  std::int64_t start = 0;
  if (!(number >> start) || ticks <= 0) return 0;
  return boot + start / ticks;
}

bool is_stopped(pid_t process, const std::string& proc) {
  const std::string state = stat_field(process, kStateField, proc);
  return state == "T" || state == "t";
}

OpenFile open_file(pid_t process, const std::string& path, const std::string& proc) {
  struct stat wanted {};
  if (stat(path.c_str(), &wanted) != 0) return OpenFile::kUnknown;
  std::error_code error;
  std::filesystem::directory_iterator files(proc + "/" + std::to_string(process) + "/fd", error);
  if (error) return OpenFile::kUnknown;
  for (; !error && files != std::filesystem::directory_iterator(); files.increment(error)) {
    struct stat found {};
    if (stat(files->path().c_str(), &found) == 0 && is_same(found, wanted)) return OpenFile::kOpen;
  }
  return error ? OpenFile::kUnknown : OpenFile::kNotOpen;
}

bool is_open_to_others(const std::string& path) {
  std::vector<struct stat> directories = with_directories_above(path);
  if (directories.empty()) return false;
  const struct stat file = directories.front();
  directories.erase(directories.begin());
  if (may_open(std::nullopt, file, directories)) return true;
  const struct passwd* owner = getpwuid(file.st_uid);
  const auto is_foreign = [&](const struct stat& found) {
    return (owner == nullptr || owner->pw_gid != found.st_gid) &&
           may_open(found.st_gid, file, directories);
  };
  return is_foreign(file) || std::ranges::any_of(directories, is_foreign);
}

bool may_read(uid_t account, const std::string& path) {
  if (account == 0 || getxattr(path.c_str(), "system.posix_acl_access", nullptr, 0) > 0) {
    return true;
  }
  const std::vector<gid_t> groups = groups_of(account);
  const auto allows = [&](const struct stat& found, mode_t of_owner) {
    // The bits of the owner, the group and others are three apart. One set of them counts.
    if (found.st_uid == account) return (found.st_mode & of_owner) != 0;
    const bool is_member = std::ranges::find(groups, found.st_gid) != groups.end();
    return (found.st_mode & (of_owner >> (is_member ? 3U : 6U))) != 0;
  };
  const std::vector<struct stat> all = with_directories_above(path);
  return all.empty() || (allows(all.front(), S_IRUSR) &&
                         std::all_of(all.begin() + 1, all.end(), [&](const struct stat& directory) {
                           return allows(directory, S_IXUSR);
                         }));
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

std::int64_t changed_at(const std::string& path) {
  struct stat file {};
  return stat(path.c_str(), &file) == 0 ? static_cast<std::int64_t>(file.st_mtim.tv_sec) : 0;
}

std::optional<uid_t> owner_of(const std::string& path) {
  struct stat file {};
  if (stat(path.c_str(), &file) != 0) return std::nullopt;
  return file.st_uid;
}

}  // namespace corvane::health
