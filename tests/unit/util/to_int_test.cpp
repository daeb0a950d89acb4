#include "util/to_int.h"

#include <gtest/gtest.h>

#include <limits>

namespace corvane {
namespace {

TEST(ToInt, ReadsBaseTenAndIgnoresWhatFollows) {
  EXPECT_EQ(to_int("42"), 42);
  EXPECT_EQ(to_int("  -42 kB"), -42);
  EXPECT_EQ(to_int("+7"), 7);
  EXPECT_EQ(to_int("007"), 7);
  EXPECT_EQ(to_int("12.9"), 12);
  EXPECT_EQ(to_int("1e3"), 1);
  EXPECT_EQ(to_int("0x10"), 0);
}

TEST(ToInt, GivesZeroForWhatIsNoNumber) {
  EXPECT_EQ(to_int(""), 0);
  EXPECT_EQ(to_int("abc"), 0);
  EXPECT_EQ(to_int("-"), 0);
}

TEST(ToInt, KeepsTheLow32BitsOfWhatIsTooLarge) {
  EXPECT_EQ(to_int("2147483647"), 2147483647);
  EXPECT_EQ(to_int("2147483648"), std::numeric_limits<int>::min());
  EXPECT_EQ(to_int("4294967295"), -1);
  EXPECT_EQ(to_int("4294967296"), 0);
  EXPECT_EQ(to_int("99999999999999999999"), -1);  // over 63 bits
  EXPECT_EQ(to_int("-99999999999999999999"), 0);
}

}  // namespace
}  // namespace corvane
