// What the machine knows of processes, disks and files.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace corvane::ctl {

// When a process began, in seconds since the epoch; 0 when it is gone. `proc`: where the process
// table is.
std::int64_t started_at(pid_t process, const std::string& proc = "/proc");

struct DiskSpace {
  std::int64_t total = 0;  // bytes; 0: unknown
  std::int64_t available = 0;
  double percent_free() const;
};
// Of the disk that the file, or the directory that it would be in, is on.
DiskSpace disk_space(const std::string& path);

// In bytes; 0 for a file that is absent.
std::int64_t file_bytes(const std::string& path);

}  // namespace corvane::ctl
