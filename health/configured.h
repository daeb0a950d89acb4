// What the configuration file says, read as the programs do.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "companions/detect/judge.h"

namespace corvane::health {

inline constexpr int kMostInterval = 1000000;  // minutes; so that sums of them do not overflow

// Without a file, and with one that is malformed, the defaults.
struct Configured {
  bool service = true;
  bool detection = true;
  bool alerts = true;
  int interval_minutes = 15;
  int purge_months = 12;  // as the service counts them; records are deleted with 0 or less
  std::string purge;      // the setting as it is written
  bool has_file = true;
  std::string trouble;        // why the file cannot be used; empty: it can
  std::int64_t changed = 0;   // when the file was written last; 0: unknown
  bool heals = true;          // missed backups are gathered, dead companions started
  std::string heartbeat_url;  // empty: none
  std::string ca_file;        // empty: the system's authorities
  detect::Settings detect;
};

// Throws Trouble when the caller may not read the file, unless the account of the service may not
// either. No account: it is not known.
Configured read_configuration(const std::string& path, std::optional<uid_t> account = {});

// The number of the first line that is neither blank, nor a comment, a section or a setting, from
// 1; 0: there is none.
std::int64_t malformed_line(std::string_view text);

}  // namespace corvane::health
