// The whole program: its commands, and what they print.
#include <gmock/gmock.h>

#include "tests/support/program_run.h"
#include "tests/support/sql.h"
#include "tests/unit/embedded_host/catalog_world.h"

namespace corvane::host {
namespace {

using test::backup_line;
using test::kDay;

class HostProgram : public ::testing::Test {
 protected:
  static std::string run(const std::string& arguments) {
    return corvane::test::program_run(CV_HOSTD " " + arguments);
  }

  corvane::test::ScratchDir dir_;
  std::string catalog_ = dir_("catalog.db");
  std::string lines_ = dir_("lines");
};

TEST_F(HostProgram, HelpNamesDefaultsAndBounds) {
  const std::string help = run("serve --help");
  const std::pair<std::string, std::string> options[] = {
      {"--catalog TEXT", "/usr/tessel/var/global/catalog.db"},
      {"--address TEXT", "127.0.0.1"},
      {"--port INT:INT in [0 - 65535]", "1556"},
      {"--credentials TEXT", "/usr/tessel/var/credentials"},
      {"--close-delay INT:INT in [0 - 86400]", "0"},
      {"--threads UINT:INT in [1 - 512]", "64"},
      {"--time-out INT:INT in [1 - 1000000]", "10"}};
  for (const auto& [option, value] : options) {  // versions of CLI11 show a default differently
    const std::size_t found = help.find(option);
    ASSERT_NE(found, std::string::npos) << option;
    std::string shown = "^(=";
    shown.append(value).append("[ \n]| \\[").append(value).append("])");
    EXPECT_THAT(help.substr(found + option.size()), ::testing::ContainsRegex(shown)) << option;
  }
  for (const char* option : {"--accept ", "--access-log TEXT ", "--fault-file TEXT "}) {
    EXPECT_THAT(help, ::testing::HasSubstr(option));
  }
  EXPECT_THAT(help, ::testing::EndsWith("status 0"));
}

TEST_F(HostProgram, LoadsAFileOrStandardInput) {
  corvane::test::write_file(lines_, backup_line(1, kDay, 1) + "\n");
  EXPECT_EQ(run("load " + catalog_ + " " + lines_),
            "1 backup loaded into " + catalog_ + ", 0 lines rejected\nstatus 0");
  corvane::test::write_file(lines_, backup_line(2, kDay + 1, 1) + "\n{}\n");
  EXPECT_EQ(run("load " + catalog_ + " " + lines_), "1 backup loaded into " + catalog_ +
                                                        ", 1 line rejected\n" + lines_ +
                                                        ":2: 'jobId' is missing\nstatus 1");
  EXPECT_EQ(run("load " + catalog_ + " - <" + lines_),
            "1 backup loaded into " + catalog_ +
                ", 1 line rejected\nstandard input:2: 'jobId' is missing\nstatus 1");
  EXPECT_EQ(run("load " + catalog_ + " " + dir_("none")),
            "cvhostd: " + dir_("none") + ": No such file or directory\nstatus 1");
}

TEST_F(HostProgram, RecordsFeedback) {
  open_catalog(catalog_, Connection::Access::kCreate);
  EXPECT_EQ(run("feedback " + catalog_ + " A1 CONFIRMED"), "A1: CONFIRMED\nstatus 0");
  Connection catalog = open_catalog(catalog_, Connection::Access::kRead);
  EXPECT_EQ(corvane::test::query_one(catalog.handle(), "SELECT id || attributes FROM reports"),
            "A1{\"feedback\":\"CONFIRMED\"}");
  EXPECT_THAT(run("feedback " + dir_("none") + " A1 NONE"),
              "cvhostd: " + dir_("none") + ": No such file or directory\nstatus 1");
}

TEST_F(HostProgram, MakesCredentials) {
  EXPECT_EQ(run("credentials " + dir_("set") + " --server media01"), "status 0");
  EXPECT_TRUE(std::filesystem::exists(dir_("set/service.key")));
}

TEST_F(HostProgram, WantsACommandAndWhatItNeeds) {
  for (const std::string& command :
       {std::string(), "load " + catalog_, std::string("load"), "feedback " + catalog_ + " A1",
        "feedback " + catalog_, std::string("credentials"), std::string("serve --port 65536"),
        std::string("serve --threads 0"), std::string("serve --accept nobody")}) {
    EXPECT_THAT(run(command), ::testing::MatchesRegex(".*status 1(0[0-9]|1[0-9])")) << command;
  }
}

TEST_F(HostProgram, ServesUntilItIsTerminated) {
  open_catalog(catalog_, Connection::Access::kCreate);
  run("credentials " + dir_("set"));
  // Its first line of output shows that it serves; the shell then ends it and says its status.
  const std::string script = "{ coproc " CV_HOSTD " serve --port 0 --catalog " + catalog_ +
                             " --credentials " + dir_("set") +
                             "; pid=$COPROC_PID; read -t 20 -r line <&${COPROC[0]}; echo $line; "
                             "kill $pid; wait $pid; }";
  EXPECT_THAT(corvane::test::program_run("exec timeout 30 bash -c '" + script + "'"),
              ::testing::MatchesRegex("cvhostd: listening on 127\\.0\\.0\\.1:[0-9]+\nstatus 0"));
  EXPECT_EQ(run("serve --port 0 --catalog " + catalog_ + " --credentials " + dir_()),
            "cvhostd: " + dir_("ca.pem") + ": No such file or directory\nstatus 1");
}

TEST_F(HostProgram, DoesNotServeWithoutTheLogThatItIsToWrite) {
  open_catalog(catalog_, Connection::Access::kCreate);
  EXPECT_EQ(run("serve --port 0 --catalog " + catalog_ + " --access-log " + dir_("none/log")),
            "cvhostd: " + dir_("none/log") + ": No such file or directory\nstatus 1");
}

}  // namespace
}  // namespace corvane::host
