// The command line of cvanomalydetect.
#pragma once

#include <cstddef>
#include <string>

namespace corvane::detect {

struct Options {
  enum class Mode { kDaemon, kOnce, kBacktest, kExplain, kHelp };

  Mode mode = Mode::kDaemon;
  std::string database_location = "/usr/tessel/var/global/anomaly_detection/";
  std::string database_file_name = "CV_Anomaly.db";
  std::string config_file = "/usr/tessel/var/global/anomaly_detection/anomaly_config.conf";
  double eps = 2.5;
  std::size_t min_samples = 3;
  int backtest_days = 0;
  bool json = false;
  std::string unique_key;

  std::string database_path() const;
};

// The arguments without the program's name. Returns an empty text, or what is wrong with them.
std::string parse_options(int count, const char* const* arguments, Options& options);

const char* usage();

}  // namespace corvane::detect
