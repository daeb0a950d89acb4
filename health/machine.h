// What the machine knows of processes, disks and files.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

namespace corvane::health {

// When a process began, in seconds since the epoch; 0 when it is gone. `proc`: where the process
// table is.
std::int64_t started_at(pid_t process, const std::string& proc = "/proc");

// Whether a signal or a debugger has stopped the process, which does nothing then.
bool is_stopped(pid_t process, const std::string& proc = "/proc");

enum class OpenFile { kUnknown, kOpen, kNotOpen };
// Whether the process has the file that is now at `path` open.
OpenFile open_file(pid_t process, const std::string& path, const std::string& proc = "/proc");

// Whether somebody beside root, the file's owner and the owner's own group may open it, going by
// its mode and those of the directories above it. False for a file that is absent.
bool is_open_to_others(const std::string& path);

// Whether an account may read the file, going by its mode and those of the directories above it.
// True when that cannot be told.
bool may_read(uid_t account, const std::string& path);

struct DiskSpace {
  std::int64_t total = 0;  // bytes; 0: unknown
  std::int64_t available = 0;
  double percent_free() const;
};
// Of the disk that the file, or the directory that it would be in, is on.
DiskSpace disk_space(const std::string& path);

// In bytes; 0 for a file that is absent.
std::int64_t file_bytes(const std::string& path);
// When it was written last; 0 for a file that is absent.
std::int64_t changed_at(const std::string& path);
// Nothing for a file that is absent.
std::optional<uid_t> owner_of(const std::string& path);

}  // namespace corvane::health
