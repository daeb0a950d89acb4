// Verdicts by several runs in a row, each of which passes by itself. Shares are in thousandths.
#include "companions/detect/judge.h"
#include "tests/unit/detect/judge_world.h"

namespace corvane::detect {
namespace {

class JudgeSlowChange : public JudgeTest {
 protected:
  JudgeSlowChange() { settings_.eps = 20; }

  Figures figures(double effort) const {
    return incremental_ ? Figures{effort, 0, 0, -1, 0} : Figures{24, 936, effort, -1, 0};
  }
  Verdict judge_after(const std::vector<double>& efforts, double last) {
    history_.clear();
    for (const double effort : efforts) fill(history_, 1, figures(effort));
    return judge(figures(last));
  }
  Outcome outcome_after(const std::vector<double>& efforts, double last) {
    return judge_after(efforts, last).outcome;
  }
};

TEST_F(JudgeSlowChange, IsThreeRunsOfAtLeast3PercentStoredAnew) {
  EXPECT_EQ(outcome_after({0, 0, 0, 0, 0, 0, 30, 30}, 30), Outcome::kAnomalous);
  EXPECT_EQ(outcome_after({0, 0, 0, 0, 0, 0, 30, 30}, 29), Outcome::kNormal);
  EXPECT_EQ(outcome_after({0, 0, 0, 0, 0, 0, 30, 29}, 30), Outcome::kNormal);
  EXPECT_EQ(outcome_after({0, 0, 0, 0, 0, 0, 29, 30}, 30), Outcome::kNormal);
  EXPECT_EQ(outcome_after({0, 0, 0, 0, 0, 30, 0, 30}, 30), Outcome::kNormal);
}

TEST_F(JudgeSlowChange, SaysWhatItRestsOn) {
  const Verdict verdict = judge_after({0, 0, 15, 10, 16, 0, 60, 50}, 70);
  EXPECT_EQ(verdict.outcome, Outcome::kAnomalous);
  ASSERT_TRUE(verdict.slow_change);
  EXPECT_EQ(verdict.slow_change->runs, 3U);
  EXPECT_FALSE(verdict.slow_change->of_files);
  EXPECT_DOUBLE_EQ(verdict.slow_change->share, 0.05);
  EXPECT_DOUBLE_EQ(verdict.slow_change->share_before, 0.01);
  EXPECT_TRUE(verdict.change.sustained);
  ASSERT_EQ(verdict.causes.size(), 1U);
  EXPECT_EQ(verdict.causes[0].words, slow_encryption().words);
  EXPECT_EQ(verdict.severity, Severity::kCritical);
}

TEST_F(JudgeSlowChange, IsTwiceTheMostSustainedThreeRunsBefore) {
  EXPECT_EQ(outcome_after({15, 15, 15, 0, 0, 0, 30, 30}, 30), Outcome::kAnomalous);
  EXPECT_EQ(outcome_after({16, 16, 16, 0, 0, 0, 30, 30}, 30), Outcome::kNormal);
  EXPECT_EQ(outcome_after({0, 99, 99, 0, 99, 15, 99, 0, 30, 30}, 30), Outcome::kAnomalous);
  EXPECT_EQ(outcome_after({0, 0, 0, 0, 0, 20, 30, 30}, 30), Outcome::kNormal)
      << "the runs before it are history, too";
  EXPECT_EQ(outcome_after({0, 0, 0, 0, 0, 15, 30, 30}, 30), Outcome::kAnomalous);
}

TEST_F(JudgeSlowChange, ARunOf30PercentWasAnIncidentOfItsOwn) {
  EXPECT_EQ(outcome_after({0, 0, 0, 0, 0, 0, 299, 299}, 299), Outcome::kAnomalous);
  EXPECT_EQ(outcome_after({0, 0, 0, 0, 0, 0, 300, 299}, 299), Outcome::kNormal);
  EXPECT_EQ(outcome_after({0, 0, 0, 0, 0, 0, 299, 300}, 299), Outcome::kNormal);
  EXPECT_EQ(outcome_after({0, 0, 0, 0, 0, 0, 299, 299}, 300), Outcome::kAnomalous);
}

TEST_F(JudgeSlowChange, AnomalousRunsCountByTheirTime) {
  fill(history_, 8, figures(0));
  const auto with_held = [&](int first, int second) {
    held_ = {observed(first, figures(30)), observed(second, figures(30))};
    return judge(observed(12, figures(30))).outcome;
  };
  EXPECT_EQ(with_held(8, 9), Outcome::kAnomalous);
  EXPECT_EQ(with_held(1, 9), Outcome::kNormal);
  held_ = {observed(1, figures(0)), observed(2, figures(0))};
  EXPECT_EQ(outcome_after({0, 0, 0, 0, 0, 0, 30, 30}, 30), Outcome::kAnomalous);
}

TEST_F(JudgeSlowChange, TakesThreeRunsOfHistory) {
  settings_.stream.min_observations = 2;
  EXPECT_EQ(outcome_after({30, 30}, 30), Outcome::kNormal);
  EXPECT_EQ(outcome_after({0, 30, 30}, 30), Outcome::kAnomalous);
}

TEST_F(JudgeSlowChange, TakesAHistoryThatKnowsWhatIsUsual) {
  EXPECT_EQ(outcome_after({-1, -1, -1, -1, 0, 0, 30, 30}, 30), Outcome::kAnomalous);
  EXPECT_EQ(outcome_after({-1, -1, -1, -1, -1, 0, 30, 30}, 30), Outcome::kNormal);
}

TEST_F(JudgeSlowChange, AFalsePositiveLikeTheRunIsNormal) {
  by_people_ = {observed(3, figures(30))};
  const Verdict verdict = judge_after({0, 0, 0, 0, 0, 0, 30, 30}, 30);
  EXPECT_EQ(verdict.outcome, Outcome::kNormal);
  EXPECT_TRUE(verdict.slow_change);
  EXPECT_TRUE(verdict.causes.empty());
}

TEST_F(JudgeSlowChange, IsNotAdopted) {
  held_ = {observed(7, figures(30)), observed(8, figures(30))};
  EXPECT_EQ(outcome_after({0, 0, 0, 0, 0, 0, 30, 30}, 30), Outcome::kAnomalous);
}

TEST_F(JudgeSlowChange, AnAcuteChangeIsNoSlowOne) {
  settings_.eps = 3;
  const Verdict verdict = judge_after({0, 0, 0, 0, 0, 0, 299, 299}, 900);
  EXPECT_EQ(verdict.outcome, Outcome::kAnomalous);
  EXPECT_FALSE(verdict.slow_change);
}

TEST_F(JudgeSlowChange, OfAnIncrementalIs4Point5PercentOfTheFiles) {
  incremental_ = true;
  full_backups_ = {observed(0, {992, 936, 100, 2, 0})};
  const Verdict verdict = judge_after({0, 0, 22, 22, 22, 0, 45, 45}, 45);
  EXPECT_EQ(verdict.outcome, Outcome::kAnomalous);
  ASSERT_TRUE(verdict.slow_change);
  EXPECT_TRUE(verdict.slow_change->of_files);
  EXPECT_DOUBLE_EQ(verdict.slow_change->share, 0.045);
  EXPECT_DOUBLE_EQ(verdict.slow_change->share_before, 0.022);
  EXPECT_EQ(outcome_after({0, 0, 0, 0, 0, 0, 45, 45}, 44), Outcome::kNormal);
  EXPECT_EQ(outcome_after({-1, -1, -1, -1, -1, 0, 45, 45}, 45), Outcome::kNormal);
  full_backups_.clear();
  EXPECT_EQ(outcome_after({0, 0, 0, 0, 0, 0, 45, 45}, 45), Outcome::kNormal);
}

}  // namespace
}  // namespace corvane::detect
