#include "service/state_flags.h"

#include <string>

#include "config/configuration.h"
#include "config/service_values.h"
#include "config/setting_values.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"
#include "service/host_role.h"

using corvane::kLogWarning;
using corvane::kManagementProgram;
namespace setting = corvane::setting;

namespace {

int read_flag(Configuration& config, const corvane::Setting& flag, const char* if_empty) {
  const std::string value = corvane::value_of(config, flag);
  if (value.empty()) logmsg(kLogWarning, kManagementProgram, if_empty);
  return corvane::switch_value(flag, value);
}

bool validate_flag(const corvane::Setting& flag, int value) {
  if (static_cast<unsigned>(value) <= 1) return true;
  logmsgf(kLogWarning, "ValidateConfigStateFlags",
          "Invalid value received for configuration key %s:[%d]", flag.key, value);
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
      config, setting::kDisableAnomalyDetection,
      "Failed to read config value for Detection process state. Assinging default value.");
  constexpr char kAssining[] =
      "Failed to read config value for Detection process state. Assining default value.";
  disableDetectionService = read_flag(config, setting::kDisableDetectionService, kAssining);
  disableAlertService = read_flag(config, setting::kDisableAlertService, kAssining);
  return 0;
}

int ValidateConfigStateFlags(int disableAnomalyDetection, int disableDetectionService,
                             int disableAlertService) {
  const bool detection_valid =
      validate_flag(setting::kDisableAnomalyDetection, disableAnomalyDetection);
  const bool service_valid =
      validate_flag(setting::kDisableDetectionService, disableDetectionService);
  const bool alert_valid = validate_flag(setting::kDisableAlertService, disableAlertService);
  return detection_valid && service_valid && alert_valid ? 1 : 0;
}
