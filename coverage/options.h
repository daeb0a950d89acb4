// The command line of cvanomalyheal.
#pragma once

#include <string>

#include "coverage/time_ranges.h"

namespace corvane::coverage {

struct Options {
  enum class Mode {
    kLook,         // brings the ledger up to date and gathers what is missing
    kGather,       // gathers a range that somebody named
    kGatherAgain,  // the worker that gathers a range
    kListJobs,     // the worker that lists the jobs of a range
    kRun,          // becomes a companion, as the service would start it
    kHelp,
  };

  Mode mode = Mode::kLook;
  std::string database_location = "/usr/tessel/var/global/anomaly_detection";
  std::string database_file_name = "CV_Anomaly.db";
  std::string config_file;  // empty: beside the database
  bool at_once = false;     // of a look: whatever waits for its next attempt is tried
  TimeRange range;          // to be gathered, or of the jobs
  std::string companion;    // to become

  std::string database_path() const;
  std::string config_path() const;
  // A file beside the database: its name without ".db", with "_Coverage" and the suffix.
  std::string own_file(const std::string& suffix) const;
};

// The arguments without the program's name. Returns an empty text, or what is wrong with them.
std::string parse_options(int count, const char* const* arguments, Options& options);

const char* usage();

}  // namespace corvane::coverage
