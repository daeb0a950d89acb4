// The command line of cvanomalyalert.
#pragma once

#include <string>

namespace corvane::alert {

struct Options {
  enum class Mode { kDaemon, kOnce, kTest, kStatus, kResend, kHelp };

  Mode mode = Mode::kDaemon;
  std::string database_location = "/usr/tessel/var/global/anomaly_detection/";
  std::string database_file_name = "CV_Anomaly.db";
  std::string master;        // empty: the one that the product's configuration names
  std::string config_file;   // empty: the one beside the database
  std::string test_channel;  // empty: all

  std::string database_path() const;
  std::string config_path() const;
  // What the program keeps beside the database, by its suffix: ".db", ".lock", ".dead".
  std::string own_file(const std::string& suffix) const;
};

// Empty when the arguments (without the program's name) are understood, else what is wrong.
std::string parse_options(int count, const char* const* arguments, Options& options);

const char* usage();

// The server whose web service is told: of the options, else of the product's configuration; empty
// when neither names one.
std::string master_name(const Options& options);

}  // namespace corvane::alert
