#include "companions/detect/options.h"

#include <charconv>
#include <cmath>
#include <string_view>

#include "util/path.h"

namespace corvane::detect {

namespace {

constexpr int kMostDays = 36500;

template <typename Number>
bool read_number(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} && end == text.data() + text.size();
}

// False when this option does not take a value. Sets `error` when the value is not acceptable.
bool take_value(std::string_view name, std::string_view value, Options& options,
                std::string& error) {
  bool good = !value.empty();
  if (name == "-database_location") {
    options.database_location = value;
  } else if (name == "-database_file_name") {
    options.database_file_name = value;
  } else if (name == "-config_file") {
    options.config_file = value;
  } else if (name == "-eps") {
    good = read_number(value, options.eps) && std::isfinite(options.eps) && options.eps > 0;
  } else if (name == "-min_samples") {
    good = read_number(value, options.min_samples) && options.min_samples > 0;
  } else if (name == "-backtest") {
    options.mode = Options::Mode::kBacktest;
    good = read_number(value, options.backtest_days) && options.backtest_days > 0 &&
           options.backtest_days <= kMostDays;
  } else if (name == "-explain") {
    options.mode = Options::Mode::kExplain;
    options.unique_key = value;
  } else {
    return false;
  }
  if (!good) error = "Invalid value for " + std::string(name) + ": " + std::string(value);
  return true;
}

bool takes_value(std::string_view name) {
  Options ignored;
  std::string error;
  return take_value(name, "1", ignored, error);
}

}  // namespace

std::string Options::database_path() const {
  return Path::Combine(database_location, database_file_name);
}

std::string parse_options(int count, const char* const* arguments, Options& options) {
  int modes = 0;
  for (int i = 0; i < count; ++i) {
    const std::string_view name = arguments[i];
    if (name == "-once") {
      options.mode = Options::Mode::kOnce;
      ++modes;
    } else if (name == "-help" || name == "-h") {
      options.mode = Options::Mode::kHelp;
      return {};
    } else if (name == "-json") {
      options.json = true;
    } else if (!takes_value(name)) {
      return "Unknown option: " + std::string(name);
    } else if (i + 1 == count) {
      return "Missing value for " + std::string(name);
    } else {
      std::string error;
      take_value(name, arguments[++i], options, error);
      if (!error.empty()) return error;
      if (name == "-backtest" || name == "-explain") ++modes;
    }
  }
  if (modes > 1) return "Use only one of -once, -backtest and -explain";
  if (options.json && options.mode != Options::Mode::kBacktest)
    return "-json is only valid with -backtest";
  return {};
}

const char* usage() {
  return "\n"
         "cvanomalydetect [-database_location DIRECTORY] [-database_file_name NAME]\n"
         "                [-eps NUMBER] [-min_samples NUMBER] [-config_file FILE]\n"
         "                [-once | -backtest DAYS [-json] | -explain UNIQUE_KEY | -help]\n"
         "\nWithout -once, -backtest, -explain or -help, it runs as a daemon until SIGTERM.\n"
         "\nWhere:"
         "\n  -database_location  : Directory of the anomaly database."
         "\n  -database_file_name : File name of the anomaly database."
         "\n  -eps                : Radius of a neighbourhood, in spreads (2.5)."
         "\n  -min_samples        : Minimum number of points within the radius, itself "
         "included, of a core point (3)."
         "\n  -config_file        : Configuration file."
         "\n  -once               : Judge the waiting backups, print the counts, then exit."
         "\n  -backtest           : Judge the stored backups of the last DAYS days again and "
         "print the"
         "\n                        anomalies; with -json, as JSON. Nothing is changed."
         "\n  -explain            : Print as JSON how one backup is judged, and why."
         "\n  -help               : Print this help."
         "\n\n";
}

}  // namespace corvane::detect
