#include "coverage/rules.h"

#include <unistd.h>

#include "config/service_values.h"
#include "config/setting_values.h"
#include "platform/program_names.h"

namespace corvane::coverage {

namespace {

bool is_wanted(Configuration& config, const Setting& disable) {
  return switch_value(disable, value_of(config, disable)) == 0;
}

}  // namespace

HealRules rules_of(Configuration& config, std::int64_t now) {
  const int months = purge_interval_months(value_of(config, setting::kPurgeInterval));
  return {purge_cut_off(static_cast<int>(now), months),
          is_wanted(config, setting::kDisableDetectionService) ? RowsFor::kDetection
                                                               : RowsFor::kHistory};
}

std::string why_off(Configuration& config, const std::string& path) {
  if (!config.is_imported() && access(path.c_str(), F_OK) == 0) {
    return "the configuration file " + path + " is malformed or cannot be read";
  }
  if (value_or_default(config, setting::kHeal) != "1") {
    return std::string(setting::kHeal.key) + " is not 1 in the configuration file";
  }
  return {};
}

bool is_companion_wanted(const std::string& config_path, const std::string& companion) {
  Configuration config(config_path, 1);
  return is_wanted(config, setting::kDisableAnomalyDetection) &&
         is_wanted(config, setting::kDisableDetectionService) &&
         (companion == kDetectionProgram || is_wanted(config, setting::kDisableAlertService));
}

}  // namespace corvane::coverage
