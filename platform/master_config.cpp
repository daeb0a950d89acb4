#include "platform/master_config.h"

#include <ace/Configuration_Import_Export.h>

#include <algorithm>
#include <sstream>

#include "platform/install_root.h"

namespace corvane {

namespace {

// The heap ignores the case of a value's name; this does not.
bool has_exact_name(ACE_Configuration_Heap& heap, const ACE_Configuration_Section_Key& section,
                    const char* wanted) {
  ACE_TString name;
  ACE_Configuration::VALUETYPE type{};
  for (int i = 0; heap.enumerate_values(section, i, name, type) == 0; ++i) {
    if (name == wanted) return true;
  }
  return false;
}

std::string value_of(ACE_Configuration_Heap& heap, const char* section_name, const char* name) {
  ACE_Configuration_Section_Key section;
  if (heap.open_section(heap.root_section(), section_name, false, section) != 0) return "";
  ACE_TString value;
  if (!has_exact_name(heap, section, name) || heap.get_string_value(section, name, value) != 0) {
    return "";
  }
  return value.c_str();
}

bool is_host_name_character(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '-' || c == ':';
}

}  // namespace

bool is_host_name(std::string_view name) {
  return !name.empty() && name.front() != '-' && std::ranges::all_of(name, is_host_name_character);
}

bool MasterSettings::has_valid_servers() const {
  return !servers.empty() && std::ranges::all_of(servers, is_host_name);
}

std::optional<MasterSettings> read_master_settings(const std::string& path) {
  ACE_Configuration_Heap heap;
  // After a malformed line the heap has everything before it; half a file must not be used.
  if (heap.open() != 0 || ACE_Ini_ImpExp(heap).import_config(path.c_str()) < 0) return std::nullopt;
  MasterSettings settings;
  std::istringstream names(value_of(heap, "domain", "servers"));
  for (std::string name; names >> name;) settings.servers.push_back(name);
  settings.host_name = value_of(heap, "host", "name");
  settings.service_account = value_of(heap, "host", "service_account");
  settings.connect_to = value_of(heap, "web", "connect_to");
  return settings;
}

std::string master_config_path() { return std::string(kInstallRoot) + "corvane/corvane.conf"; }

}  // namespace corvane
