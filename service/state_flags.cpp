#include "service/state_flags.h"

#include <string>

#include "config/configuration.h"
#include "config/service_values.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"
#include "service/host_role.h"

using corvane::kLogWarning;
using corvane::kManagementProgram;

namespace {

int read_flag(Configuration& config, const char* key, int fallback, const char* fallback_message) {
  const std::string value = config.get_config("ANOMALY_DETECTION_FUNCTIONALITY", key);
  if (value.empty()) logmsg(kLogWarning, kManagementProgram, fallback_message);
  return corvane::switch_value(value, fallback);
}

bool validate_flag(const char* key, int value) {
  if (static_cast<unsigned>(value) <= 1) return true;
  logmsgf(kLogWarning, "ValidateConfigStateFlags",
          "Invalid value received for configuration key %s:[%d]", key, value);
  return false;
}

}  // namespace

int ReadConfigStateFlags(int& disableAnomalyDetection, int& disableDetectionService,
                         int& disableAlertService) {
  std::string path;
  if (getConfigFilePath(path) != 0) {
    logmsg(kLogWarning, kManagementProgram, "Could not determine the path to config file");
  }
  Configuration config(path, 1);
  disableAnomalyDetection = read_flag(
      config, "DISABLE_ANOMALY_DETECTION", 0,
      "Failed to read config value for Detection process state. Assinging default value.");
  constexpr char kAssining[] =
      "Failed to read config value for Detection process state. Assining default value.";
  disableDetectionService = read_flag(config, "DISABLE_DETECTION_SERVICE", 1, kAssining);
  disableAlertService = read_flag(config, "DISABLE_ALERT_SERVICE", 1, kAssining);
  return 0;
}

int ValidateConfigStateFlags(int disableAnomalyDetection, int disableDetectionService,
                             int disableAlertService) {
  const bool detection_valid = validate_flag("DISABLE_ANOMALY_DETECTION", disableAnomalyDetection);
  const bool service_valid = validate_flag("DISABLE_DETECTION_SERVICE", disableDetectionService);
  const bool alert_valid = validate_flag("DISABLE_ALERT_SERVICE", disableAlertService);
  return detection_valid && service_valid && alert_valid ? 1 : 0;
}
