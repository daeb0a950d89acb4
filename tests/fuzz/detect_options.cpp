// The command line of the detection daemon. The input's words are separated by NULs.
#include <cmath>

#include "companions/detect/options.h"
#include "tests/fuzz/fuzz.h"

using corvane::detect::Options;
using corvane::fuzz::require;

namespace {

std::string parse(const std::vector<std::string>& words, Options& options) {
  std::vector<const char*> arguments;
  for (const std::string& word : words) arguments.push_back(word.c_str());
  return corvane::detect::parse_options(static_cast<int>(arguments.size()), arguments.data(),
                                        options);
}

// A command line that says the same.
std::vector<std::string> words_of(const Options& options) {
  char eps[64];
  std::snprintf(eps, sizeof eps, "%.17g", options.eps);
  std::vector<std::string> words{"-database_location",
                                 options.database_location,
                                 "-database_file_name",
                                 options.database_file_name,
                                 "-config_file",
                                 options.config_file,
                                 "-eps",
                                 eps,
                                 "-min_samples",
                                 std::to_string(options.min_samples)};
  if (options.json) words.emplace_back("-json");
  switch (options.mode) {
    case Options::Mode::kDaemon:
    case Options::Mode::kHelp:
      break;
    case Options::Mode::kOnce:
      words.emplace_back("-once");
      break;
    case Options::Mode::kBacktest:
      words.insert(words.end(), {"-backtest", std::to_string(options.backtest_days)});
      break;
    case Options::Mode::kExplain:
      words.insert(words.end(), {"-explain", options.unique_key});
      break;
  }
  return words;
}

void check_accepted(const Options& options) {
  require(std::isfinite(options.eps) && options.eps > 0, "the radius is positive");
  require(options.min_samples > 0, "a core point has neighbours");
  require(!options.database_location.empty() && !options.database_file_name.empty() &&
              !options.config_file.empty(),
          "files have names");
  if (options.mode == Options::Mode::kBacktest) {
    require(options.backtest_days > 0 && options.backtest_days <= 36500, "days are bounded");
  }
  if (options.mode == Options::Mode::kExplain) {
    require(!options.unique_key.empty(), "what is explained has a key");
  }
  require(!options.json || options.mode == Options::Mode::kBacktest, "JSON is the backtest's");

  Options again;
  require(parse(words_of(options), again).empty(), "what was accepted is accepted again");
  require(words_of(again) == words_of(options), "what was accepted means the same again");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto words = corvane::fuzz::parts_of(corvane::fuzz::text_of(data, size));
  Options options;
  const std::string error = parse(words, options);
  if (!error.empty()) return 0;
  if (options.mode != Options::Mode::kHelp) check_accepted(options);
  return 0;
}
