#include "companions/common/program_log.h"

#include "tests/fakes/platform_fake_test.h"

namespace corvane {
namespace {

using ProgramLog = PlatformFake;

TEST_F(ProgramLog, IsBesideTheServices) {
  fake.install_dir = "/opt/product/";
  open_program_log("companion");
  EXPECT_EQ(fake.log_openings, (std::vector<fake::LogOpening>{
                                   {"/opt/product/corvane/logs", "companion", "companion", 0644}}));
}

TEST_F(ProgramLog, IsNotOpenedWithoutAProduct) {
  fake.install_dir.reset();
  open_program_log("companion");
  EXPECT_TRUE(fake.log_openings.empty());
}

TEST_F(ProgramLog, ThatCannotBeOpenedIsNoError) {
  fake.log_status = -1;
  EXPECT_NO_THROW(open_program_log("companion"));
}

}  // namespace
}  // namespace corvane
