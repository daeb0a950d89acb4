#include "companions/detect/model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "anomaly_database/statuses.h"
#include "companions/detect/finding_of.h"
#include "finding/anomaly.h"
#include "tests/unit/detect/detect_world.h"

namespace corvane::detect {
namespace {

constexpr int kKnownDays = 40;

std::string no_reports(const std::string&) { return {}; }

class ModelTest : public testing::Test {
 protected:
  void learn_days(int first, int end, Backup (*make)(int)) {
    for (int day = first; day < end; ++day) model_.learn(make(day), -1);
  }
  void learn_usual(int days = kKnownDays) {
    learn_days(0, days, [](int day) { return daily(day); });
    learn_days(0, days, [](int day) { return incremental(day, 20 + day % 5); });
  }
  Outcome outcome(const Backup& backup) { return model_.judge(backup).outcome; }
  // What happens to the backup after its verdict.
  Outcome pass(const Backup& backup) {
    const Outcome result = outcome(backup);
    if (result == Outcome::kAnomalous) {
      model_.hold(backup, model_.incident_of(backup));
    } else {
      model_.learn(backup, -1);
    }
    return result;
  }
  std::string cause(const Backup& backup) {
    const Verdict verdict = model_.judge(backup);
    return verdict.causes.empty() ? name_of(verdict.outcome) : id_of(verdict.causes.front().kind);
  }

