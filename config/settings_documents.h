// The documents of the settings, printed from their table. Used by the build; not part of an
// installed program.
#pragma once

#include <string>

namespace corvane {

// Both take the text around the settings, with a line "@SETTINGS@" in their place; without it they
// throw std::runtime_error.
std::string sample_file(const std::string& around);  // an "anomaly_config.conf" with every default
std::string manual_page(const std::string& around);  // mdoc

// docs/settings.md.
std::string settings_guide();

// An array with an object for each setting: section, key, type, default, least, most, unit,
// readers, meaning, note.
std::string settings_json();

}  // namespace corvane
