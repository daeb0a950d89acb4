#include "companions/detect/judge.h"

#include <cmath>
#include <limits>
#include <string>
#include <tuple>

#include "tests/unit/detect/judge_world.h"

namespace corvane::detect {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(EffectiveEps, HalvesOrDoublesWithTheSensitivity) {
  for (const auto& [sensitivity, eps] :
       {std::pair(0, 3.0), {100, 1.5}, {101, 1.5}, {-100, 6.0}, {-101, 6.0}}) {
    Settings settings;
    settings.eps = 3;
    settings.sensitivity = sensitivity;
    EXPECT_DOUBLE_EQ(settings.effective_eps(), eps) << sensitivity;
  }
  EXPECT_EQ(Settings{}.effective_eps(), 2.5);
  EXPECT_EQ(Settings{}.min_samples, 3U);
}

using JudgeFullBackup = JudgeTest;

TEST_F(JudgeFullBackup, TellsWhatTheVerdictRestsOn) {
  fill(history_, 9, kUsual);
  settings_.sensitivity = 100;
  const Verdict verdict = judge(kUsual);
  EXPECT_EQ(verdict.outcome, Outcome::kNormal);
  EXPECT_EQ(verdict.observations, 9U);
  EXPECT_EQ(verdict.eps, 2.5);
  EXPECT_EQ(verdict.noise_share, 0);
  EXPECT_FALSE(verdict.by_other_stream);
  EXPECT_FALSE(verdict.slow_change);
  EXPECT_TRUE(verdict.causes.empty());
  EXPECT_EQ(verdict.severity, Severity::kNone);
}

TEST_F(JudgeFullBackup, LearnsUpToTheLeastHistory) {
  fill(history_, 7, kUsual);
  EXPECT_EQ(outcome({2, 2, 100, 2, 0}), Outcome::kLearning);
  fill(history_, 1, kUsual);
  EXPECT_EQ(outcome({2, 2, 100, 2, 0}), Outcome::kAnomalous);
}

// A point at a distance of exactly eps is a neighbour.
TEST_F(JudgeFullBackup, IsNoiseBeyondEps) {
  fill(history_, 8, kUsual);
  EXPECT_EQ(outcome({56, 936, 100, 2, 0}), Outcome::kNormal);  // 2 * 32 - 8
  EXPECT_EQ(outcome({57, 936, 100, 2, 0}), Outcome::kAnomalous);
  EXPECT_EQ(outcome({8, 936, 100, 2, 0}), Outcome::kNormal);
  EXPECT_EQ(outcome({7, 936, 100, 2, 0}), Outcome::kAnomalous);
  EXPECT_EQ(outcome({24, 1936, 100, 2, 0}), Outcome::kNormal);
  EXPECT_EQ(outcome({24, 1937, 100, 2, 0}), Outcome::kAnomalous);
  EXPECT_EQ(outcome({24, 436, 50, 2, 0}), Outcome::kNormal);
  EXPECT_EQ(outcome({24, 435, 50, 2, 0}), Outcome::kAnomalous);
}

// The duration makes each of these noise: what remains is whether it matters.
TEST_F(JudgeFullBackup, TakesAFigureThatMattersByItself) {
  fill(history_, 8, kUsual);
  EXPECT_EQ(outcome({24, 936, 100, 2, 1e6}), Outcome::kNormal);
  EXPECT_EQ(outcome({56, 936, 100, 2, kOneSecond}), Outcome::kAnomalous);
  EXPECT_EQ(outcome({55, 936, 100, 2, 1e6}), Outcome::kNormal);
  EXPECT_EQ(outcome({8, 936, 100, 2, kOneSecond}), Outcome::kAnomalous);
  EXPECT_EQ(outcome({9, 936, 100, 2, 1e6}), Outcome::kNormal);
  EXPECT_EQ(outcome({24, 1936, 200, 2, kOneSecond}), Outcome::kAnomalous);
  EXPECT_EQ(outcome({24, 1935, 200, 2, 1e6}), Outcome::kNormal);
  EXPECT_EQ(outcome({24, 436, 50, 2, kOneSecond}), Outcome::kAnomalous);
  EXPECT_EQ(outcome({24, 437, 50, 2, 1e6}), Outcome::kNormal);
}

TEST_F(JudgeFullBackup, NewContentMattersWhenItIsMuchAndUnusual) {
  fill(history_, 8, {24, 936, 0, 2, 0});
  EXPECT_EQ(outcome({24, 936, 500, 2, kOneSecond}), Outcome::kAnomalous);
  EXPECT_EQ(outcome({24, 936, 499, 2, 1e6}), Outcome::kNormal);
  settings_.eps = 2;  // 20% are unusual, but 30% are much
  EXPECT_EQ(outcome({24, 936, 299, 2, 0}), Outcome::kNormal);
  EXPECT_EQ(outcome({24, 936, 300, 2, 0}), Outcome::kAnomalous);
}

TEST_F(JudgeFullBackup, ABadRatioMattersWithMuchOrUnknownTransfer) {
  fill(history_, 8, kUsual);
  EXPECT_EQ(outcome({24, 936, 300, 1, kOneSecond}), Outcome::kAnomalous);
  EXPECT_EQ(outcome({24, 936, 299, 1, kOneSecond}), Outcome::kNormal);
  EXPECT_EQ(outcome({24, 936, -1, 1, kOneSecond}), Outcome::kAnomalous);
  EXPECT_EQ(outcome({24, 936, -1, 1.01, 1e6}), Outcome::kNormal);
}

TEST_F(JudgeFullBackup, IsComparedWithTheOneBefore) {
  fill(history_, 8, kUsual);
  fill(history_, 1, {504, 936, 100, 2, 0});
  EXPECT_EQ(outcome({1000, 936, 100, 2, 0}), Outcome::kNormal);
  const Verdict late = judge(observed(7, {1000, 936, 100, 2, 0}));
  EXPECT_EQ(late.outcome, Outcome::kAnomalous);
  EXPECT_DOUBLE_EQ(late.figures[kFiles].usual, 24);
}

TEST_F(JudgeFullBackup, AHistoryThatKnowsNothingFindsNothing) {
  fill(history_, 8, {});
  const Verdict verdict = judge({2, 2, 900, 1, 1e6});
  EXPECT_EQ(verdict.outcome, Outcome::kNormal);
  EXPECT_FALSE(verdict.figures[kFiles].known) << "not looked at";
}

TEST_F(JudgeFullBackup, AFigureCountsWhenHalfTheLeastHistoryKnowsIt) {
  fill(history_, 5, {});
  fill(history_, 3, {-1, 936, 100});
  EXPECT_EQ(outcome({-1, 936, 900}), Outcome::kNormal);
  history_.clear();
  fill(history_, 4, {});
  fill(history_, 4, {-1, 936, 100});
  EXPECT_EQ(outcome({-1, 936, 900}), Outcome::kAnomalous);
}

TEST_F(JudgeFullBackup, IsInconclusiveWhenMoreThanAThirdOfTheHistoryIsNoise) {
  for (const auto& [noisy, all, expected] :
       {std::tuple(3, 9, Outcome::kAnomalous), {4, 11, Outcome::kInconclusive}}) {
    history_.clear();
    for (int i = 0; i < noisy; ++i) fill(history_, 1, {24, 936, 1000. * (i + 1), -1, -1});
    fill(history_, all - noisy, {24, 936, 0, -1, -1});
    const Verdict verdict = judge({24, 100'000, 0, -1, -1});
    EXPECT_EQ(verdict.outcome, expected);
    EXPECT_DOUBLE_EQ(verdict.noise_share, static_cast<double>(noisy) / all);
    EXPECT_EQ(verdict.causes.empty(), expected != Outcome::kAnomalous);
    EXPECT_EQ(outcome({24, 936, 0, -1, -1}), Outcome::kNormal);
  }
}

TEST_F(JudgeFullBackup, WithinEpsOfAFalsePositiveIsNormal) {
  fill(history_, 8, {24, 936, 0, 2, 0});
  const Figures encrypted{24, 936, 900, 2, 0};
  by_people_.push_back(observed(7, {24, 936, 200, 2, 0}));
  EXPECT_EQ(outcome(encrypted), Outcome::kAnomalous);
  by_people_.push_back(observed(7, {24, 936, 400, 2, 0}));
  EXPECT_EQ(outcome(encrypted), Outcome::kNormal);
  EXPECT_EQ(outcome({24, 936, 901, 2, 0}), Outcome::kAnomalous);
  // Each is compared with the accepted one before it: 24 files become 1,016 both times.
  by_people_ = {observed(0, {1016, 936, 0, 2, 0})};
  EXPECT_EQ(outcome({1016, 936, 0, 2, 0}), Outcome::kNormal);
}

TEST_F(JudgeFullBackup, AdoptsAChangeWithTheThirdRunThatAgrees) {
  fill(history_, 8, kUsual);
  const Figures changed{1016, 936, 100, 2, 0};   // 5 octaves up: 25 spreads
  held_ = {observed(7, {504, 936, 100, 2, 0})};  // 4 octaves, eps away
  EXPECT_EQ(outcome(changed), Outcome::kAnomalous);
  held_.push_back(observed(8, changed));
  EXPECT_EQ(outcome(changed), Outcome::kAdopted) << "the last accepted one's second counts";
  EXPECT_TRUE(judge(changed).causes.empty());
  held_[0] = observed(6, changed);
  EXPECT_EQ(outcome(changed), Outcome::kAnomalous) << "held before an accepted one";
  held_[0] = observed(8, {503, 936, 100, 2, 0});
  EXPECT_EQ(outcome(changed), Outcome::kAnomalous) << "more than eps away";
  held_[0] = observed(8, {1016, 1936, 100, 2, 0});
  EXPECT_EQ(outcome(changed), Outcome::kAdopted);
  held_[0] = observed(8, {1016, 1937, 100, 2, 0});
  EXPECT_EQ(outcome(changed), Outcome::kAnomalous);
  held_[0] = observed(8, {2040, 1936, 100, 2, 0});
  EXPECT_EQ(outcome(changed), Outcome::kAnomalous) << "both together are too much";
}

TEST_F(JudgeFullBackup, NeverAdoptsMuchNewContent) {
  fill(history_, 8, kUsual);
  for (const auto& [transferred, expected] :
       {std::pair(299.0, Outcome::kAdopted), {300.0, Outcome::kAnomalous}}) {
    const Figures changed{1016, 936, transferred, 2, 0};
    held_ = {observed(8, changed), observed(8, changed)};
    EXPECT_EQ(outcome(changed), expected);
  }
}

TEST_F(JudgeFullBackup, ShowsEachFigureBesideTheUsual) {
  fill(history_, 9, kUsual);
  const Verdict verdict = judge({56, 436, 250, 4, 3});
  struct Expected {
    double value, low, usual, high, deviation;
  };
  const Expected expected[]{{56, 8, 24, 56, 5},
                            {436, 436, 936, 1936, -5},
                            {250, 0, 50, 300, 4},
                            {4, 1, 2, kInfinity, 0},
                            {3, 0, 0, 1023, 1}};
  for (std::size_t i = 0; i < kFigures; ++i) {
    const FigureView& view = verdict.figures[i];
    EXPECT_TRUE(view.known) << i;
    EXPECT_TRUE(view.has_usual) << i;
    EXPECT_NEAR(view.value, expected[i].value, 0.003) << i;
    EXPECT_DOUBLE_EQ(view.low, expected[i].low) << i;
    EXPECT_DOUBLE_EQ(view.usual, expected[i].usual) << i;
    EXPECT_DOUBLE_EQ(view.high, expected[i].high) << i;
    EXPECT_NEAR(view.deviation, expected[i].deviation, 0.001) << i;
  }
}

TEST_F(JudgeFullBackup, ShowsNoUsualOfWhatIsUnknown) {
  fill(history_, 8, {24, 936, 100, -1, 0});
  const Verdict verdict = judge({0, -1, 0, 4, 0});
  EXPECT_TRUE(verdict.figures[kFiles].known);
  EXPECT_TRUE(verdict.figures[kFiles].has_usual);
  EXPECT_FALSE(verdict.figures[kSize].known);
  EXPECT_FALSE(verdict.figures[kSize].has_usual);
  EXPECT_EQ(verdict.figures[kSize].usual, 0);
  EXPECT_TRUE(verdict.figures[kTransferred].known);
  EXPECT_FALSE(verdict.figures[kTransferred].has_usual) << "a share of an unknown size";
  EXPECT_TRUE(verdict.figures[kRatio].known);
  EXPECT_FALSE(verdict.figures[kRatio].has_usual);
}

TEST_F(JudgeFullBackup, ComparesItWithTheLastForTheCause) {
  fill(history_, 8, {99, 999, 49, 2, 0});
  const Change change = judge({49, 1999, 499, 2, 0}).change;
  EXPECT_DOUBLE_EQ(change.files, 0.5);
  EXPECT_DOUBLE_EQ(change.size, 2);
  EXPECT_DOUBLE_EQ(change.stored, 0.25);
  EXPECT_EQ(change.touched_files, -1);
  EXPECT_EQ(change.touched_size, -1);
  EXPECT_FALSE(change.sustained);
  const Change nothing = judge({0, 0, 0, 2, 0}).change;
  EXPECT_DOUBLE_EQ(nothing.files, 0.01);
  EXPECT_DOUBLE_EQ(nothing.size, 0.001);
  EXPECT_DOUBLE_EQ(nothing.stored, 1);
  const Change unknown = judge({-1, -1, 49, 2, 0}).change;
  EXPECT_EQ(unknown.files, -1);
  EXPECT_EQ(unknown.size, -1);
  EXPECT_EQ(unknown.stored, -1);
  history_.clear();
  fill(history_, 8, {-1, 0, 0, 2, 0});
  EXPECT_EQ(judge({10, 9, 4, 2, 0}).change.files, -1);
  EXPECT_DOUBLE_EQ(judge({10, 9, 4, 2, 0}).change.size, 10);
}

// By the stream itself once it has learnt, before that by the other one.
TEST_F(JudgeFullBackup, TheCauseIsByTheStreamThatJudges) {
  fill(full_backups_, 8, {9, 936, 100, 2, 0});
  fill(history_, 7, {19, 936, 100, 2, 0});
  EXPECT_DOUBLE_EQ(judge({39, 936, 100, 2, 0}).change.files, 4);
  fill(history_, 1, {19, 936, 100, 2, 0});
  EXPECT_DOUBLE_EQ(judge({39, 936, 100, 2, 0}).change.files, 2);
  EXPECT_EQ(judge({39, 936, 100, 2, 0}).change.touched_files, -1);
}

TEST_F(JudgeFullBackup, ItsSeverityIsByTheCause) {
  settings_.eps = 1;
  struct Case {
    Figures figures;
    CauseKind cause;
    Severity severity;
  };
  fill(history_, 8, {99, 999, 49, -1, 0});
  for (const auto& [figures, cause, severity] : {
           Case{{99, 999, 900, -1, 0}, CauseKind::kEncryption, Severity::kCritical},
           Case{{0, 0, 0, -1, 0}, CauseKind::kSourceEmpty, Severity::kCritical},
           Case{{0, 999, 99, -1, 0}, CauseKind::kPacked, Severity::kCritical},
           Case{{49, 500, 20, -1, 0}, CauseKind::kMassDeletion, Severity::kMajor},
           Case{{48, 500, 20, -1, 0}, CauseKind::kMassDeletion, Severity::kCritical},
           Case{{99, 1999, 99, -1, 0}, CauseKind::kRunawayGrowth, Severity::kMajor},
           Case{{120, 999, 49, -1, 0}, CauseKind::kUnclear, Severity::kWarning},
       }) {
    const Verdict verdict = judge(figures);
    EXPECT_EQ(verdict.outcome, Outcome::kAnomalous);
    ASSERT_FALSE(verdict.causes.empty());
    EXPECT_EQ(verdict.causes.front().kind, cause);
    EXPECT_EQ(verdict.severity, severity) << id_of(cause);
  }
}

class JudgeIncremental : public JudgeTest {
 protected:
  JudgeIncremental() { incremental_ = true; }
  // Of 992 + 8 files and 936 + 64 KB.
  void know_the_source() { full_backups_ = {observed(0, {992, 936, 100, 2, 0})}; }
};

TEST_F(JudgeIncremental, AloneIsComparedInOctaves) {
  fill(history_, 8, {1023, 1023, 100, 2, 0});
  EXPECT_EQ(outcome({2047, 1023, 100, 2, 0}), Outcome::kNormal);
  EXPECT_EQ(outcome({2047, 1023, 100, 2, kOneSecond}), Outcome::kAnomalous);
  EXPECT_EQ(outcome({2046, 1023, 100, 2, 1e6}), Outcome::kNormal);
  EXPECT_EQ(outcome({1023, 2047, 100, 2, kOneSecond}), Outcome::kAnomalous);
  EXPECT_EQ(outcome({1023, 2046, 100, 2, 1e6}), Outcome::kNormal);
  EXPECT_EQ(outcome({0, 0, 0, 2, 0}), Outcome::kNormal);
}

TEST_F(JudgeIncremental, MattersFrom30PercentOfTheFilesOrHalfTheSize) {
  know_the_source();
  settings_.eps = 1;
  fill(history_, 8, {0, 0, 0, 2, 0});
  EXPECT_EQ(outcome({299, 499, 0, 2, 1e6}), Outcome::kNormal);
  EXPECT_EQ(outcome({300, 0, 0, 2, 0}), Outcome::kAnomalous);
  EXPECT_EQ(outcome({0, 500, 0, 2, 0}), Outcome::kAnomalous);
}

TEST_F(JudgeIncremental, IsNormalWhenTheFullBackupOfItsNightIs) {
  know_the_source();
  fill(history_, 8, {0, 0, 0, 2, 0});
  EXPECT_EQ(outcome({900, 0, 0, 2, 0}), Outcome::kAnomalous);
  same_night_is_normal_ = true;
  EXPECT_EQ(outcome({900, 0, 0, 2, 0}), Outcome::kNormal);
}

TEST_F(JudgeIncremental, WithoutHistoryLearnsWhateverTheFullBackupsAre) {
  fill(full_backups_, 9, kUsual);
  fill(history_, 7, {0, 0, 0, 2, 0});
  EXPECT_EQ(outcome({900, 0, 0, 2, 0}), Outcome::kLearning);
}

TEST_F(JudgeIncremental, IsNeverAdopted) {
  know_the_source();
  fill(history_, 8, {0, 0, 0, 2, 0});
  const Figures changed{900, 0, 0, 2, 0};
  held_ = {observed(8, changed), observed(8, changed)};
  EXPECT_EQ(outcome(changed), Outcome::kAnomalous);
}

TEST_F(JudgeIncremental, WithinEpsOfAFalsePositiveIsNormal) {
  full_backups_ = {observed(0, {1992, 936, 100, 2, 0}), observed(20, {992, 936, 100, 2, 0})};
  fill(history_, 8, {0, 0, 0, 2, 0});
  by_people_ = {observed(6, {1000, 0, 0, 2, 0})};  // half of the files that were there then
  EXPECT_EQ(judge(observed(21, {1001, 0, 0, 2, 0})).outcome, Outcome::kAnomalous);
  EXPECT_EQ(judge(observed(21, {1000, 0, 0, 2, 0})).outcome, Outcome::kNormal);
}

TEST_F(JudgeIncremental, TheCauseIsByTheFullBackupOfTheNightAndItsOwnShares) {
  full_backups_ = {observed(0, {99, 999, 100, 2, 0}), observed(7, {199, 1999, 100, 2, 0}),
                   observed(9, {1, 1, 1, 1, 1})};
  fill(history_, 8, {0, 0, 0, 2, 0});
  Change change = judge({50, 500, 0, 2, 0}).change;
  EXPECT_DOUBLE_EQ(change.touched_files, 0.25);
  EXPECT_DOUBLE_EQ(change.touched_size, 0.25);
  EXPECT_EQ(change.files, -1);
  EXPECT_EQ(change.size, -1);
  EXPECT_EQ(change.stored, -1);
  same_night_ = observed(6, {49, 749, 300, 2, 0});
  change = judge({0, 0, 0, 2, 0}).change;
  EXPECT_DOUBLE_EQ(change.touched_files, 0);
  EXPECT_DOUBLE_EQ(change.touched_size, 0);
  EXPECT_DOUBLE_EQ(change.files, 0.5);
  EXPECT_DOUBLE_EQ(change.size, 0.75);
  EXPECT_EQ(change.stored, -1);
  change = judge({-1, -1, 0, 2, 0}).change;
  EXPECT_EQ(change.touched_files, -1);
  EXPECT_EQ(change.touched_size, -1);
  full_backups_ = {observed(0, {-1, 0, 100, 2, 0})};
  EXPECT_EQ(judge({50, 500, 0, 2, 0}).change.touched_files, -1);
  EXPECT_DOUBLE_EQ(judge({50, 500, 0, 2, 0}).change.touched_size, 500);
  full_backups_ = {observed(0, {0, -1, 100, 2, 0})};
  EXPECT_DOUBLE_EQ(judge({50, 500, 0, 2, 0}).change.touched_files, 50);
  EXPECT_EQ(judge({50, 500, 0, 2, 0}).change.touched_size, -1);
  full_backups_.clear();
  EXPECT_EQ(judge({50, 500, 0, 2, 0}).change.files, -1) << "nothing to compare that night's with";
}

TEST_F(JudgeIncremental, TheSeverityOfADeletionIsByWhatIsGone) {
  full_backups_ = {observed(0, {99, 999, 100, 2, 0})};
  settings_.eps = 1;
  fill(history_, 8, {0, 0, 0, 2, 0});
  const auto severity = [&](double files) {
    const Verdict verdict = judge({files, 0, 0, 2, 0});
    EXPECT_EQ(verdict.causes.front().kind, CauseKind::kMassDeletion);
    return verdict.severity;
  };
  EXPECT_EQ(severity(50), Severity::kMajor);
  EXPECT_EQ(severity(51), Severity::kCritical);
  same_night_ = observed(7, {49, 700, 100, 2, 0});
  EXPECT_EQ(severity(90), Severity::kMajor) << "the full backup knows better";
}

}  // namespace
}  // namespace corvane::detect
