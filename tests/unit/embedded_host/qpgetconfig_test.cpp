// The whole program: its main() is all there is of it.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/program_run.h"

namespace corvane::host {
namespace {

class ConfigurationTool : public ::testing::Test {
 protected:
  std::string answer(const std::string& arguments = "-M master01") const {
    return test::program_run(CV_QPGETCONFIG " " + arguments + " --config " + file_);
  }

  test::ScratchDir dir_;
  std::string file_ = dir_("qp.conf");
};

TEST_F(ConfigurationTool, PrintsWhatIsSet) {
  test::write_file(file_,
                   "# proxy = none\n\n \tANOMALY_PROXY_SERVER=proxy01  \r\nOTHER =\nA = b=c\n");
  EXPECT_EQ(answer(), "ANOMALY_PROXY_SERVER = proxy01\nOTHER = \nA = b=c\nstatus 0");
}

TEST_F(ConfigurationTool, WithoutAFileNothingIsSet) { EXPECT_EQ(answer(), "status 0"); }

TEST_F(ConfigurationTool, NeedsNoNameOfAFile) {
  EXPECT_TRUE(test::program_run(CV_QPGETCONFIG " -M master01").ends_with("status 0"));
}

TEST_F(ConfigurationTool, NamesTheFirstBadLineAndPrintsTheRest) {
  test::write_file(file_, "A = b\nnonsense\n= c\nTWO WORDS = d\nB = e\n");
  EXPECT_EQ(answer(),
            "A = b\nB = e\nqpgetconfig: " + file_ + ":2: not 'KEY = value': 'nonsense'\nstatus 1");
  test::write_file(file_, "= c\n");
  EXPECT_EQ(answer(), "qpgetconfig: " + file_ + ":1: not 'KEY = value': '= c'\nstatus 1");
  test::write_file(file_, "TWO WORDS = d\n");
  EXPECT_EQ(answer(), "qpgetconfig: " + file_ + ":1: not 'KEY = value': 'TWO WORDS = d'\nstatus 1");
}

TEST_F(ConfigurationTool, AFileThatCannotBeReadIsAnError) {
  std::filesystem::create_directory(file_);
  EXPECT_EQ(answer(), "qpgetconfig: " + file_ + ": cannot be read\nstatus 1");
}

TEST_F(ConfigurationTool, NeedsAServer) {
  EXPECT_TRUE(answer("-M ''").starts_with("qpgetconfig: -M: the name of a server is missing"));
  EXPECT_TRUE(answer("-M ''").ends_with("status 2"));
}

}  // namespace
}  // namespace corvane::host
