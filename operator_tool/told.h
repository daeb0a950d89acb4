// What the alerts have told whom of an incident.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "operator_tool/options.h"

namespace corvane::ctl {

struct Told {
  std::string channel;
  std::string kind;   // report, begin, rise, end
  std::string state;  // waiting, in a summary, taken, given up, replaced
  std::int64_t time = 0;
  std::string reason;  // of the last failure
};

// In the order they were made. The alerts forget messages that everybody took after two days.
// Empty when they have no database, or one that cannot be read.
std::vector<Told> read_told(const Options& options, const std::string& incident);

}  // namespace corvane::ctl
