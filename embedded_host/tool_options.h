// The command lines of the product's tools: options with a single dash, the value as the next word.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::host {

class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct OptionForm {
  std::string_view name;  // with its dashes
  bool takes_value;
  bool required;
};

class ToolOptions {
 public:
  // `words` does not include the program's name. Throws UsageError for a word that is not an
  // option, an option that is given twice, a missing value, and a missing required option.
  ToolOptions(std::span<const OptionForm> forms, std::span<const std::string_view> words);

  // The option's value, or `fallback` if it was not given.
  std::string text(std::string_view name, std::string_view fallback = {}) const;
  // The option's value as a whole number. Throws UsageError if it is not one.
  std::int64_t integer(std::string_view name) const;

 private:
  std::map<std::string_view, std::string_view> values_;
};

// Reads a whole number, with or without a minus sign; `name` is the option that a UsageError names.
std::int64_t whole_number(std::string_view text, std::string_view name);

// The main function of a tool. --help prints `usage` and returns 0. An exception from `work` is
// written to standard error after the tool's name, and the status is 2 for UsageError, else 1.
// Output that cannot be written (a full disk) is an error too.
int run_tool(int argc, char** argv, std::string_view usage, std::span<const OptionForm> forms,
             const std::function<void(const ToolOptions&)>& work);

}  // namespace corvane::host
