// The world of the service's tests: an installation in a scratch directory, the platform fake, and
// a process of its own for what forks, ends or can never be taken back.
#pragma once

#include <filesystem>
#include <string>

#include "service/host_role.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/support/child_process.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/shell_script.h"
#include "tests/unit/service/process_calls.h"

// `text` less the one occurrence of `line` in it: what two processes write comes in either order.
inline std::string without(std::string text, const std::string& line) {
  const std::size_t place = text.find(line);
  if (place == std::string::npos) return "\"" + line + "\" is missing in " + text;
  return text.erase(place, line.size());
}

class ServiceWorld : public PlatformFake {
 protected:
  void SetUp() override {
    PlatformFake::SetUp();
    dbLogPath.clear();
    fake.install_dir = scratch_() + "/";
    std::filesystem::create_directory(scratch_("reports"));
    start_afresh();
  }

  void TearDown() override {
    dbLogPath.clear();
    corvane::test::process_calls() = {};
    PlatformFake::TearDown();
  }

  std::string database_directory() const { return scratch_("var/global/anomaly_detection"); }
  std::string config_path() const { return database_directory() + "/anomaly_config.conf"; }
  std::string scratch_output() const { return database_directory() + "/temp_out_file.txt"; }

  void make_database_directory() { std::filesystem::create_directories(database_directory()); }

  void configure(const std::string& content) { corvane::test::write_file(config_path(), content); }

  // Makes the product's configuration tool.
  void make_tool(const std::string& script) {
    corvane::test::write_script(scratch_("corvane/bin/admincmd/qpgetconfig"), script);
  }

  // Runs `body` in a process of its own (see run_in_child), which is the one of depth 0 there.
  template <typename Body>
  int in_child(Body body) {
    return corvane::test::run_in_child([&] {
      start_afresh();
      body();
    });
  }

  corvane::test::ScratchDir scratch_;

 private:
  void start_afresh() {
    corvane::test::process_calls() = {};
    corvane::test::process_calls().report_directory = scratch_("reports");
  }
};
