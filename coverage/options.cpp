#include "coverage/options.h"

#include <charconv>
#include <climits>
#include <string_view>

#include "platform/program_names.h"
#include "util/path.h"

namespace corvane::coverage {

namespace {

// Seconds since the epoch, as far as the gather's numbers reach.
bool read_time(std::string_view text, std::int64_t& time) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), time);
  return error == std::errc{} && end == text.data() + text.size() && time >= 0 && time <= INT_MAX;
}

std::string* value_place(std::string_view name, Options& options) {
  if (name == "-database_location") return &options.database_location;
  if (name == "-database_file_name") return &options.database_file_name;
  if (name == "-config_file") return &options.config_file;
  return nullptr;
}

bool read_mode(std::string_view name, Options::Mode& mode) {
  using Mode = Options::Mode;
  if (name == "-gather") {
    mode = Mode::kGather;
  } else if (name == "-gather_again") {
    mode = Mode::kGatherAgain;
  } else if (name == "-list_jobs") {
    mode = Mode::kListJobs;
  } else if (name == "-run") {
    mode = Mode::kRun;
  } else {
    return false;
  }
  return true;
}

// The values of an option that is the last one.
std::string read_last(std::string_view name, int count, const char* const* values,
                      Options& options) {
  if (options.mode == Options::Mode::kRun) {
    if (count != 1) return "-run needs a program, and is the last option";
    options.companion = values[0];
    const bool is_known =
        options.companion == kDetectionProgram || options.companion == kAlertProgram;
    return is_known ? "" : "Invalid value for -run: " + options.companion;
  }
  if (count != 2) return std::string(name) + " needs two times, and is the last option";
  TimeRange& range = options.range;
  if (read_time(values[0], range.begin) && read_time(values[1], range.end) && !range.is_empty()) {
    return {};
  }
  return "Invalid times: " + std::string(values[0]) + " " + values[1];
}

}  // namespace

std::string Options::database_path() const {
  return Path::Combine(database_location, database_file_name);
}

std::string Options::config_path() const {
  return config_file.empty() ? Path::Combine(database_location, "anomaly_config.conf")
                             : config_file;
}

std::string Options::own_file(const std::string& suffix) const {
  std::string name = database_file_name;
  if (name.ends_with(".db")) name.resize(name.size() - 3);
  return Path::Combine(database_location, name + "_Coverage" + suffix);
}

std::string parse_options(int count, const char* const* arguments, Options& options) {
  for (int i = 0; i < count; ++i) {
    const std::string_view name = arguments[i];
    if (name == "-help" || name == "-h") {
      options.mode = Options::Mode::kHelp;
      return {};
    }
    if (read_mode(name, options.mode)) {
      return read_last(name, count - i - 1, arguments + i + 1, options);
    }
    if (name == "-now") {
      options.at_once = true;
      continue;
    }
    std::string* place = value_place(name, options);
    if (place == nullptr) return "Unknown option: " + std::string(name);
    if (i + 1 == count) return "Missing value for " + std::string(name);
    *place = arguments[++i];
    if (place->empty()) return "Invalid value for " + std::string(name) + ": ";
  }
  return {};
}

const char* usage() {
  return "\n"
         "cvanomalyheal [-database_location DIRECTORY] [-database_file_name NAME]\n"
         "              [-config_file FILE] [-now | -gather FROM TO | -run PROGRAM | -help]\n"
         "\nGathers missed backups and starts dead companions again. A timer runs it every five "
         "minutes.\n"
         "\nWhere:"
         "\n  -database_location  : Directory of the anomaly database."
         "\n  -database_file_name : File name of the anomaly database."
         "\n  -config_file        : Configuration file."
         "\n  -now                : In this look, try also what is not due yet."
         "\n  -gather             : Gather the backups that ended between two times, in seconds "
         "since 1970,"
         "\n                        print how many were missing, then exit."
         "\n  -run                : Become cvanomalydetect or cvanomalyalert, as the service "
         "starts it."
         "\n  -help               : Print this help."
         "\n\n";
}

}  // namespace corvane::coverage
