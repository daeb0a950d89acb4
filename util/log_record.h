// Reading the debug log that platform/debug_log.h writes.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string_view>

namespace corvane {

// The first line of a record; what its text holds besides stands in lines that begin with a tab.
struct LogRecord {
  std::int64_t time = 0;  // seconds since the epoch; the milliseconds are left out
  pid_t process = 0;
  bool is_daemon = false;
  int level = 0;
  std::string_view text;  // with its tag: "cvanomalymgmt: Started"
};

// Nothing for any other line. The text is a part of `line`.
std::optional<LogRecord> read_log_record(std::string_view line);

// Cuts `begin` off the beginning of `text`; false when it begins with something else.
bool take(std::string_view& text, std::string_view begin);

// The same with a decimal number.
std::optional<std::int64_t> take_number(std::string_view& text);

}  // namespace corvane
