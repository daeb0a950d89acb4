// The whole program, as far as it can be run without an installed product.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "coverage/options.h"
#include "tests/support/program_run.h"
#include "tests/support/scratch_dir.h"

namespace corvane::coverage {
namespace {

constexpr uid_t kNobody = 65534;

class HealProgram : public testing::Test {
 protected:
  void TearDown() override { unsetenv("GCOV_PREFIX"); }

  std::string run(const std::string& arguments) const {
    return test::program_run(CV_PROGRAM " -database_location " + directory_() + " " + arguments);
  }
  struct stat status_of(const std::string& name) const {
    struct stat status {};
    EXPECT_EQ(stat(directory_(name).c_str(), &status), 0) << name;
    return status;
  }
  void configure(const std::string& text) const {
    test::write_file(directory_("anomaly_config.conf"), text);
  }
  void give(const std::string& name) const {
    ASSERT_EQ(chown(directory_(name).c_str(), kNobody, kNobody), 0);
    // Where coverage is counted, another account may not write it down in the usual place.
    ASSERT_EQ(chmod(open_to_all_().c_str(), 0777), 0);
    setenv("GCOV_PREFIX", open_to_all_().c_str(), 1);
  }

  test::ScratchDir directory_;
  test::ScratchDir open_to_all_;
};

TEST_F(HealProgram, PrintsItsHelp) {
  EXPECT_EQ(test::program_run(CV_PROGRAM " -help"), std::string(usage()) + "status 0");
}

TEST_F(HealProgram, RefusesAnUnknownOption) {
  EXPECT_EQ(test::program_run(CV_PROGRAM " -backwards"),
            "Unknown option: -backwards\n" + std::string(usage()) + "status 2");
}

TEST_F(HealProgram, Looks) {
  EXPECT_EQ(run(""), "status 0");
  EXPECT_EQ(status_of("CV_Anomaly_Coverage.db").st_mode & 0777, 0640U);
  EXPECT_EQ(status_of("CV_Anomaly_Coverage.lock").st_mode & 0777, 0640U);
}

TEST_F(HealProgram, SaysWhyItDoesNothing) {
  configure("[HEALING_SETTINGS]\nHEAL=0\n");
  EXPECT_EQ(run("-now"),
            "cvanomalyheal: nothing is healed: HEAL is not 1 in the configuration file\nstatus 1");
}

TEST_F(HealProgram, GathersByHand) {
  configure("a line without an equals sign\n");
  EXPECT_EQ(run("-gather 5 6"), "cvanomalyheal: the configuration file " +
                                    directory_("anomaly_config.conf") +
                                    " is malformed or cannot be read\nstatus 1");
}

TEST_F(HealProgram, IsTheProcessThatGathersAgain) {
  EXPECT_EQ(test::program_run(CV_PROGRAM " -database_location " + directory_("no") +
                              " -gather_again 5 6"),
            "cvanomalyheal: cannot create " + directory_("no/gather.log") + "\nstatus 1");
}

TEST_F(HealProgram, IsTheProcessThatListsJobs) {
  EXPECT_EQ(
      test::program_run(CV_PROGRAM " -database_location " + directory_("no") + " -list_jobs 5 6"),
      "cvanomalyheal: cannot write " + directory_("no/jobs") + "\nstatus 1");
}

TEST_F(HealProgram, BecomesNoCompanionThatIsSwitchedOff) {
  EXPECT_EQ(run("-run cvanomalydetect"), "status 0");
}

TEST_F(HealProgram, TakesTheAccountThatOwnsTheDirectory) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  give("");
  EXPECT_EQ(run(""), "status 0");
  EXPECT_EQ(status_of("CV_Anomaly_Coverage.db").st_uid, kNobody);
  EXPECT_EQ(status_of("CV_Anomaly_Coverage.lock").st_gid, kNobody);
}

TEST_F(HealProgram, TakesTheAccountThatOwnsTheDatabase) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  test::write_file(directory_("CV_Anomaly.db"), "");
  give("CV_Anomaly.db");
  EXPECT_EQ(run(""), "cvanomalyheal: " + directory_("CV_Anomaly_Coverage.lock") +
                         ": Permission denied\nstatus 1");
}

TEST_F(HealProgram, DoesNotRunAsRootForAnAccountThatIsNotKnown) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  ASSERT_EQ(chown(directory_().c_str(), 3'999'999'999, kNobody), 0);
  EXPECT_EQ(run(""), "cvanomalyheal: cannot run as the owner of " + directory_() +
                         ": no such account\nstatus 1");
}

}  // namespace
}  // namespace corvane::coverage
