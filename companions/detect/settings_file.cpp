#include "companions/detect/settings_file.h"

#include "config/service_values.h"
#include "config/setting_values.h"

namespace corvane::detect {

namespace {

// As the service reads it, since the service deletes what is older. It logs no invalid value.
int read_purge_months(const std::string& text, std::vector<std::string>& complaints) {
  const int months = purge_interval_months(text);
  if (!number_within(setting::kPurgeInterval, text)) {
    complaints.push_back(complaint(setting::kPurgeInterval, text, std::to_string(months)));
  }
  return months;
}

}  // namespace

void read_settings(const std::string& path, Settings& settings,
                   std::vector<std::string>& complaints) {
  Configuration file(path, 1);
  const auto number = [&](const Setting& setting) {
    return read_number(setting, value_of(file, setting), setting.default_value, complaints);
  };
  settings.sensitivity = number(setting::kSensitivity);
  settings.stream.min_observations = static_cast<std::size_t>(number(setting::kMinObservations));
  settings.stream.max_observations = static_cast<std::size_t>(number(setting::kMaxObservations));
  settings.stream.days_to_ignore = number(setting::kDaysToIgnore);
  settings.stream.purge_months =
      read_purge_months(value_of(file, setting::kPurgeInterval), complaints);
}

}  // namespace corvane::detect
