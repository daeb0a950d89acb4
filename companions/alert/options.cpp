#include "companions/alert/options.h"

#include <string_view>

#include "companions/alert/settings_file.h"
#include "platform/host_product.h"
#include "util/path.h"

namespace corvane::alert {

namespace {

std::string* value_place(std::string_view name, Options& options) {
  if (name == "-database_location") return &options.database_location;
  if (name == "-database_file_name") return &options.database_file_name;
  if (name == "-master") return &options.master;
  if (name == "-config_file") return &options.config_file;
  return nullptr;
}

bool read_mode(std::string_view name, Options::Mode& mode) {
  using Mode = Options::Mode;
  if (name == "-once") {
    mode = Mode::kOnce;
  } else if (name == "-test") {
    mode = Mode::kTest;
  } else if (name == "-status") {
    mode = Mode::kStatus;
  } else if (name == "-resend") {
    mode = Mode::kResend;
  } else {
    return false;
  }
  return true;
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
  return Path::Combine(database_location, name + "_Alerts" + suffix);
}

std::string parse_options(int count, const char* const* arguments, Options& options) {
  int modes = 0;
  for (int i = 0; i < count; ++i) {
    const std::string_view name = arguments[i];
    if (name == "-help" || name == "-h") {
      options.mode = Options::Mode::kHelp;
      return {};
    }
    if (read_mode(name, options.mode)) {
      ++modes;
      const bool has_channel = i + 1 < count && arguments[i + 1][0] != '-';
      if (options.mode == Options::Mode::kTest && has_channel)
        options.test_channel = arguments[++i];
      continue;
    }
    std::string* place = value_place(name, options);
    if (place == nullptr) return "Unknown option: " + std::string(name);
    if (i + 1 == count) return "Missing value for " + std::string(name);
    *place = arguments[++i];
    if (place->empty()) return "Invalid value for " + std::string(name) + ": ";
  }
  if (modes > 1) return "Use only one of -once, -test, -status and -resend";
  if (!options.test_channel.empty() && !is_channel_name(options.test_channel)) {
    return "Unknown channel: " + options.test_channel;
  }
  return {};
}

const char* usage() {
  return "\n"
         "cvanomalyalert [-database_location DIRECTORY] [-database_file_name NAME]\n"
         "               [-master NAME] [-config_file FILE]\n"
         "               [-once | -test [CHANNEL] | -status | -resend | -help]\n"
         "\nWithout any of the last five options, it runs as a daemon until SIGTERM.\n"
         "\nWhere:"
         "\n  -database_location  : Directory of the anomaly database."
         "\n  -database_file_name : File name of the anomaly database."
         "\n  -master             : Server whose web service gets the anomalies."
         "\n  -config_file        : Configuration file."
         "\n  -once               : Read new anomalies, try each pending message once, then exit."
         "\n  -test               : Send a test message through one channel (web, syslog, webhook,"
         "\n                        mail, command) or all configured channels, and print the "
         "results."
         "\n  -status             : Print the status of each channel: delivered and pending"
         "\n                        messages, dead letters, failures."
         "\n  -resend             : Send dead letters again."
         "\n  -help               : Print this help."
         "\n\n";
}

std::string master_name(const Options& options) {
  if (!options.master.empty()) return options.master;
  if (CV_read_master_config() != 0) return {};
  const MasterConfig* config = get_master_config_ptr();
  if (config == nullptr || config->servers == nullptr || config->servers[0] == nullptr) return {};
  return config->servers[0];
}

}  // namespace corvane::alert
