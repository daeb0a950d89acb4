#include "companions/detect/finding_of.h"

#include <gtest/gtest.h>

#include <tuple>

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
            "daily backup of client: in each of 3 backups in a row, at least 5.8% of the data "
            "was new (previous maximum for 3 in a row: 1.2%)");
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

TEST(FindingOf, SaysAllThatTheVerdictDoes) {
  Model model{Settings{}, [](const std::string&) { return std::string("incident_first"); }};
  model.learn(daily(2), kNoCluster);
  model.hold(daily(4), {});
  model.learn(daily(6), kNoCluster);
  model.learn(daily(7), kNoCluster);
  Verdict verdict;
  verdict.outcome = Outcome::kAnomalous;
  verdict.observations = 17;
  verdict.eps = 1.5;
  verdict.by_other_stream = true;
  verdict.slow_change = SlowChange{3, true, 0.2, 0.1};
  verdict.figures[kSize] = {true, true, 5, 1, 2, 3, 4};
  verdict.causes = {cause(CauseKind::kPacked), cause(CauseKind::kMassDeletion)};
  verdict.severity = Severity::kMajor;
  const Finding finding = finding_of(daily(5), verdict, model);
  EXPECT_EQ(finding.severity, Severity::kMajor);
  EXPECT_EQ(finding.incident, "incident_first");
  EXPECT_EQ(finding.stream, daily(5).stream);
  EXPECT_TRUE(finding.has_stream);
  EXPECT_EQ(finding.backup_id, daily(5).backup_id);
  EXPECT_EQ(finding.job_id, 1005);
  EXPECT_EQ(finding.time, daily(5).time);
  ASSERT_EQ(finding.causes.size(), 2U);
  EXPECT_EQ(finding.causes[1].kind, CauseKind::kMassDeletion);
  ASSERT_TRUE(finding.slow_change);
  EXPECT_EQ(finding.slow_change->share, 0.2);
  EXPECT_EQ(finding.figures[kSize].deviation, 4);
  EXPECT_TRUE(finding.by_other_stream);
  EXPECT_EQ(finding.observations, 17U);
  EXPECT_EQ(finding.eps, 1.5);
  EXPECT_EQ(finding.last_good.backup_id, daily(7).backup_id);
  EXPECT_EQ(finding.usual_since, daily(6).time);
  EXPECT_EQ(finding.summary, summary_of(finding));
  EXPECT_FALSE(finding.adopted);
}

TEST(WordsFor, AreOfTheOutcomeOrOfWhatIsStillMissing) {
  Settings settings;
  settings.stream.min_observations = 9;
  for (const auto& [outcome, name, words] :
       {std::tuple(Outcome::kLearning, "learning", "learning 4 of 9"),
        {Outcome::kInconclusive, "inconclusive", "inconclusive"},
        {Outcome::kNormal, "normal", "normal"},
        {Outcome::kAdopted, "adopted", "adopted"},
        {Outcome::kAnomalous, "anomalous", "anomalous"}}) {
    EXPECT_STREQ(name_of(outcome), name);
    Verdict verdict;
    verdict.outcome = outcome;
    verdict.observations = 4;
    EXPECT_EQ(words_for(verdict, settings), words);
  }
}

}  // namespace
}  // namespace corvane::detect
