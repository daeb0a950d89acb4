#include "companions/detect/settings_file.h"

#include <array>
#include <charconv>
#include <functional>

#include "config/configuration.h"

namespace corvane::detect {

namespace {

struct Setting {
  const char* section;
  const char* key;
  int least;
  int most;
  int otherwise;  // what a value that is no number in these bounds counts as
  std::function<void(Settings&, int)> set;
};

const std::array<Setting, 5>& known_settings() {
  static const std::array<Setting, 5> settings{{
      {"ANOMALY_DETECTION_SENSITIVITY", "SENSITIVITY_PERCENTAGE", -100, 100, 0,
       [](Settings& into, int value) { into.sensitivity = value; }},
      {"ANOMALY_MODEL_SETTINGS", "MIN_OBSERVATIONS_FOR_TRAINING", 2, 1000000, 30,
       [](Settings& into, int value) { into.min_observations = static_cast<std::size_t>(value); }},
      {"ANOMALY_MODEL_SETTINGS", "MAX_OBSERVATIONS_FOR_TRAINING", 2, 1000000, 3000,
       [](Settings& into, int value) { into.max_observations = static_cast<std::size_t>(value); }},
      {"ANOMALY_MODEL_SETTINGS", "DAYS_FOR_LAST_BACKUP_TO_IGNORE_ANOMALY", 1, 100000, 365,
       [](Settings& into, int value) { into.days_to_ignore = value; }},
      {"DATABASE_SETTINGS", "PURGE_DATA_INTERVAL_IN_MONTHS", 0, 12, 12,
       [](Settings& into, int value) { into.purge_months = value; }},
  }};
  return settings;
}

bool read_number(const std::string& text, int& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} && end == text.data() + text.size();
}

}  // namespace

void read_settings(const std::string& path, Settings& settings,
                   std::vector<std::string>& complaints) {
  Configuration file(path, 1);
  for (const Setting& setting : known_settings()) {
    const std::string text = file.get_config(setting.section, setting.key);
    int value = 0;
    if (!read_number(text, value) || value < setting.least || value > setting.most) {
      complaints.push_back(std::string("Invalid value received for configuration key ") +
                           setting.key + ":[" + text + "], using " +
                           std::to_string(setting.otherwise));
      value = setting.otherwise;
    }
    setting.set(settings, value);
  }
}

}  // namespace corvane::detect
