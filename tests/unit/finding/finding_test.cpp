#include "finding/finding.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

Finding of_web01() {
  Finding finding;
  finding.stream.client = "web01";
  finding.stream.schedule_name = "daily";
  return finding;
}

FigureView deviates(double value, double deviation) {
  return {.known = true,
          .has_usual = true,
          .value = value,
          .low = 990,
          .usual = 1000,
          .high = 1010,
          .deviation = deviation};
}

TEST(SummaryOf, NamesTheFigureThatDeviatesMostAndTheFirstCause) {
  Finding finding = of_web01();
  finding.figures[kSize] = deviates(500, -3);
  finding.figures[kFiles] = deviates(12, -9);
  finding.figures[kDuration] = deviates(1, 99);
  finding.causes = {cause(CauseKind::kMassDeletion), cause(CauseKind::kPacked)};
  EXPECT_EQ(summary_of(finding),
            "daily backup of web01: 12 files, usually 990 to 1,010. A large part of the files is "
            "gone.");
  EXPECT_EQ(finding.likeliest_cause(), CauseKind::kMassDeletion);
}

TEST(SummaryOf, OfASlowChangeNamesNoFigure) {
  Finding finding = of_web01();
  finding.figures[kFiles] = deviates(12, -9);
  finding.slow_change = SlowChange{.runs = 3, .of_files = true, .share = 0.5, .share_before = 0.1};
  EXPECT_EQ(summary_of(finding), "daily backup of web01: " + in_words(*finding.slow_change));
}

TEST(SummaryOf, SaysNoMoreThanIsKnown) {
  Finding finding = of_web01();
  EXPECT_EQ(summary_of(finding), "daily backup of web01");
  finding.figures[kDuration] = deviates(1, 99);
  EXPECT_EQ(summary_of(finding), "daily backup of web01") << "a duration alone is no reason";
  finding.stream.schedule_name.clear();
  EXPECT_EQ(summary_of(finding), "backup of web01");
  EXPECT_EQ(finding.likeliest_cause(), std::nullopt);
}

}  // namespace
}  // namespace corvane
