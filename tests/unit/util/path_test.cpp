#include "util/path.h"

#include <gtest/gtest.h>

namespace {

TEST(PathTest, CombineOfTmpSlashAndXKeepsTheDoubleSeparator) {
  EXPECT_EQ(Path::Combine("/tmp/", "x"), "/tmp//x");
}

TEST(PathTest, CombinePutsOneSlashBetween) {
  EXPECT_EQ(Path::Combine("/tmp", "x"), "/tmp/x");
  EXPECT_EQ(Path::Combine("a", "b/c"), "a/b/c");
}

TEST(PathTest, CombineCollapsesNothing) { EXPECT_EQ(Path::Combine("/tmp", "/x"), "/tmp//x"); }

TEST(PathTest, CombineOfEmptyTextsStillHasTheSlash) {
  EXPECT_EQ(Path::Combine("", "x"), "/x");
  EXPECT_EQ(Path::Combine("/tmp", ""), "/tmp/");
  EXPECT_EQ(Path::Combine("", ""), "/");
}

}  // namespace
