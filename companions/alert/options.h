// The command line of cvanomalyalert.
#pragma once

#include <string>

namespace corvane::alert {

struct Options {
  enum class Mode { kDaemon, kOnce, kTest, kStatus, kResend, kHelp };

  Mode mode = Mode::kDaemon;
  std::string database_location = "/usr/tessel/var/global/anomaly_detection/";
  std::string database_file_name = "CV_Anomaly.db";
  std::string master;        // empty: the server named in the product's configuration
  std::string config_file;   // empty: the file beside the database
  std::string test_channel;  // empty: all

  std::string database_path() const;
  std::string config_path() const;
  // Path of a file that the program keeps beside the database; suffix: ".db", ".lock", ".dead".
  std::string own_file(const std::string& suffix) const;
};

// Parses the arguments (without the program's name). Returns what is wrong; empty when nothing is.
std::string parse_options(int count, const char* const* arguments, Options& options);

const char* usage();

// The server whose web service gets the anomalies: from the options, else from the product's
// configuration. Empty when neither names one.
std::string master_name(const Options& options);

}  // namespace corvane::alert
