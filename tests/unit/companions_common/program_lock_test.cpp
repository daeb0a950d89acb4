#include "companions/common/program_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/descriptors.h"
#include "tests/support/error_of.h"
#include "tests/support/file_creation_mask.h"
#include "tests/support/scratch_dir.h"

namespace corvane {
namespace {

class ProgramLockTest : public ::testing::Test {
 protected:
  const test::ScratchDir directory;
  const std::string path = directory("lock");
};

TEST_F(ProgramLockTest, IsHeldByOneAtATime) {
  ProgramLock second(path);
  {
    ProgramLock first(path);
    EXPECT_TRUE(first.take());
    EXPECT_TRUE(first.take());
    EXPECT_FALSE(second.take());
    EXPECT_FALSE(second.take());
    ProgramLock of_another_database(directory("other"));
    EXPECT_TRUE(of_another_database.take());
  }
  EXPECT_TRUE(second.take());
}

TEST_F(ProgramLockTest, IsAFileThatNoProgramInherits) {
  const test::FileCreationMask usual(022);
  const int next = test::lowest_free_descriptor();
  ProgramLock lock(path);
  ASSERT_TRUE(lock.take());
  EXPECT_EQ(fcntl(next, F_GETFD), FD_CLOEXEC);
  struct stat found {};
  ASSERT_EQ(stat(path.c_str(), &found), 0);
  EXPECT_EQ(found.st_mode & 07777U, 0644U);
}

TEST_F(ProgramLockTest, SaysWhyThereIsNone) {
  ProgramLock lock(directory("none/lock"));
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(test::error_of([&] { lock.take(); }),
              directory("none/lock") + ": No such file or directory");
  }
}

}  // namespace
}  // namespace corvane
