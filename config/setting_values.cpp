#include "config/setting_values.h"

#include <charconv>

namespace corvane {

std::string value_of(Configuration& file, const Setting& setting) {
  return file.get_config(setting.section->name, setting.key);
}

std::string value_or_default(Configuration& file, const Setting& setting) {
  const std::string value = value_of(file, setting);
  return value.empty() ? setting.default_value : value;
}

std::optional<int> number_within(const Setting& setting, const std::string& text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  if (number < setting.least || number > setting.most) return std::nullopt;
  return number;
}

std::string complaint(const Setting& setting, const std::string& text, const std::string& taken) {
  return std::string("Invalid value received for configuration key ") + setting.key + ":[" + text +
         "], using " + taken;
}

int read_number(const Setting& setting, const std::string& text, const std::string& taken,
                std::vector<std::string>& complaints) {
  if (const std::optional<int> number = number_within(setting, text)) return *number;
  complaints.push_back(complaint(setting, text, taken));
  return default_number(setting);
}

}  // namespace corvane
