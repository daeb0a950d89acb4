// What the service's debug log says about its gathers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace corvane::ctl {

// Of the live gathers that ended since a given time, as far back as the log was read.
struct GatherLog {
  std::int64_t from = 0;  // time of the oldest record that was read; 0: there is none
  std::int64_t gathers = 0;
  std::int64_t failed = 0;         // in whose course an error was logged
  std::int64_t last_failed = 0;    // when the last of them ended; 0: none
  std::int64_t last_end = 0;       // of the last gather at all; 0: none was seen
  std::int64_t last_seconds = -1;  // that it took; -1: unknown
};

// Reads at most the last 4 MB of the log. Of a log that does not exist nothing is known.
GatherLog read_gather_log(const std::string& path, std::int64_t since);

// The same for a log's text. An incomplete first line is skipped.
GatherLog parse_gather_log(std::string_view text, std::int64_t since);

}  // namespace corvane::ctl
