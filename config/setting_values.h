// The values of the settings of the table in a configuration file.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "config/configuration.h"
#include "config/settings.h"

namespace corvane {

// The value in the file, even if empty; else the default if Configuration has it, else "".
std::string value_of(Configuration& file, const Setting& setting);

// The same, but an empty value counts as the default.
std::string value_or_default(Configuration& file, const Setting& setting);

// `text` as a number, if it is a whole number within the bounds of `setting`, a flag or an integer.
std::optional<int> number_within(const Setting& setting, const std::string& text);

// A line for the log: `text` is not a valid value of `setting`, and `taken` is used instead.
std::string complaint(const Setting& setting, const std::string& text, const std::string& taken);

// `text` as a number within the bounds of `setting`; else the default, and a line that mentions
// `taken` is added to `complaints`.
int read_number(const Setting& setting, const std::string& text, const std::string& taken,
                std::vector<std::string>& complaints);

}  // namespace corvane
