#include "embedded_host/tool_options.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "embedded_host/catalog.h"
#include "embedded_host/parse_number.h"
#include "embedded_host/text_output.h"

namespace corvane::host {

std::int64_t whole_number(std::string_view text, std::string_view name) {
  const auto number = parse_number<std::int64_t>(text);
  if (!number) {
    throw UsageError(std::string(name) + ": not a whole number: '" + std::string(text) + "'");
  }
  return *number;
}

ToolOptions::ToolOptions(std::span<const OptionForm> forms,
                         std::span<const std::string_view> words) {
  for (std::size_t i = 0; i < words.size(); ++i) {
    const auto form = std::find_if(forms.begin(), forms.end(),
                                   [&](const OptionForm& known) { return known.name == words[i]; });
    if (form == forms.end()) throw UsageError("unknown option '" + std::string(words[i]) + "'");
    std::string_view value;
    if (form->takes_value) {
      if (++i == words.size()) throw UsageError(std::string(form->name) + ": the value is missing");
      value = words[i];
    }
    if (!values_.emplace(form->name, value).second) {
      throw UsageError(std::string(form->name) + ": given more than once");
    }
  }
  for (const OptionForm& form : forms) {
    if (form.required && !values_.contains(form.name)) {
      throw UsageError(std::string(form.name) + " is missing");
    }
  }
}

std::string ToolOptions::text(std::string_view name, std::string_view fallback) const {
  const auto found = values_.find(name);
  return std::string(found != values_.end() ? found->second : fallback);
}

std::int64_t ToolOptions::integer(std::string_view name) const {
  return whole_number(values_.at(name), name);
}

int run_tool(int argc, char** argv, std::string_view usage, std::span<const OptionForm> forms,
             const std::function<void(const ToolOptions&)>& work) {
  const std::vector<std::string_view> words(argv + std::min(argc, 1), argv + argc);
  const std::string_view path = argc > 0 ? argv[0] : "";
  const std::string name(path.substr(path.rfind('/') + 1));
  try {
    if (std::find(words.begin(), words.end(), "--help") != words.end()) {
      write_all(stdout, std::string(usage));
    } else {
      work(ToolOptions(forms, words));
    }
    if (std::fflush(stdout) != 0) {
      throw std::runtime_error(std::string("standard output: ") + std::strerror(errno));
    }
    return 0;
  } catch (const UsageError& error) {
    std::fprintf(stderr, "%s: %s (see --help)\n", name.c_str(), error.what());
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", name.c_str(), plain_reason(error).c_str());
    return 1;
  }
}

}  // namespace corvane::host
