#include "util/scratch_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "tests/support/ordinary_user.h"
#include "tests/support/scratch_dir.h"

namespace {

using corvane::ScratchFile;
using corvane::test::OrdinaryUserFiles;
using corvane::test::ScratchDir;
using corvane::test::write_file;
using std::filesystem::exists;

TEST(ScratchFileTest, RemovesWhatAnEarlierRunLeft) {
  const ScratchDir scratch;
  write_file(scratch("out.txt"), "old");
  const ScratchFile file(scratch("out.txt"));
  EXPECT_EQ(file.path(), scratch("out.txt"));
  EXPECT_FALSE(exists(file.path()));
}

TEST(ScratchFileTest, RemovesTheFileAtTheEndOfTheScope) {
  const ScratchDir scratch;
  {
    const ScratchFile file(scratch("out.txt"));
    write_file(file.path(), "new");
  }
  EXPECT_FALSE(exists(scratch("out.txt")));
}

TEST(ScratchFileTest, RemovesTheFileWhenAnExceptionLeavesTheScope) {
  const ScratchDir scratch;
  const auto fail = [&] {
    const ScratchFile file(scratch("out.txt"));
    write_file(file.path(), "new");
    throw std::runtime_error("half-way");
  };
  EXPECT_THROW(fail(), std::runtime_error);
  EXPECT_FALSE(exists(scratch("out.txt")));
}

TEST(ScratchFileTest, RemovesAFileThatCannotBeOpened) {
  if (!OrdinaryUserFiles::possible()) GTEST_SKIP() << "root cannot step down here";
  const ScratchDir scratch;
  std::filesystem::permissions(scratch(), std::filesystem::perms::all);
  write_file(scratch("old.txt"), "old");
  std::filesystem::permissions(scratch("old.txt"), std::filesystem::perms::none);
  const OrdinaryUserFiles ordinary_user;
  const ScratchFile file(scratch("old.txt"));
  EXPECT_FALSE(exists(file.path()));
}

TEST(ScratchFileTest, AFileThatNeverCameIsNoFault) {
  const ScratchDir scratch;
  EXPECT_NO_THROW(ScratchFile(scratch("nowhere/out.txt")));
}

}  // namespace
