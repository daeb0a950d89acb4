// The product's two command-line tools as shell scripts in a scratch working directory.
#pragma once

#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/shell_script.h"
#include "tests/support/working_directory.h"
#include "tests/unit/gather/gather_world.h"

namespace corvane::test {

// Without a master server the tools are the source. Each run of a script leaves its arguments, each
// in "<>", as one line of the file "calls".
class ToolsTest : public PlatformFake {
 protected:
  void SetUp() override {
    PlatformFake::SetUp();
    std::filesystem::create_directory(world.scratch("bin"));
    working_directory.emplace(world.scratch("bin"));
  }

  void tool(const std::string& name, const std::string& body) {
    write_script("admincmd/" + name, "printf '<%s>' \"$@\" >> calls; echo >> calls\n" + body);
  }

  // The image-list tool prints `output`.
  void image_list(const std::string& output) {
    write_file("images", output);
    tool("qpimagelist", "cat images\n");
  }

  // The jobs tool prints an object for each id, which ran from 100 to 160.
  void jobs_tool() {
    tool("qpdbjobs", R"sh(IFS=,; set -- $2; separator='['
for id; do
  printf '%s{"JobId": %s, "StartTime": 100, "EndTime": 160}' "$separator" "$id"
  separator=,
done
printf ']')sh");
  }

  std::vector<std::string> calls() const {
    std::vector<std::string> lines;
    if (!std::filesystem::exists("calls")) return lines;
    std::istringstream text(read_file("calls"));
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
  }

  // The names in the database directory that are not the database's own files.
  std::vector<std::string> left_behind() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(world.location)) {
      const std::string name = entry.path().filename();
      if (!name.starts_with("CV_Anomaly.db")) names.push_back(name);
    }
    return names;
  }

  GatherWorld world{""};
  DataGather& gather = *world.gather;
  sqlite3* db = world.handle();
  std::optional<WorkingDirectory> working_directory;
};

}  // namespace corvane::test
