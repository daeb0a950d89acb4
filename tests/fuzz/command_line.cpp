// The scan of the service's command line. The input's words are separated by NULs.
#include "service/command_line.h"

#include <algorithm>
#include <set>

#include "tests/fuzz/fuzz.h"

using corvane::OptionMap;
using corvane::fuzz::require;

namespace {

bool is_option(const std::string& word) { return word.starts_with('-'); }

OptionMap expected_options(const std::vector<std::string>& words) {
  OptionMap options;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (!is_option(words[i])) continue;
    const bool has_value = i + 1 < words.size() && !is_option(words[i + 1]);
    options.try_emplace(words[i], has_value, has_value ? words[i + 1] : "");
  }
  return options;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> words = corvane::fuzz::parts_of(corvane::fuzz::text_of(data, size));
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  const std::multiset<char*> given(argv.begin(), argv.end());
  argv.push_back(nullptr);
  int argc = static_cast<int>(words.size());

  OptionMap options;
  {
    ACE_Arg_Shifter shifter(argc, argv.data());
    options = corvane::scan_options(shifter);
  }
  require(options == expected_options(words), "the options are the words with a dash");
  require(std::multiset<char*>(argv.begin(), argv.end() - 1) == given && argv.back() == nullptr,
          "no argument is lost");

  static const std::set<std::string> known{"-start", "-stop", "-terminate", "-h", "-help"};
  const bool one_known = options.size() == 1 && known.contains(options.begin()->first) &&
                         !options.begin()->second.first;
  require(validate_params(options) == (one_known ? 1 : 0), "one known option without a value");
  return 0;
}
