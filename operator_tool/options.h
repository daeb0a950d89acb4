// The command line of cvanomalyctl.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

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
  kReport
};

// When check is WARNING and when CRITICAL. Negative: depends on the gather interval.
struct Thresholds {
  int gather_warning = -1;  // minutes since the last gather
  int gather_critical = -1;
  int alerts_warning = 30;  // minutes that the oldest message has been pending
  int alerts_critical = 240;
  int disk_warning = 10;  // percent that is free
  int disk_critical = 3;
};

struct Options {
  Command command = Command::kStatus;
  bool json = false;
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
  Thresholds thresholds;

  // The database of cvanomalyalert.
  std::string alert_database() const;
  std::string log_file(const std::string& program) const;
};

struct Parsed {
  std::string help;  // not empty: was asked for, nothing else counts
  // What is wrong with the arguments, if anything is. Of `options` then only --json is set, and
  // the command when it is check.
  std::string wrong;
  Options options;
};

// `arguments` with the program's name.
Parsed parse_options(int count, const char* const* arguments);

}  // namespace corvane::ctl
