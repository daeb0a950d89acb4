#include "util/directory.h"

#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/ordinary_user.h"
#include "tests/support/scratch_dir.h"

namespace {

using corvane::test::OrdinaryUserFiles;
using corvane::test::ScratchDir;
using corvane::test::write_file;
using std::filesystem::create_directory;
using std::filesystem::create_directory_symlink;
using std::filesystem::create_symlink;
using std::filesystem::exists;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

using Names = std::vector<std::string>;

class DirectoryTest : public ::testing::Test {
 protected:
  // Sub-folders a and b, a regular file f, a symbolic link l to a.
  void make_tree() {
    create_directory(scratch_("a"));
    create_directory(scratch_("b"));
    write_file(scratch_("f"), "x");
    create_directory_symlink(scratch_("a"), scratch_("l"));
  }

  // The names in the order in which the system lists them.
  Names listed_order() {
    Names names;
    DIR* directory = opendir(scratch_().c_str());
    while (const dirent* entry = readdir(directory)) names.emplace_back(entry->d_name);
    closedir(directory);
    return names;
  }

  ScratchDir scratch_;
};

TEST_F(DirectoryTest, ExistsOfARegularFileIsTrue) {
  write_file(scratch_("f"), "x");
  EXPECT_TRUE(Directory::Exists(scratch_("f")));
  EXPECT_TRUE(Directory::CanAccess(scratch_("f")));
}

TEST_F(DirectoryTest, ExistsOfAFolderAndOfNothing) {
  EXPECT_TRUE(Directory::Exists(scratch_()));
  EXPECT_TRUE(Directory::CanAccess(scratch_()));
  EXPECT_FALSE(Directory::Exists(scratch_("missing")));
  EXPECT_FALSE(Directory::CanAccess(scratch_("missing")));
  EXPECT_FALSE(Directory::Exists(""));
}

TEST_F(DirectoryTest, ExistsFollowsLinks) {
  create_symlink(scratch_("missing"), scratch_("dangling"));
  EXPECT_FALSE(Directory::Exists(scratch_("dangling")));
}

TEST_F(DirectoryTest, UnlinkFileRemovesAndTellsTheResult) {
  write_file(scratch_("f"), "x");
  EXPECT_EQ(Directory::UnlinkFile(scratch_("f")), 0);
  EXPECT_FALSE(exists(scratch_("f")));
  EXPECT_EQ(Directory::UnlinkFile(scratch_("f")), 0) << "nothing there is no failure";
  EXPECT_EQ(Directory::UnlinkFile(scratch_()), -1) << "a folder cannot be unlinked";
}

TEST_F(DirectoryTest, RmDirRemovesAnEmptyFolderOnly) {
  create_directory(scratch_("a"));
  write_file(scratch_("a/f"), "x");
  EXPECT_EQ(Directory::RmDir(scratch_("a")), -1);
  std::filesystem::remove(scratch_("a/f"));
  EXPECT_EQ(Directory::RmDir(scratch_("a")), 0);
  EXPECT_EQ(Directory::RmDir(scratch_("a")), -1);
}

TEST_F(DirectoryTest, MkDirMakesAFolderOfMode0755) {
  const mode_t before = umask(0);
  Directory::MkDir(scratch_("a"));
  umask(before);
  struct stat status;
  ASSERT_EQ(stat(scratch_("a").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFDIR | 0755));
}

TEST_F(DirectoryTest, MkDirMakesNoParents) {
  Directory::MkDir(scratch_("a/b"));
  EXPECT_FALSE(exists(scratch_("a")));
}

TEST_F(DirectoryTest, MkDirOverAnExistingEntryChangesNothing) {
  write_file(scratch_("f"), "x");
  Directory::MkDir(scratch_("f"));
  Directory::MkDir("");
  EXPECT_FALSE(Directory::is_folder(scratch_("f")));
}

TEST_F(DirectoryTest, IsFolder) {
  make_tree();
  EXPECT_TRUE(Directory::is_folder(scratch_("a")));
  EXPECT_FALSE(Directory::is_folder(scratch_("f")));
  EXPECT_FALSE(Directory::is_folder(scratch_("missing")));
}

TEST_F(DirectoryTest, ALinkToAFolderIsNoFolderButWithATrailingSlashItIs) {
  make_tree();
  EXPECT_FALSE(Directory::is_folder(scratch_("l")));
  EXPECT_TRUE(Directory::is_folder(scratch_("l") + "/"));
}

TEST_F(DirectoryTest, GetDirectoriesYieldsTheFoldersAAndB) {
  make_tree();
  EXPECT_THAT(Directory::GetDirectories(scratch_()), UnorderedElementsAre("a", "b"));
}

TEST_F(DirectoryTest, GetFilesYieldsTheFileAndTheLink) {
  make_tree();
  EXPECT_THAT(Directory::GetFiles(scratch_()), UnorderedElementsAre("f", "l"));
}

TEST_F(DirectoryTest, GetFilesYieldsPipesAndDanglingLinksToo) {
  ASSERT_EQ(mkfifo(scratch_("pipe").c_str(), 0600), 0);
  create_symlink(scratch_("missing"), scratch_("dangling"));
  EXPECT_THAT(Directory::GetFiles(scratch_()), UnorderedElementsAre("pipe", "dangling"));
}

TEST_F(DirectoryTest, ListsAreNotSorted) {
  for (int i = 0; i < 40; ++i) create_directory(scratch_(std::to_string(i * 7919 % 1000)));
  Names order = listed_order();
  std::erase(order, ".");
  std::erase(order, "..");
  EXPECT_THAT(Directory::GetDirectories(scratch_()), ElementsAreArray(order));
  for (const std::string& name : order) {
    std::filesystem::remove(scratch_(name));
    write_file(scratch_(name), "");
  }
  order = listed_order();
  std::erase(order, ".");
  std::erase(order, "..");
  EXPECT_THAT(Directory::GetFiles(scratch_()), ElementsAreArray(order));
}

TEST_F(DirectoryTest, ListingAppends) {
  make_tree();
  Names names{"kept"};
  Directory::GetDirectories(scratch_(), names);
  EXPECT_THAT(names, UnorderedElementsAre("kept", "a", "b"));
  EXPECT_EQ(names.front(), "kept");
  Directory::GetFiles(scratch_(), names);
  EXPECT_THAT(names, UnorderedElementsAre("kept", "a", "b", "f", "l"));
}

TEST_F(DirectoryTest, ListingADirectoryThatDoesNotExistLeavesTheVectorAsItWas) {
  Names names{"kept"};
  Directory::GetDirectories(scratch_("missing"), names);
  Directory::GetFiles(scratch_("missing"), names);
  EXPECT_THAT(names, ElementsAre("kept"));
  EXPECT_THAT(Directory::GetDirectories(scratch_("missing")), IsEmpty());
  EXPECT_THAT(Directory::GetFiles(scratch_("missing")), IsEmpty());
}

TEST_F(DirectoryTest, WhereNothingCanBeExaminedEveryEntryIsAFile) {
  if (!OrdinaryUserFiles::possible()) GTEST_SKIP() << "root cannot step down here";
  create_directory(scratch_("closed"));
  create_directory(scratch_("closed/a"));
  // Readable by everybody, searchable by nobody.
  chmod(scratch_().c_str(), 0755);
  chmod(scratch_("closed").c_str(), 0444);
  Names files;
  Names folders;
  {
    const OrdinaryUserFiles ordinary_user;
    files = Directory::GetFiles(scratch_("closed"));
    folders = Directory::GetDirectories(scratch_("closed"));
  }
  chmod(scratch_("closed").c_str(), 0755);
  EXPECT_THAT(files, UnorderedElementsAre(".", "..", "a"));
  EXPECT_THAT(folders, IsEmpty());
}

}  // namespace
