#include "finding/severity.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(SeverityTest, NumbersBeyondTheScaleAreAtItsEnd) {
  for (const std::int64_t number : {-7, 0, 1}) EXPECT_EQ(severity_of(number), Severity::kWarning);
  EXPECT_EQ(severity_of(2), Severity::kMajor);
  for (const std::int64_t number : {3, 4, 99}) EXPECT_EQ(severity_of(number), Severity::kCritical);
}

TEST(SeverityTest, HasANumberAndAWord) {
  EXPECT_EQ(number_of(Severity::kNone), 0);
  EXPECT_EQ(number_of(Severity::kWarning), 1);
  EXPECT_EQ(number_of(Severity::kMajor), 2);
  EXPECT_EQ(number_of(Severity::kCritical), 3);
  EXPECT_STREQ(words_for(Severity::kNone), "warning");
  EXPECT_STREQ(words_for(Severity::kWarning), "warning");
  EXPECT_STREQ(words_for(Severity::kMajor), "major");
  EXPECT_STREQ(words_for(Severity::kCritical), "critical");
}

}  // namespace
}  // namespace corvane
