#include "util/file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <type_traits>

#include "tests/support/ordinary_user.h"
#include "tests/support/scratch_dir.h"

namespace {

using corvane::test::OrdinaryUserFiles;
using corvane::test::read_file;
using corvane::test::ScratchDir;
using corvane::test::write_file;
using std::filesystem::exists;

static_assert(std::is_base_of_v<std::exception, file_not_found>);

class FileTest : public ::testing::Test {
 protected:
  std::string with_size(std::size_t size) {
    write_file(scratch_("sized"), std::string(size, 'x'));
    return scratch_("sized");
  }

  // A file that OrdinaryUserFiles could remove but not read.
  std::string unreadable() {
    write_file(scratch_("unreadable"), "secret");
    chmod(scratch_("unreadable").c_str(), 0);
    chmod(scratch_().c_str(), 0777);
    return scratch_("unreadable");
  }

  ScratchDir scratch_;
};

TEST_F(FileTest, ExistsOfAFileThatCanBeRead) {
  write_file(scratch_("f"), "");
  EXPECT_TRUE(File::Exists(scratch_("f")));
  EXPECT_FALSE(File::Exists(scratch_("missing")));
  EXPECT_FALSE(File::Exists(""));
}

TEST_F(FileTest, AFolderCanBeOpenedAndSoExists) { EXPECT_TRUE(File::Exists(scratch_())); }

TEST_F(FileTest, AFileThatCannotBeReadCountsAsAbsent) {
  if (!OrdinaryUserFiles::possible()) GTEST_SKIP() << "root cannot step down here";
  const std::string path = unreadable();
  const OrdinaryUserFiles ordinary_user;
  EXPECT_FALSE(File::Exists(path));
  EXPECT_EQ(File::Size(path), 0);
  EXPECT_THROW(File::ReadAllText(path), file_not_found);
}

TEST_F(FileTest, DeleteRemovesTheFile) {
  write_file(scratch_("f"), "x");
  File::Delete(scratch_("f"));
  EXPECT_FALSE(exists(scratch_("f")));
}

TEST_F(FileTest, DeleteLeavesAFileThatCannotBeRead) {
  if (!OrdinaryUserFiles::possible()) GTEST_SKIP() << "root cannot step down here";
  const std::string path = unreadable();
  const OrdinaryUserFiles ordinary_user;
  File::Delete(path);
  EXPECT_TRUE(exists(path));
}

TEST_F(FileTest, DeleteIgnoresErrors) {
  EXPECT_NO_THROW(File::Delete(scratch_("missing")));
  EXPECT_NO_THROW(File::Delete(scratch_()));
  EXPECT_TRUE(exists(scratch_()));
}

TEST_F(FileTest, WriteAllTextReplacesTheContent) {
  write_file(scratch_("f"), "a longer old content");
  const std::string text("line\r\n\0end", 10);
  File::WriteAllText(scratch_("f"), text);
  EXPECT_EQ(read_file(scratch_("f")), text);
}

TEST_F(FileTest, WriteAllTextReportsNoFailure) {
  EXPECT_NO_THROW(File::WriteAllText(scratch_("nowhere/f"), "text"));
  EXPECT_NO_THROW(File::WriteAllText(scratch_(), "text"));
  EXPECT_NO_THROW(File::WriteAllText("/dev/full", "text"));
}

TEST_F(FileTest, ReadAllTextGivesEveryByte) {
  const std::string text("\xFF\r\n\0middle\n\nend", 16);
  write_file(scratch_("f"), text);
  EXPECT_EQ(File::ReadAllText(scratch_("f")), text);
  const std::string large(3'000'000, 'y');
  write_file(scratch_("f"), large);
  EXPECT_EQ(File::ReadAllText(scratch_("f")), large);
}

TEST_F(FileTest, ReadAllTextOfAnEmptyFileIsEmpty) {
  write_file(scratch_("f"), "");
  EXPECT_EQ(File::ReadAllText(scratch_("f")), "");
}

TEST_F(FileTest, ReadAllTextOfAFolderIsEmpty) { EXPECT_EQ(File::ReadAllText(scratch_()), ""); }

TEST_F(FileTest, ReadAllTextOfAMissingFileThrowsFileNotFoundWithThePath) {
  const std::string path = scratch_("missing");
  try {
    File::ReadAllText(path);
    FAIL() << "no exception";
  } catch (const file_not_found& error) {
    EXPECT_EQ(std::string(error.what()), "File not found '" + path + "'.");
  }
}

TEST_F(FileTest, SizeIsInWholeKibibytes) {
  EXPECT_EQ(File::Size(with_size(2048)), 2);
  EXPECT_EQ(File::Size(with_size(2047)), 1);
  EXPECT_EQ(File::Size(with_size(1023)), 0);
  EXPECT_EQ(File::Size(with_size(1024)), 1);
  EXPECT_EQ(File::Size(with_size(0)), 0);
}

TEST_F(FileTest, SizeOfAMissingFileIsZero) { EXPECT_EQ(File::Size(scratch_("missing")), 0); }

TEST_F(FileTest, SizeOfAFilePast32Bits) {
  write_file(scratch_("sparse"), "");
  std::filesystem::resize_file(scratch_("sparse"), 5'368'709'120);
  EXPECT_EQ(File::Size(scratch_("sparse")), 5'242'880);
}

}  // namespace
