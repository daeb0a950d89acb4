// The output of the product's configuration tool, which names the host that anomaly detection is to
// run on.
#include <algorithm>
#include <filesystem>

#include "service/host_role.h"
#include "tests/fakes/platform_fake.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/process_fake.h"
#include "tests/support/scratch_dir.h"

using corvane::fuzz::require;

namespace {

struct Tree {
  Tree() { std::filesystem::create_directories(scratch("var/global/anomaly_detection")); }

  corvane::test::ScratchDir scratch;
};

// The third word of the first line that begins with the key, or `otherwise`.
std::string third_word(const std::string& output, const std::string& otherwise) {
  constexpr char kBlanks[] = " \t\v\f\r\n";
  const std::size_t line = ("\n" + output).find("\nANOMALY_PROXY_SERVER");
  if (line == std::string::npos) return otherwise;
  const std::size_t line_end = std::min(output.find('\n', line), output.size());
  std::size_t begin = line;
  std::size_t end = line;
  for (int word = 0; word < 3; ++word) {
    begin = std::min(output.find_first_not_of(kBlanks, end), line_end);
    end = std::min(output.find_first_of(kBlanks, begin), line_end);
  }
  return begin == line_end ? otherwise : output.substr(begin, end - begin);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Tree tree;
  corvane::fake::reset();
  corvane::fake::state().install_dir = tree.scratch() + "/";
  const std::string output = corvane::fuzz::text_of(data, size);
  std::string run;
  corvane::fuzz::set_tool([&](const std::string& command) {
    run = command;
    return output;
  });
  const std::string unchanged = "no word";  // with its blank it cannot be one of the output
  std::string name = unchanged;
  getAnomalyServerName(name);
  require(run.ends_with("/qpgetconfig -M master01.example.com   "), "the tool is asked", run);
  require(std::filesystem::is_empty(tree.scratch("var/global/anomaly_detection")),
          "scratch files are gone");
  require(name == third_word(output, unchanged), "the name stands behind its key", name);
  require(isAnomalyRunningOnDiffServer() ==
              (name != unchanged && name != *corvane::fake::state().host_name),
          "only another name is another server", name);
  return 0;
}