  Model model_{Settings{}, no_reports};
};

TEST_F(ModelTest, TheUsualIsNormal) {
  learn_usual();
  for (int day = kKnownDays; day < kKnownDays + 30; ++day) {
    EXPECT_EQ(pass(daily(day)), Outcome::kNormal) << day;
    EXPECT_EQ(pass(incremental(day)), Outcome::kNormal) << day;
  }
}

TEST_F(ModelTest, KnowsWhatHappenedToAWholeCopy) {
  learn_usual();
  EXPECT_EQ(cause(daily(kKnownDays, 1000, 1e6, 9.5e5)), "encryption");
  EXPECT_EQ(cause(daily(kKnownDays, 500, 5e5)), "mass_deletion");
  EXPECT_EQ(cause(daily(kKnownDays, 6, 1000, 500)), "source_empty");
  EXPECT_EQ(cause(daily(kKnownDays, 1300, 3e6, 2e6)), "runaway_growth");
  EXPECT_EQ(cause(daily(kKnownDays, 6, 1.1e6, 5e5)), "packed");
}

TEST_F(ModelTest, KnowsWhatHappenedFromAnIncrementalAlone) {
  learn_usual();
  EXPECT_EQ(cause(incremental(kKnownDays, 1000, 9e5)), "encryption");
  EXPECT_EQ(cause(incremental(kKnownDays, 600, 0)), "mass_deletion");
  EXPECT_EQ(cause(incremental(kKnownDays, 1000, 0)), "source_empty");
  EXPECT_EQ(cause(incremental(kKnownDays, 30, 2.5e6)), "runaway_growth");
}

TEST_F(ModelTest, OneSidedFeaturesFireOnTheBadSideOnly) {
  learn_usual();
  EXPECT_EQ(outcome(daily(kKnownDays, 1000, 1e6, 1)), Outcome::kNormal);
  EXPECT_EQ(outcome(incremental(kKnownDays, 0, 0)), Outcome::kNormal);
}

// The whole copy of the same night has seen the same source and found nothing.
TEST_F(ModelTest, ANormalWholeCopyVouchesForTheIncrementalOfItsNight) {
  learn_usual();
  EXPECT_EQ(outcome(incremental(kKnownDays, 700, 6e5)), Outcome::kAnomalous);
  ASSERT_EQ(pass(daily(kKnownDays)), Outcome::kNormal);
  EXPECT_EQ(outcome(incremental(kKnownDays, 700, 6e5)), Outcome::kNormal);
  ASSERT_EQ(pass(daily(kKnownDays + 1, 1000, 1e6, 9.5e5)), Outcome::kAnomalous);
  EXPECT_EQ(outcome(incremental(kKnownDays + 1, 700, 6e5)), Outcome::kAnomalous);
}

TEST_F(ModelTest, LearnsUntilThereIsEnoughHistory) {
  learn_days(0, 29, [](int day) { return daily(day); });
  const Verdict verdict = model_.judge(daily(29, 10, 10));
  EXPECT_EQ(verdict.outcome, Outcome::kLearning);
  EXPECT_EQ(verdict.observations, 29U);
  EXPECT_EQ(words_for(verdict, model_.settings()), "learning 29 of 30");
  model_.learn(daily(29), -1);
  EXPECT_EQ(outcome(daily(30, 10, 10)), Outcome::kAnomalous);
}

TEST_F(ModelTest, AnotherStreamOfTheSourceHelpsOneWithTooFewRecords) {
  learn_usual();
  for (const int day : {10, 17, 24}) {
    EXPECT_EQ(outcome(weekly(31, 300, 3e5)), Outcome::kLearning) << day;
    model_.learn(weekly(day), -1);
  }
  EXPECT_EQ(outcome(weekly(31)), Outcome::kNormal);
  const Verdict verdict = model_.judge(weekly(31, 300, 3e5));
  EXPECT_EQ(verdict.outcome, Outcome::kAnomalous);
  EXPECT_TRUE(verdict.by_other_stream);
  EXPECT_EQ(verdict.causes.front().kind, CauseKind::kMassDeletion);
}

// A stream that backs up something else is not measured by this one.
TEST_F(ModelTest, StreamsThatDisagreeDoNotHelp) {
  learn_usual();
  for (const int day : {10, 17, 24}) model_.learn(weekly(day, 50, 4e4), -1);
  EXPECT_EQ(outcome(weekly(31, 300, 3e5)), Outcome::kLearning);
}

TEST_F(ModelTest, SlowGrowthIsNoAlarm) {
  learn_usual();
  double files = 1000;
  for (int day = kKnownDays; day < kKnownDays + 60; ++day, files *= 1.05) {
    EXPECT_EQ(pass(daily(day, files, files * 1000, files * 20)), Outcome::kNormal) << day;
  }
}

TEST_F(ModelTest, ALastingChangeIsAdoptedWithItsThirdRun) {
  learn_usual();
  EXPECT_EQ(pass(daily(40, 2500, 2.5e6)), Outcome::kAnomalous);
  EXPECT_EQ(pass(daily(41, 2500, 2.5e6)), Outcome::kAnomalous);
  EXPECT_EQ(pass(daily(42, 2500, 2.5e6)), Outcome::kAdopted);
  EXPECT_EQ(pass(daily(43, 2500, 2.5e6)), Outcome::kNormal);
  EXPECT_EQ(pass(daily(44, 1000, 1e6)), Outcome::kAnomalous);
}

TEST_F(ModelTest, AnOngoingEncryptionIsNeverAdopted) {
  learn_usual();
  for (int day = kKnownDays; day < kKnownDays + 10; ++day) {
    EXPECT_EQ(pass(daily(day, 1000, 1e6, 9e5)), Outcome::kAnomalous) << day;
  }
}

TEST_F(ModelTest, SlowEncryptionIsFoundByItsThirdRun) {
  learn_usual();
  for (int day = kKnownDays; day < kKnownDays + 2; ++day) {
    EXPECT_EQ(pass(incremental(day, 80, 8e4)), Outcome::kNormal);
  }
  const Verdict verdict = model_.judge(incremental(kKnownDays + 2, 80, 8e4));
  EXPECT_EQ(verdict.outcome, Outcome::kAnomalous);
  ASSERT_TRUE(verdict.slow_change.has_value());
  EXPECT_EQ(verdict.slow_change->runs, 3U);
  EXPECT_TRUE(verdict.slow_change->of_files);
  // The least of 80, 76 and 83; 28 is the most that three nights in a row had before. Of the 1,004
  // files of the last whole copy, and few more.
  EXPECT_NEAR(verdict.slow_change->share, 76. / 1012, 1e-6);
  EXPECT_NEAR(verdict.slow_change->share_before, 28. / 1012, 1e-6);
  EXPECT_EQ(id_of(verdict.causes.front().kind), std::string("encryption"));
}

// The historical gather knows no transfer: the first runs that do are not more than ever before.
TEST_F(ModelTest, ASlowChangeTakesAHistoryThatKnowsWhatIsUsual) {
  for (int day = 0; day < kKnownDays; ++day) {
    Backup backup = daily(day);
    backup.figures.transferred_kb = backup.figures.ratio = -1;
    model_.learn(backup, -1);
  }
  for (int day = kKnownDays; day < kKnownDays + 20; ++day) {
    EXPECT_EQ(pass(daily(day, 1000, 1e6, 6e4)), Outcome::kNormal) << day;
  }
  for (int day = kKnownDays + 20; day < kKnownDays + 22; ++day) {
    EXPECT_EQ(pass(daily(day, 1000, 1e6, 1.5e5)), Outcome::kNormal) << day;
  }
  EXPECT_EQ(pass(daily(kKnownDays + 22, 1000, 1e6, 1.5e5)), Outcome::kAnomalous);
}

TEST_F(ModelTest, AFalsePositiveSilencesItsLikeAndNothingElse) {
  learn_usual();
  const Backup first = daily(40, 1000, 1e6, 9e5);
  ASSERT_EQ(pass(first), Outcome::kAnomalous);
  model_.learn(first, 1);
  EXPECT_EQ(outcome(daily(41, 1000, 1e6, 9.1e5)), Outcome::kNormal);
  EXPECT_EQ(outcome(daily(41, 300, 3e5)), Outcome::kAnomalous);
  model_.forget_false_positive(first);
  EXPECT_EQ(outcome(daily(41, 1000, 1e6, 9.1e5)), Outcome::kAnomalous);
}

TEST_F(ModelTest, ReportedBackupsInARowAreOneIncident) {
  learn_usual();
  const Backup first = daily(40, 1000, 1e6, 9e5);
  const Backup second = daily(41, 300, 3e5);
  ASSERT_EQ(pass(first), Outcome::kAnomalous);
  EXPECT_EQ(model_.incident_of(second), incident_name(first.unique_key));
  ASSERT_EQ(pass(second), Outcome::kAnomalous);
  ASSERT_EQ(pass(daily(42)), Outcome::kNormal);
  const Backup later = daily(43, 300, 3e5);
  EXPECT_EQ(model_.incident_of(later), incident_name(later.unique_key));
}

TEST_F(ModelTest, AnAcceptedBackupOfAStreamThatMatchesEndsTheIncidentToo) {
  learn_usual();
  ASSERT_EQ(pass(daily(40, 1000, 1e6, 9e5)), Outcome::kAnomalous);
  Backup vague = daily(41);
  vague.stream.app_type = "NONE";
  vague.stream.destination = "NA";
  model_.learn(vague, kNoCluster);
  const Backup later = daily(42, 300, 3e5);
  EXPECT_EQ(model_.incident_of(later), incident_name(later.unique_key));
}

// Whichever of its records people have called a false positive, also one of another run of the
// program: then the name that it was reported under is asked for.
TEST_F(ModelTest, AfterAFalsePositiveTheNextAnomalyBeginsAnIncidentOfItsOwn) {
  const Backup records[] = {daily(40, 1000, 1e6, 9e5), daily(41, 300, 3e5), daily(42, 5000, 5e6)};
  const Backup next = daily(43, 20, 2e4);
  const std::string incident = incident_name(records[0].unique_key);
  for (const Backup& false_positive : records) {
    for (const bool is_restarted : {false, true}) {
      Model model(Settings{}, [&](const std::string&) { return incident; });
      for (int day = 0; day < kKnownDays; ++day) model.learn(daily(day), kNoCluster);
      for (const Backup& record : records) {
        model.hold(record, is_restarted ? std::string() : incident);
      }
      EXPECT_EQ(model.incident_of(next), incident);
      model.learn(false_positive, 1);
      EXPECT_EQ(model.incident_of(next), incident_name(next.unique_key))
          << false_positive.unique_key << is_restarted;
      model.forget_false_positive(false_positive);
      model.hold(false_positive, {});
      EXPECT_EQ(model.incident_of(next), incident) << false_positive.unique_key << is_restarted;
    }
  }
}

TEST_F(ModelTest, ABackupThatIsJudgedLateIsTheEndOfNothingThatCameBefore) {
  learn_usual();
  EXPECT_EQ(model_.first_accepted_after(daily(0).stream, daily(20).time), daily(21).time);
  EXPECT_EQ(model_.first_accepted_after(daily(0).stream, daily(kKnownDays).time), 0);
  EXPECT_EQ(model_.last_accepted_at(daily(0).stream, daily(20).time), daily(20).time);
  EXPECT_EQ(model_.last_accepted_at(daily(0).stream, daily(0).time - 1), std::nullopt);
}

TEST_F(ModelTest, AHistoryOfNoiseIsInconclusive) {
  for (int day = 0; day < kKnownDays; ++day) {
    // Every fifth night another multiple of the usual, and back again.
    const double files = day % 5 == 4 ? 1000 * std::exp2(1 + day / 5) : 1000;
    model_.learn(daily(day, files), -1);
  }
  const Verdict verdict = model_.judge(daily(kKnownDays, 10));
  EXPECT_GT(verdict.noise_share, 1.0 / 3);
  EXPECT_EQ(verdict.outcome, Outcome::kInconclusive);
}

TEST_F(ModelTest, AfterALongPauseAStreamLearnsAnew) {
  learn_usual();
  Settings settings;
  settings.stream.days_to_ignore = 10;
  model_.set_settings(settings);
  EXPECT_EQ(outcome(daily(kKnownDays + 9, 10, 10)), Outcome::kAnomalous);
  const Verdict verdict = model_.judge(daily(kKnownDays + 11, 10, 10));
  EXPECT_EQ(verdict.outcome, Outcome::kLearning);
  EXPECT_EQ(verdict.observations, 0U);
}

// The service purges it, sooner or later.
TEST_F(ModelTest, HistoryOlderThanThePurgeIntervalDoesNotCount) {
  learn_usual();
  EXPECT_EQ(outcome(daily(360, 10, 10)), Outcome::kAnomalous);
  EXPECT_EQ(outcome(daily(380, 10, 10)), Outcome::kLearning);
}

TEST_F(ModelTest, WithoutAMonthOfHistoryNoneCounts) {
  learn_usual();
  Settings settings;
  for (const int months : {0, -1, -100}) {
    settings.stream.purge_months = months;
    model_.set_settings(settings);
    const Verdict verdict = model_.judge(daily(kKnownDays, 10, 10));
    EXPECT_EQ(verdict.outcome, Outcome::kLearning) << months;
    EXPECT_EQ(verdict.observations, 0U) << months;
  }
}

TEST_F(ModelTest, HistoryThatKnowsLessCountsForWhatItKnows) {
  for (int day = 0; day < kKnownDays; ++day) {
    Backup gathered = daily(day);
    gathered.stream.app_type = "NONE";
    gathered.stream.destination = "NA";
    gathered.figures.transferred_kb = gathered.figures.ratio = gathered.figures.seconds = -1;
    model_.learn(gathered, -1);
  }
  EXPECT_EQ(outcome(daily(kKnownDays)), Outcome::kNormal);
  EXPECT_EQ(outcome(daily(kKnownDays, 300, 3e5)), Outcome::kAnomalous);
  const Verdict verdict = model_.judge(daily(kKnownDays, 1000, 1e6, 9e5));
  EXPECT_EQ(verdict.outcome, Outcome::kNormal);
  EXPECT_FALSE(verdict.figures[kTransferred].has_usual);
  EXPECT_TRUE(verdict.figures[kFiles].has_usual);
}

TEST_F(ModelTest, SensitivityNarrowsAndWidensEps) {
  learn_usual();
  const Backup smaller = daily(kKnownDays, 760, 7.6e5);
  EXPECT_EQ(outcome(smaller), Outcome::kNormal);
  Settings settings;
  settings.sensitivity = 100;
  EXPECT_DOUBLE_EQ(settings.effective_eps(), 1.25);
  model_.set_settings(settings);
  EXPECT_EQ(outcome(smaller), Outcome::kAnomalous);
  settings.sensitivity = -100;
  EXPECT_DOUBLE_EQ(settings.effective_eps(), 5);
  model_.set_settings(settings);
  EXPECT_EQ(outcome(daily(kKnownDays, 600, 6e5)), Outcome::kNormal);
}

TEST_F(ModelTest, TheOrderOfReadingDoesNotMatter) {
  std::vector<Backup> history;
  for (int day = 0; day < kKnownDays; ++day) {
    for (int stream = 0; stream < 3; ++stream) {  // three of the same time
      Backup backup = daily(day, 1000 + 40 * stream, 1e6 + 1e4 * stream * (day % 3));
      backup.unique_key += std::to_string(stream);
      history.push_back(backup);
    }
  }
  std::vector<double> first;
  std::mt19937 random(1);
  for (int round = 0; round < 5; ++round) {
    Model model{Settings{}, no_reports};
    for (const Backup& backup : history) model.learn(backup, -1);
    const Verdict verdict = model.judge(daily(kKnownDays, 700, 7e5, 3e5));
    std::vector<double> seen{verdict.noise_share, static_cast<double>(verdict.outcome)};
    for (const FigureView& view : verdict.figures) seen.push_back(view.deviation);
    if (first.empty()) first = seen;
    EXPECT_EQ(seen, first);
    std::shuffle(history.begin(), history.end(), random);
  }
}

TEST_F(ModelTest, ARowGatheredAgainTakesItsOwnPlace) {
  learn_usual();
  learn_usual();
  EXPECT_EQ(model_.judge(daily(kKnownDays)).observations, static_cast<std::size_t>(kKnownDays));
  learn_usual();
  EXPECT_EQ(model_.judge(daily(kKnownDays)).observations, static_cast<std::size_t>(kKnownDays));
}

TEST_F(ModelTest, AbsurdFiguresAreJudgedLikeAnyOther) {
  learn_usual();
  Backup absurd = daily(kKnownDays);
  absurd.figures = {1e300, -1e300, 1e18, 0, -5};
  EXPECT_EQ(outcome(absurd), Outcome::kAnomalous);
  absurd.figures = {};
  EXPECT_EQ(outcome(absurd), Outcome::kNormal);  // nothing is known of it
  for (int day = 0; day < 3 * kKnownDays; ++day) {
    Backup vast = daily(day);
    vast.unique_key += "vast";
    vast.figures = {1e300, 1e300, INFINITY, 1e-300, 1e300};
    model_.learn(vast, -1);
  }
  EXPECT_NO_THROW(outcome(daily(3 * kKnownDays)));
  absurd.time = -1;
  EXPECT_NO_THROW(outcome(absurd));
}

}  // namespace
}  // namespace corvane::detect
