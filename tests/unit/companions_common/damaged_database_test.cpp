#include "companions/common/damaged_database.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "tests/support/scratch_dir.h"

namespace corvane {
namespace {

TEST(DamagedDatabase, IsMovedAsideWithoutItsLog) {
  const test::ScratchDir directory;
  const std::string path = directory("x.db");
  for (const char* suffix : {"", "-wal", "-shm", ".damaged"})
    test::write_file(path + suffix, suffix);
  test::write_file(path, "damaged");
  move_damaged_database_aside(path);
  std::set<std::string> left;
  for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
    left.insert(entry.path().filename());
  }
  EXPECT_EQ(left, std::set<std::string>{"x.db.damaged"});
  EXPECT_EQ(test::read_file(path + ".damaged"), "damaged");
  move_damaged_database_aside(path);
}

}  // namespace
}  // namespace corvane
