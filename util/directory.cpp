#include "util/directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string_view>

#include "platform/c_handles.h"
#include "util/path.h"

namespace {

void append_entries(const std::string& path, bool folders, std::vector<std::string>& out) {
  const corvane::DirPtr directory(opendir(path.c_str()));
  if (!directory) return;
  while (const dirent* entry = readdir(directory.get())) {
    const std::string_view name = entry->d_name;
    if (folders && (name == "." || name == "..")) continue;
    if (Directory::is_folder(Path::Combine(path, entry->d_name)) == folders) {
      out.emplace_back(name);
    }
  }
}

}  // namespace

bool Directory::CanAccess(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

bool Directory::Exists(const std::string& path) { return CanAccess(path); }

int Directory::UnlinkFile(const std::string& path) {
  return Exists(path) ? unlink(path.c_str()) : 0;
}

int Directory::RmDir(const std::string& path) { return rmdir(path.c_str()); }

void Directory::MkDir(const std::string& path) { mkdir(path.c_str(), 0755); }

bool Directory::is_folder(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

void Directory::GetDirectories(const std::string& path, std::vector<std::string>& out) {
  append_entries(path, true, out);
}

std::vector<std::string> Directory::GetDirectories(const std::string& path) {
  std::vector<std::string> names;
  GetDirectories(path, names);
  return names;
}

void Directory::GetFiles(const std::string& path, std::vector<std::string>& out) {
  append_entries(path, false, out);
}

std::vector<std::string> Directory::GetFiles(const std::string& path) {
  std::vector<std::string> names;
  GetFiles(path, names);
  return names;
}
