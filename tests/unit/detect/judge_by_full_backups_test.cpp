// Verdicts on a stream that is still learning by another stream of the source.
#include "companions/detect/judge.h"
#include "tests/unit/detect/judge_world.h"

namespace corvane::detect {
namespace {

class JudgeByFullBackups : public JudgeTest {
 protected:
  JudgeByFullBackups() {
    fill(full_backups_, 8, kUsual);
    fill(history_, 3, kUsual);
  }
  static constexpr Figures kDoubled{56, 936, 100, 2, 0};
  static constexpr Figures kMore{57, 936, 100, 2, 0};
};

TEST_F(JudgeByFullBackups, JudgesFilesAndSizeTogether) {
  EXPECT_EQ(outcome(kUsual), Outcome::kNormal);
  EXPECT_EQ(outcome(kDoubled), Outcome::kNormal);
  EXPECT_EQ(outcome(kMore), Outcome::kAnomalous);
  EXPECT_EQ(outcome({24, 1936, 100, 2, 0}), Outcome::kNormal);
  EXPECT_EQ(outcome({24, 1937, 100, 2, 0}), Outcome::kAnomalous);
  EXPECT_EQ(outcome({50, 1800, 100, 2, 0}), Outcome::kAnomalous);
  EXPECT_EQ(outcome({24, 936, 900, 1, 1e6}), Outcome::kNormal) << "nothing else counts";
}

TEST_F(JudgeByFullBackups, SaysSo) {
  const Verdict verdict = judge(kMore);
  EXPECT_TRUE(verdict.by_other_stream);
  EXPECT_EQ(verdict.observations, 3U);
  EXPECT_EQ(verdict.severity, Severity::kMajor);
  EXPECT_EQ(verdict.causes.front().kind, CauseKind::kRunawayGrowth);
  EXPECT_DOUBLE_EQ(verdict.figures[kFiles].usual, 24);
  EXPECT_DOUBLE_EQ(verdict.figures[kFiles].high, 56);
  EXPECT_TRUE(verdict.figures[kSize].has_usual);
  for (const Figure other : {kTransferred, kRatio, kDuration}) {
    EXPECT_TRUE(verdict.figures[other].known) << other;
    EXPECT_FALSE(verdict.figures[other].has_usual) << other;
  }
  EXPECT_TRUE(judge(kUsual).by_other_stream);
}

TEST_F(JudgeByFullBackups, TheOtherStreamMustHaveLearnt) {
  full_backups_.pop_back();
  const Verdict verdict = judge(kMore);
  EXPECT_EQ(verdict.outcome, Outcome::kLearning);
  EXPECT_FALSE(verdict.by_other_stream);
}

TEST_F(JudgeByFullBackups, TheStreamMustHaveThreeRecords) {
  history_.pop_back();
  EXPECT_EQ(outcome(kMore), Outcome::kLearning);
}

TEST_F(JudgeByFullBackups, TheLastThreeRecordsMustAgreeWithIt) {
  for (std::size_t other = 0; other < 4; ++other) {
    history_.clear();
    fill(history_, 4, kUsual);
    history_[other] = observed(static_cast<int>(other), kMore);
    EXPECT_EQ(outcome(kMore), other == 0 ? Outcome::kAnomalous : Outcome::kLearning) << other;
    history_[other] = observed(static_cast<int>(other), kDoubled);
    EXPECT_EQ(outcome(kMore), Outcome::kAnomalous) << other;
  }
}

TEST_F(JudgeByFullBackups, EachRecordIsComparedWithTheFullBackupBeforeIt) {
  full_backups_[6] = observed(6, {120, 936, 100, 2, 0});
  full_backups_[7] = observed(7, {120, 936, 100, 2, 0});
  EXPECT_EQ(judge(observed(7, {248, 936, 100, 2, 0})).outcome, Outcome::kNormal);
  EXPECT_EQ(judge(observed(5, {248, 936, 100, 2, 0})).outcome, Outcome::kAnomalous);
  history_[2] = observed(6, {120, 936, 100, 2, 0});
  EXPECT_EQ(judge(observed(7, {248, 936, 100, 2, 0})).outcome, Outcome::kNormal);
}

TEST_F(JudgeByFullBackups, AFigureCountsWhenHalfTheLeastHistoryKnowsIt) {
  // Octaves above the one before: the first of these that are known has none.
  full_backups_.clear();
  fill(full_backups_, 4, {});
  fill(full_backups_, 4, kUsual);
  EXPECT_EQ(outcome(kMore), Outcome::kNormal);
  full_backups_.clear();
  fill(full_backups_, 3, {});
  fill(full_backups_, 5, kUsual);
  EXPECT_EQ(judge(observed(9, kMore)).outcome, Outcome::kAnomalous);
}

TEST_F(JudgeByFullBackups, WithinEpsOfAFalsePositiveIsNormal) {
  by_people_ = {observed(2, {1016, 936, 100, 2, 0}), observed(2, {100'000, 936, 100, 2, 0})};
  EXPECT_EQ(outcome({2040, 936, 100, 2, 0}), Outcome::kNormal);
  EXPECT_EQ(outcome({2041, 936, 100, 2, 0}), Outcome::kAnomalous);
  EXPECT_EQ(outcome(kMore), Outcome::kAnomalous);
  EXPECT_EQ(outcome({504, 936, 100, 2, 0}), Outcome::kNormal);
}

TEST_F(JudgeByFullBackups, AdoptsAChangeWithTheThirdRunThatAgrees) {
  const Figures changed{1016, 936, 100, 2, 0};
  const Observation record = observed(9, changed);
  held_ = {observed(8, changed)};
  EXPECT_EQ(judge(record).outcome, Outcome::kAnomalous);
  held_.push_back(observed(8, changed));
  EXPECT_EQ(judge(record).outcome, Outcome::kAdopted);
  EXPECT_TRUE(judge(record).by_other_stream);
  held_[0] = observed(6, changed);
  EXPECT_EQ(judge(record).outcome, Outcome::kAnomalous);
}

}  // namespace
}  // namespace corvane::detect
