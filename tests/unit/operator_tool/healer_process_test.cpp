#include "operator_tool/healer_process.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "health/trouble.h"
#include "tests/support/error_of.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/shell_script.h"

namespace corvane::ctl {
namespace {

TEST(HealerProcess, IsBesideThisProgram) {
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
  EXPECT_EQ(healer_path(), self.parent_path() / "cvanomalyheal");
}

TEST(HealerProcess, IsGivenTheDatabaseAndTheConfiguration) {
  Options options;
  options.command = Command::kHeal;
  options.database = "/d/a.db";
  options.config = "/c/x.conf";
  options.from = 7;
  options.to = 9;
  std::vector<std::string> expected{"heal", "-database_location", "/d",       "-database_file_name",
                                    "a.db", "-config_file",       "/c/x.conf"};
  options.command = Command::kStatus;
  EXPECT_EQ(healer_command("heal", options), expected);
  options.command = Command::kHeal;
  expected.emplace_back("-now");
  EXPECT_EQ(healer_command("heal", options), expected);
  options.command = Command::kGather;
  expected.pop_back();
  expected.insert(expected.end(), {"-gather", "7", "9"});
  EXPECT_EQ(healer_command("heal", options), expected);
}

TEST(HealerProcess, IsGivenAbsolutePaths) {
  Options options;
  options.database = "a.db";
  options.config = "x.conf";
  const std::vector<std::string> command = healer_command("heal", options);
  EXPECT_EQ(command[2], std::filesystem::current_path());
  EXPECT_EQ(command[4], "a.db");
  EXPECT_EQ(command[6], std::filesystem::current_path() / "x.conf");
}

class RunHealer : public testing::Test {
 protected:
  // What is printed, and the trouble, if any, behind it.
  std::string run(const std::string& script) {
    const std::string program = directory_("healer");
    test::write_script(program, script);
    testing::internal::CaptureStdout();
    std::string trouble;
    try {
      run_healer({program, directory_("told")});
    } catch (const health::Trouble& found) {
      EXPECT_EQ(found.status(), health::ExitStatus::kFailed);
      trouble = found.what();
    }
    return testing::internal::GetCapturedStdout() + trouble;
  }
  test::ScratchDir directory_;
};

TEST_F(RunHealer, WaitsForItsEndAndPrintsNothing) {
  EXPECT_EQ(run("echo words; sleep 0.05; echo done > \"$1\""), "");
  EXPECT_EQ(test::read_file(directory_("told")), "done\n");
}

TEST_F(RunHealer, SaysHowItFailed) {
  EXPECT_EQ(run("exit 1"), "cvanomalyheal failed. Its log gives the reason.");
  EXPECT_EQ(run("kill -KILL $$"), "cvanomalyheal was ended by signal 9.");
}

TEST_F(RunHealer, SaysWhyItCannotBeStarted) {
  const std::string absent = directory_("absent");
  EXPECT_EQ(test::error_of<health::Trouble>([&] { run_healer({absent}); }),
            "Cannot start " + absent + ": No such file or directory.");
}

}  // namespace
}  // namespace corvane::ctl
