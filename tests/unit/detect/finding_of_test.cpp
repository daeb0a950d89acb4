#include "companions/detect/finding_of.h"

#include <gtest/gtest.h>

#include "anomaly_database/statuses.h"
#include "companions/detect/model.h"
#include "tests/unit/detect/detect_world.h"

namespace corvane::detect {
namespace {

std::string no_reports(const std::string&) { return {}; }

TEST(FindingOf, HasWhatTheVerdictAndTheModelKnow) {
  Model model{Settings{}, no_reports};
  for (int day = 0; day < 40; ++day) model.learn(daily(day), kNoCluster);
  const Backup backup = daily(40, 300, 3e5);
  const Finding finding = finding_of(backup, model.judge(backup), model);
  EXPECT_EQ(finding.severity, Severity::kCritical);
  EXPECT_EQ(finding.incident, "incident_" + backup.unique_key);
  EXPECT_EQ(finding.stream, backup.stream);
  EXPECT_EQ(finding.backup_id, backup.backup_id);
  EXPECT_EQ(finding.job_id, backup.job_id);
  EXPECT_EQ(finding.time, backup.time);
  EXPECT_EQ(finding.likeliest_cause(), CauseKind::kMassDeletion);
  EXPECT_EQ(finding.last_good.backup_id, daily(39).backup_id);
  EXPECT_EQ(finding.last_good.time, daily(39).time);
  EXPECT_EQ(finding.observations, 40U);
  EXPECT_EQ(finding.eps, 2.5);
  EXPECT_FALSE(finding.by_other_stream);
  EXPECT_EQ(finding.usual_since, 0);
  const FigureView& files = finding.figures[kFiles];
  EXPECT_EQ(files.value, backup.figures.files);
  EXPECT_NEAR(files.usual, 1000, 20);
  EXPECT_LT(files.low, 1000);
  EXPECT_GT(files.high, 1000);
  EXPECT_EQ(finding.summary, summary_of(finding));
}

// Every figure of the third run is a normal one; the three in a row are the reason.
TEST(FindingOf, ASlowChangeNamesTheRunsThatItTook) {
  Model model{Settings{}, no_reports};
  for (int day = 0; day < 40; ++day) {
    model.learn(daily(day, 1000, 1e6, day % 4 == 0 ? 6e4 : 1e4), kNoCluster);
  }
  for (int day = 40; day < 42; ++day) {
    ASSERT_EQ(model.judge(daily(day, 1000, 1e6, 6e4)).outcome, Outcome::kNormal);
    model.learn(daily(day, 1000, 1e6, 6e4), kNoCluster);
  }
  const Backup third = daily(42, 1000, 1e6, 6e4);
  const Verdict verdict = model.judge(third);
  ASSERT_EQ(verdict.outcome, Outcome::kAnomalous);
  const Finding finding = finding_of(third, verdict, model);
  EXPECT_EQ(finding.summary.substr(0, finding.summary.find(". Files may")),
            "daily backup of client: each of 3 backups in a row found at least 5.8 % of the data "
            "new (previous maximum for 3 in a row: 1.2 %)");
  ASSERT_TRUE(finding.slow_change);
  EXPECT_EQ(finding.slow_change->runs, 3U);
  EXPECT_FALSE(finding.slow_change->of_files);
  EXPECT_NEAR(finding.slow_change->share, 0.058, 0.001);
  EXPECT_NEAR(finding.slow_change->share_before, 0.012, 0.001);

  const Backup sudden = daily(42, 1000, 1e6, 9e5);
  EXPECT_FALSE(finding_of(sudden, model.judge(sudden), model).slow_change);
}

// Where nothing was ever new to the store the usual ratio is no number that people could read.
TEST(FindingOf, AnInfiniteRatioIsSaidInWords) {
  Model model{Settings{}, no_reports};
  for (int day = 0; day < 40; ++day) {
    Backup backup = daily(day);
    backup.figures.transferred_kb = 10;
    backup.figures.ratio = 1e9;
    model.learn(backup, kNoCluster);
  }
  Backup backup = daily(40, 1000, 1e6, 9.5e5);
  backup.figures.ratio = 1.05;
  const Finding finding = finding_of(backup, model.judge(backup), model);
  EXPECT_EQ(words_for(kRatio, finding.figures[kRatio]).range.substr(0, 9), "at least ");
  EXPECT_EQ(finding.summary.find("1,000,000"), std::string::npos) << finding.summary;
}

}  // namespace
}  // namespace corvane::detect
