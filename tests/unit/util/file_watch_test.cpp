#include "util/file_watch.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "tests/support/scratch_dir.h"

namespace corvane {
namespace {

TEST(FileWatch, SeesEachChangeOnce) {
  const test::ScratchDir directory;
  FileWatch watch(directory("c.conf"));
  EXPECT_TRUE(watch.changed());
  EXPECT_FALSE(watch.changed());
  test::write_file(directory("c.conf"), "a");
  EXPECT_TRUE(watch.changed());
  EXPECT_FALSE(watch.changed());
  test::write_file(directory("other"), "b");  // of the same size
  std::filesystem::rename(directory("other"), directory("c.conf"));
  EXPECT_TRUE(watch.changed());
  std::filesystem::remove(directory("c.conf"));
  EXPECT_TRUE(watch.changed());
  EXPECT_FALSE(watch.changed());
}

void set_time(const std::string& path, std::time_t seconds, long nanoseconds) {
  const timespec times[]{{seconds, nanoseconds}, {seconds, nanoseconds}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

TEST(FileWatch, SeesAChangeOfTheSizeTheTimeOrTheFileAlone) {
  const test::ScratchDir directory;
  const std::string path = directory("c.conf");
  test::write_file(path, "a");
  set_time(path, 1000, 50);
  FileWatch watch(path);
  EXPECT_TRUE(watch.changed());
  EXPECT_FALSE(watch.changed());
  test::write_file(path, "ab");
  set_time(path, 1000, 50);
  EXPECT_TRUE(watch.changed()) << "size";
  set_time(path, 1001, 50);
  EXPECT_TRUE(watch.changed()) << "second";
  set_time(path, 1001, 51);
  EXPECT_TRUE(watch.changed()) << "nanosecond";
  test::write_file(directory("other"), "xy");
  set_time(directory("other"), 1001, 51);
  std::filesystem::rename(directory("other"), path);
  EXPECT_TRUE(watch.changed()) << "file";
  EXPECT_FALSE(watch.changed());
}

TEST(FileIdentity, IsLostWithTheFile) {
  const test::ScratchDir directory;
  FileIdentity file;
  EXPECT_FALSE(file.is_same());
  file.remember(directory("db"));
  EXPECT_FALSE(file.is_same());
  test::write_file(directory("db"), "a");
  file.remember(directory("db"));
  EXPECT_TRUE(file.is_same());
  test::write_file(directory("db"), "more");
  EXPECT_TRUE(file.is_same());
  test::write_file(directory("other"), "more");
  std::filesystem::rename(directory("other"), directory("db"));
  EXPECT_FALSE(file.is_same());
  std::filesystem::remove(directory("db"));
  EXPECT_FALSE(file.is_same());
}

}  // namespace
}  // namespace corvane
