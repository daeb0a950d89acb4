// The command line of cvanomalyctl.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "health/places.h"
#include "health/problems.h"

namespace corvane::ctl {

enum class Command {
  kStatus,
  kStreams,
  kAnomalies,
  kShow,
  kExplain,
  kBacktest,
  kCheck,
  kMetrics,
  kReport,
  kHeal,
  kGather
};

struct Options {
  Command command = Command::kStatus;
  bool json = false;
  bool exit_status = false;  // of status: that of check
  bool heartbeat = false;    // of check: calls the address of the configuration
  bool utc = false;
  bool no_colour = false;
  std::string database;  // never empty once parsed
  std::string config;
  std::string logs;                 // directory of the programs' logs
  std::string client;               // empty: all
  std::string state;                // of streams; empty: all
  int severity = 0;                 // the least; 0: all
  int days = 0;                     // 0: all
  std::optional<bool> is_reviewed;  // anomalies; absent: all
  std::optional<bool> is_resolved;  // their incident; absent: all
  std::string id;                   // of an anomaly, of a backup, or a unique key
  std::string output;
  std::int64_t from = 0;  // of gather, seconds since the epoch, both included
  std::int64_t to = 0;
  health::Thresholds thresholds;

  health::Places places() const;
};

struct Parsed {
  std::string help;  // not empty: was asked for, nothing else counts
  // What is wrong with the arguments, if anything is. Of `options` then only --json and
  // --exit-code are set, and the command when it is check.
  std::string wrong;
  Options options;
};

// `arguments` with the program's name.
Parsed parse_options(int count, const char* const* arguments);

}  // namespace corvane::ctl
