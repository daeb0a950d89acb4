// The product's tools as whole programs: what their main() decides.
#include <gmock/gmock.h>

#include "tests/support/program_run.h"
#include "tests/unit/embedded_host/catalog_world.h"

namespace corvane::host {
namespace {

using corvane::test::program_run;
using corvane::test::read_file;
using test::backup_line;
using test::kDay;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class Tools : public ::testing::Test {
 protected:
  Tools() { world_.load({backup_line(1, kDay, 1), backup_line(2, kDay + 10, 1)}); }

  std::string answer(const std::string& program, const std::string& arguments) const {
    return program_run(program + " " + arguments + " --catalog " + world_.path);
  }

  test::CatalogWorld world_;
};

TEST_F(Tools, ImagesAreListedOfAWindow) {
  EXPECT_THAT(
      answer(CV_QPIMAGELIST, "-X -d 1769817600 -e 1769817605 -json_compact"),
      AllOf(HasSubstr("\"job_id\":1,"), Not(HasSubstr("\"job_id\":2,")), EndsWith("}\nstatus 0")));
  EXPECT_EQ(answer(CV_QPIMAGELIST, "-d 1 -e 2"), "no entity was found\nstatus 0");
  EXPECT_EQ(answer(CV_QPIMAGELIST, "-e 2"), "qpimagelist: -d is missing (see --help)\nstatus 2");
  EXPECT_EQ(answer(CV_QPIMAGELIST, "-d 2"), "qpimagelist: -e is missing (see --help)\nstatus 2");
}

TEST_F(Tools, JobsAreShownInTheOrderOfTheirList) {
  EXPECT_THAT(
      answer(CV_QPDBJOBS, "-json -jobid 2,1"),
      AllOf(StartsWith("[{\"JobId\":2,"), HasSubstr("},{\"JobId\":1,"), EndsWith("}]\nstatus 0")));
  EXPECT_THAT(answer(CV_QPDBJOBS, "-jobid 1"), StartsWith("[{\"JobId\":1,"));
  EXPECT_EQ(answer(CV_QPDBJOBS, "-jobid 1,"),
            "qpdbjobs: -jobid: not a whole number: '' (see --help)\nstatus 2");
  EXPECT_EQ(answer(CV_QPDBJOBS, "-json"), "qpdbjobs: -jobid is missing (see --help)\nstatus 2");
}

TEST_F(Tools, AnArchiveIsWrittenAndItsPathPrinted) {
  const std::string root = world_.dir("archives");
  const auto archive = [&](const std::string& window) {
    return answer(CV_DEPLOYUTIL, window + " --master master01 --root " + root);
  };
  const std::string path = root + "/master01-1769817600-1769817605";
  EXPECT_EQ(archive("-d 1769817600 -e 1769817605"), path + "\nstatus 0");
  EXPECT_THAT(read_file(path + "/qpimagelist.out"), HasSubstr("\"job_id\":1,"));
  EXPECT_EQ(archive("-d 7 -e 7"), root + "/master01-7-7\nstatus 0") << "both ends are included";
  EXPECT_EQ(archive("-d 8 -e 7"), "cvdeployutil: -d is after -e (see --help)\nstatus 2");
  EXPECT_EQ(archive("-e 7"), "cvdeployutil: -d is missing (see --help)\nstatus 2");
  EXPECT_EQ(archive("-d 7"), "cvdeployutil: -e is missing (see --help)\nstatus 2");
}

}  // namespace
}  // namespace corvane::host
