#include "util/file_watch.h"

#include <utility>

namespace corvane {

FileWatch::FileWatch(std::string path) : path_(std::move(path)) {}

bool FileWatch::changed() {
  struct stat now {};
  const bool exists = stat(path_.c_str(), &now) == 0;
  const bool same =
      existed_ == exists &&
      (!exists || (now.st_ino == seen_.st_ino && now.st_dev == seen_.st_dev &&
                   now.st_size == seen_.st_size && now.st_mtim.tv_sec == seen_.st_mtim.tv_sec &&
                   now.st_mtim.tv_nsec == seen_.st_mtim.tv_nsec));
  existed_ = exists;
  seen_ = now;
  return !same;
}

void FileIdentity::remember(const std::string& path) {
  path_ = path;
  found_ = stat(path.c_str(), &seen_) == 0;
}

bool FileIdentity::is_same() const {
  struct stat now {};
  return found_ && stat(path_.c_str(), &now) == 0 && now.st_ino == seen_.st_ino &&
         now.st_dev == seen_.st_dev;
}

}  // namespace corvane
