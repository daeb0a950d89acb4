// Reading a log that is rotated, once and completely.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::coverage {

// How far a log has been read.
struct LogPosition {
  std::string first_line;   // of its file, which is known by it wherever it is moved or copied
  std::int64_t offset = 0;  // of the first line that has not been read, without compression
};

// Rotated files stand beside the log, with something after its name that begins with "." or "-",
// and may be compressed with gzip.
class LogFollower {
 public:
  using Visit = std::function<void(std::string_view line)>;

  explicit LogFollower(std::string path);

  // Visits every complete line from `position` on, the oldest first, and moves it. Without a first
  // line it begins with the oldest file. False when lines are missing before or between those that
  // were visited: their file is gone, or cannot be read. Then `missing` was called in their place.
  bool read(LogPosition& position, const Visit& visit, const std::function<void()>& missing);

 private:
  struct File {
    std::string path;
    std::string first_line;
    int place = 0;  // among the others, by its name
  };
  std::vector<File> files() const;

  std::string path_;
};

}  // namespace corvane::coverage
