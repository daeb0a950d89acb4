// What a configuration file says of the settings of the table.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "config/configuration.h"
#include "config/settings.h"

namespace corvane {

// The file's value as it stands, even an empty one; where it has none, the default of what
// Configuration knows, else "".
std::string value_of(Configuration& file, const Setting& setting);

// The same for readers to whom an empty value is none: then the default.
std::string value_or_default(Configuration& file, const Setting& setting);

// `text`, when it is a whole number within the bounds of `setting`, a flag or an integer.
std::optional<int> number_within(const Setting& setting, const std::string& text);

// A line for a log: `text` is no value of `setting`; what is taken for it stands in `taken`.
std::string complaint(const Setting& setting, const std::string& text, const std::string& taken);

// `text` as a number within the bounds of `setting`; else the default, and `complaints` gets a line
// that calls it `taken`.
int read_number(const Setting& setting, const std::string& text, const std::string& taken,
                std::vector<std::string>& complaints);

}  // namespace corvane
