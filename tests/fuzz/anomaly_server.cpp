// The output of the product's configuration tool, which names the host that anomaly detection is to
// run on.
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
  std::string name = "unchanged";
  getAnomalyServerName(name);
  require(run.ends_with("/qpgetconfig -M master01.example.com   "), "the tool is asked", run);
  require(std::filesystem::is_empty(tree.scratch("var/global/anomaly_detection")),
          "scratch files are gone");
  if (name != "unchanged") {
    const std::size_t line = ("\n" + output).find("\nANOMALY_PROXY_SERVER");
    require(line != std::string::npos && output.find(name, line) != std::string::npos,
            "a name stands behind its key", name);
    require(!name.empty() && name.find_first_of(" \t\n\v\f\r") == std::string::npos,
            "a name is one word", name);
  }
  require(isAnomalyRunningOnDiffServer() ==
              (name != "unchanged" && name != *corvane::fake::state().host_name),
          "only another name is another server", name);
  return 0;
}
