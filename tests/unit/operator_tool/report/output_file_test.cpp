#include "operator_tool/report/output_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "health/trouble.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/in_child.h"
#include "tests/support/scratch_dir.h"

namespace corvane::ctl {
namespace {

class OutputFile : public testing::Test {
 protected:
  void expect_refused(const std::string& name, const std::string& why) {
    const std::string path = directory_(name);
    try {
      replace_file(path, "x");
      ADD_FAILURE() << name;
    } catch (const health::Trouble& trouble) {
      EXPECT_EQ(trouble.status(), health::ExitStatus::kFailed);
      EXPECT_EQ(trouble.what(), "Cannot write " + path + ": " + why + ".");
    }
  }
  std::set<std::string> names() const {
    std::set<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(directory_())) {
      found.insert(entry.path().filename());
    }
    return found;
  }
  test::ScratchDir directory_;
};

TEST_F(OutputFile, TakesThePlaceOfARegularFileOnly) {
  std::filesystem::create_directory(directory_("directory"));
  ASSERT_EQ(mkfifo(directory_("pipe").c_str(), 0600), 0);
  test::write_file(directory_("file"), "former");
  std::filesystem::create_symlink("file", directory_("link"));
  std::filesystem::create_symlink("none", directory_("dangling"));
  expect_refused("directory", "it is a directory");
  expect_refused("pipe", "it is not a regular file");
  expect_refused("link", "it is a symbolic link; name the file itself");
  expect_refused("dangling", "it is a symbolic link; name the file itself");
  EXPECT_TRUE(std::filesystem::is_fifo(directory_("pipe")));
  EXPECT_EQ(test::read_file(directory_("file")), "former");
  EXPECT_EQ(names(), (std::set<std::string>{"dangling", "directory", "file", "link", "pipe"}));
}

TEST_F(OutputFile, IsMadeOrReplacedWithTheModeOfTheUmask) {
  const auto mode = [&](mode_t mask) {
    struct stat made {};
    const mode_t former = umask(mask);
    replace_file(directory_("file"), "new");
    EXPECT_EQ(umask(former), mask);  // as it was
    EXPECT_EQ(stat(directory_("file").c_str(), &made), 0);
    return made.st_mode & 07777;
  };
  EXPECT_EQ(mode(0), 0644U);
  EXPECT_EQ(test::read_file(directory_("file")), "new");
  EXPECT_EQ(mode(027), 0640U);
  EXPECT_EQ(mode(0777), 0U);
  EXPECT_EQ(names(), std::set<std::string>{"file"});
  const int free = dup(STDERR_FILENO);
  close(free);
  replace_file(directory_("empty"), "");
  const int still_free = dup(STDERR_FILENO);
  close(still_free);
  EXPECT_EQ(free, still_free);  // no descriptor stays open
  EXPECT_EQ(test::read_file(directory_("empty")), "");
}

TEST_F(OutputFile, IsWrittenWhereStandardInputIsClosed) {
  EXPECT_EQ(test::in_child([&] {
              close(STDIN_FILENO);  // so that the file gets its number
              replace_file(directory_("file"), "new");
              return 0;
            }),
            0);
  EXPECT_EQ(test::read_file(directory_("file")), "new");
}

TEST_F(OutputFile, IsNotWrittenWhereTheDirectoryIsMissing) {
  expect_refused("none/file", "No such file or directory");
  EXPECT_TRUE(names().empty());
}

TEST_F(OutputFile, LeavesNothingBehindWhenItFails) {
  test::write_file(directory_("target"), "former");
  const int status = test::in_child([&] {
    int found = 0;
    try {
      const test::FileSizeLimit full(4);
      replace_file(directory_("target"), "too much");
    } catch (const health::Trouble& trouble) {
      found = static_cast<int>(trouble.status());
      EXPECT_EQ(trouble.what(), "Cannot write " + directory_("target") + ": File too large.");
    }
    return found;
  });
  EXPECT_EQ(status, static_cast<int>(health::ExitStatus::kFailed));
  EXPECT_EQ(test::read_file(directory_("target")), "former");
  EXPECT_EQ(names(), std::set<std::string>{"target"});
}

}  // namespace
}  // namespace corvane::ctl
