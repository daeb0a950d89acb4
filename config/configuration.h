// The service's INI configuration file with its built-in defaults.
#pragma once

#include <ace/Configuration.h>

#include <map>
#include <optional>
#include <set>
#include <string>

// Reads the file once, on construction; create a new one to see later changes. Section and key
// names are case-sensitive. If the file is missing, unreadable or malformed, there are only the
// defaults; nothing is thrown or logged.
class Configuration {
 public:
  // `config_type` 1 is the anomaly configuration, with the defaults of those sections of
  // config/settings.h that are marked in_configuration; other types have no defaults.
  Configuration(const std::string& path, int config_type);

  // False if the file is missing, unreadable or malformed: there are only the defaults.
  bool is_imported() const;

  // The value in the file, even if empty; else the default; else "".
  std::string get_config(const std::string& section, const std::string& key);

  // Adds the pieces of the file's value, lower-cased and split at ",", to `values`. Defaults are
  // not used.
  void get_config_multiple_values(const std::string& section, const std::string& key,
                                  std::set<std::string>& values);

  // The same for every key of a section: maps the lower-cased key to its pieces, replacing those in
  // `values`.
  void get_config_dynamic_keys_multiple_values(
      const std::string& section, std::map<std::string, std::set<std::string>>& values);

  // A to Z in lower case.
  static std::string toLower(const std::string& text);

  // Adds the pieces of `text` to `out`, untrimmed; a trailing delimiter adds no empty piece.
  static void split(std::set<std::string>& out, const std::string& text, char delimiter);

 private:
  using SectionKey = ACE_Configuration_Section_Key;

  std::string default_value(const std::string& section, const std::string& key) const;
  bool has_section(const SectionKey& parent, const std::string& name);
  std::optional<SectionKey> open_section(const std::string& section);
  std::optional<std::string> file_value(const std::string& section, const std::string& key);

  std::string path_;
  ACE_Configuration_Heap heap_;
  int config_type_;
  std::map<std::string, std::string> defaults_;  // "section+key" to value
  int import_status_;                            // -1: the file could not be imported completely
};
