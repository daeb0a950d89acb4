#include "config/configuration.h"

#include <ace/Configuration_Import_Export.h>

#include <algorithm>
#include <sstream>

#include "config/settings.h"

namespace {

constexpr int kAnomalyConfiguration = 1;
constexpr std::size_t kHeapMapSize = 16;
constexpr int kImportFailed = -1;

}  // namespace

Configuration::Configuration(const std::string& path, int config_type)
    : path_(path), config_type_(config_type), import_status_(kImportFailed) {
  heap_.open(kHeapMapSize);
  if (config_type_ == kAnomalyConfiguration) {
    for (const corvane::Setting& setting : corvane::all_settings()) {
      if (!setting.section->in_configuration) continue;
      defaults_.emplace(std::string(setting.section->name) + "+" + setting.key,
                        setting.default_value);
    }
  }
  // A malformed line ends the import; everything before it is already in the heap. Half a file must
  // not be used: any failure counts as a file that could not be imported.
  const int result = ACE_Ini_ImpExp(heap_).import_config(path_.c_str());
  import_status_ = result < 0 ? kImportFailed : result;
}

bool Configuration::is_imported() const { return import_status_ != kImportFailed; }

std::string Configuration::get_config(const std::string& section, const std::string& key) {
  return file_value(section, key).value_or(default_value(section, key));
}

void Configuration::get_config_multiple_values(const std::string& section, const std::string& key,
                                               std::set<std::string>& values) {
  if (const auto value = file_value(section, key)) split(values, toLower(*value), ',');
}

void Configuration::get_config_dynamic_keys_multiple_values(
    const std::string& section, std::map<std::string, std::set<std::string>>& values) {
  const auto section_key = open_section(section);
  if (!section_key) return;
  ACE_TString name;
  ACE_TString value;
  ACE_Configuration::VALUETYPE type;
  for (int i = 0; heap_.enumerate_values(*section_key, i, name, type) == 0; ++i) {
    if (heap_.get_string_value(*section_key, name.c_str(), value) != 0) continue;
    std::set<std::string> pieces;
    split(pieces, toLower(value.c_str()), ',');
    values[toLower(name.c_str())] = std::move(pieces);
  }
}

std::string Configuration::toLower(const std::string& text) {
  std::string lower = text;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return lower;
}

void Configuration::split(std::set<std::string>& out, const std::string& text, char delimiter) {
  std::istringstream stream(text);
  for (std::string piece; std::getline(stream, piece, delimiter);) out.insert(piece);
}

std::string Configuration::default_value(const std::string& section, const std::string& key) const {
  const auto found = defaults_.find(section + "+" + key);
  return found == defaults_.end() ? "" : found->second;
}

// The heap ignores case: always for values, for sections if their hashes happen to collide. Here
// names are case-sensitive.
bool Configuration::has_section(const SectionKey& parent, const std::string& name) {
  ACE_TString found;
  for (int i = 0; heap_.enumerate_sections(parent, i, found) == 0; ++i) {
    if (name == found.c_str()) return true;
  }
  return false;
}

std::optional<Configuration::SectionKey> Configuration::open_section(const std::string& section) {
  if (import_status_ == kImportFailed) return std::nullopt;
  SectionKey key = heap_.root_section();
  std::istringstream names(section + "\\");  // ends a name too, even an empty one
  for (std::string name; std::getline(names, name, '\\');) {
    const SectionKey parent = key;
    if (!has_section(parent, name) || heap_.open_section(parent, name.c_str(), false, key) != 0) {
      return std::nullopt;
    }
  }
  return key;
}

std::optional<std::string> Configuration::file_value(const std::string& section,
                                                     const std::string& key) {
  const auto section_key = open_section(section);
  if (!section_key) return std::nullopt;
  ACE_TString name;
  ACE_Configuration::VALUETYPE type;
  for (int i = 0; heap_.enumerate_values(*section_key, i, name, type) == 0; ++i) {
    if (key != name.c_str()) continue;
    ACE_TString value;
    if (heap_.get_string_value(*section_key, name.c_str(), value) != 0) return std::nullopt;
    return value.c_str();
  }
  return std::nullopt;
}
