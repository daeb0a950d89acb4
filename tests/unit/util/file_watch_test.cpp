#include "util/file_watch.h"

#include <gtest/gtest.h>

#include <filesystem>

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
