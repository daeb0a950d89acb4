// What the model keeps of each stream, and which streams of a source have a say.
#include <gtest/gtest.h>

#include <cmath>
#include <map>

#include "anomaly_database/statuses.h"
#include "companions/detect/model.h"
#include "finding/anomaly.h"
#include "tests/unit/detect/detect_world.h"

namespace corvane::detect {
namespace {

constexpr int kEnough = 8;

class ModelStreams : public testing::Test {
 protected:
  static Settings settings(std::size_t max_observations = 3000) {
    Settings made;
    made.stream.min_observations = kEnough;
    made.stream.max_observations = max_observations;
    return made;
  }
  void learn(const Backup& backup) { model_.learn(backup, kNoCluster); }
  void learn_days(int first, int end, Backup (*make)(int)) {
    for (int day = first; day < end; ++day) learn(make(day));
  }
  static Backup full(int day) { return daily(day); }
  static Backup part(int day) { return incremental(day); }
  // Of unknown application type and destination.
  static Backup vague(Backup backup) {
    backup.stream.app_type = "NONE";
    backup.stream.destination = "NA";
    backup.unique_key += "_vague";
    return backup;
  }
  Stream& stream(const Backup& backup = daily(0)) { return model_.stream_of(backup.stream); }
  std::vector<int> days(const Backup& backup = daily(0)) {
    std::vector<int> found;
    for (const Observation& one : stream(backup).history) {
      found.push_back((one.time() - backup.time) / kDay);
    }
    return found;
  }
  std::vector<std::string> held() {
    std::vector<std::string> keys;
    for (const Held& one : stream().held) keys.push_back(one.unique_key);
    return keys;
  }

  std::map<std::string, std::string> reported_;
  std::vector<std::string> asked_;
  Model model_{settings(), [this](const std::string& key) {
                 asked_.push_back(key);
                 return reported_[key];
               }};
};

TEST_F(ModelStreams, KeepTheirHistoryByTime) {
  learn(daily(3));
  learn(daily(1, 500));
  learn(daily(2));
  learn(daily(1, 700));
  EXPECT_EQ(days(), (std::vector<int>{3, 1, 2, 1})) << "until it is settled";
  model_.settle();
  EXPECT_EQ(days(), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(stream().history[0].figures().files, daily(1, 700).figures.files);
  learn(daily(0));
  learn(daily(5));
  learn(daily(4));
  learn(daily(2, 900));
  EXPECT_EQ(days(), (std::vector<int>{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(stream().history[2].figures().files, daily(2, 900).figures.files);
  model_.settle();
  EXPECT_EQ(days(), (std::vector<int>{0, 1, 2, 3, 4, 5}));
}

TEST_F(ModelStreams, TwoBackupsOfOneSecondAreTwo) {
  Backup other = daily(1);
  other.unique_key += "other";
  for (const bool settled : {false, true}) {
    if (settled) model_.settle();
    learn(daily(1));
    learn(other);
  }
  EXPECT_EQ(days(), (std::vector<int>{1, 1}));
}

TEST_F(ModelStreams, KeepTheNewest) {
  model_.set_settings(settings(3));
  learn_days(0, 5, full);
  learn_days(0, 3, part);
  model_.settle();
  EXPECT_EQ(days(), (std::vector<int>{2, 3, 4}));
  EXPECT_EQ(days(incremental(0)), (std::vector<int>{0, 1, 2}));
  learn(daily(5));
  EXPECT_EQ(days(), (std::vector<int>{3, 4, 5}));
}

TEST_F(ModelStreams, KnowTheLatestAcceptedBackup) {
  EXPECT_EQ(model_.last_good_of(daily(0).stream).backup_id, "");
  learn(daily(2));
  learn(daily(1));
  EXPECT_EQ(model_.last_good_of(daily(0).stream).backup_id, daily(2).backup_id);
  EXPECT_EQ(model_.last_good_of(daily(0).stream).time, daily(2).time);
  Backup again = daily(2);
  again.backup_id = "again";
  learn(again);
  EXPECT_EQ(model_.last_good_of(daily(0).stream).backup_id, "again");
  model_.learn(daily(3), 1);
  EXPECT_EQ(model_.last_good_of(daily(0).stream).backup_id, "again") << "a false positive is none";
  learn(vague(daily(4)));
  EXPECT_EQ(model_.last_good_of(daily(0).stream).time, daily(4).time);
  learn(incremental(9));
  learn(weekly(9));
  EXPECT_EQ(model_.last_good_of(daily(0).stream).time, daily(4).time);
  learn(daily(5));
  EXPECT_EQ(model_.last_good_of(daily(0).stream).time, daily(5).time);
}

TEST_F(ModelStreams, FindWhatWasAcceptedBeforeAndAfter) {
  const StreamKey& key = daily(0).stream;
  EXPECT_EQ(model_.last_accepted_at(key, daily(9).time), std::nullopt);
  EXPECT_EQ(model_.first_accepted_after(key, 0), 0);
  for (const int day : {2, 6}) learn(daily(day));
  for (const int day : {4, 8}) learn(vague(daily(day)));
  learn(incremental(5));
  model_.settle();
  const auto last = [&](int day, int second) {
    const auto time = model_.last_accepted_at(key, daily(day).time + second);
    return time ? (*time - kFirstDay) / kDay : -1;
  };
  const auto next = [&](int day, int second) {
    const auto time = model_.first_accepted_after(key, daily(day).time + second);
    return time == 0 ? -1 : (time - kFirstDay) / kDay;
  };
  EXPECT_EQ(last(2, -1), -1);
  EXPECT_EQ(last(2, 0), 2);
  EXPECT_EQ(last(4, -1), 2);
  EXPECT_EQ(last(4, 0), 4);
  EXPECT_EQ(last(6, 0), 6);
  EXPECT_EQ(last(9, 0), 8);
  EXPECT_EQ(next(0, 0), 2);
  EXPECT_EQ(next(2, 0), 4);
  EXPECT_EQ(next(4, 0), 6);
  EXPECT_EQ(next(6, -1), 6);
  EXPECT_EQ(next(6, 0), 8);
  EXPECT_EQ(next(8, 0), -1);
}

TEST_F(ModelStreams, GiveEachFalsePositiveAClusterOfItsOwn) {
  EXPECT_EQ(model_.next_cluster(daily(0).stream), 1);
  model_.hold(daily(1), "one");
  model_.hold(daily(2), "one");
  model_.learn(daily(1), 3);
  EXPECT_EQ(model_.next_cluster(daily(0).stream), 4);
  model_.learn(daily(3), 2);
  EXPECT_EQ(model_.next_cluster(daily(0).stream), 4);
  EXPECT_EQ(model_.next_cluster(weekly(0).stream), 1);
  model_.learn(daily(1), 3);
  EXPECT_EQ(stream().by_people.size(), 2U);
  EXPECT_EQ(stream().false_positives.size(), 2U);
  EXPECT_TRUE(stream().history.empty());
  EXPECT_EQ(held(), std::vector{daily(2).unique_key});
  model_.forget_false_positive(daily(1));
  ASSERT_EQ(stream().by_people.size(), 1U);
  EXPECT_EQ(stream().by_people[0].time(), daily(3).time);
  ASSERT_EQ(stream().false_positives.size(), 1U);
  EXPECT_EQ(stream().false_positives[0].unique_key, daily(3).unique_key);
}

TEST_F(ModelStreams, RememberTheEightLatestAnomalies) {
  for (const int day : {8, 1, 2, 3, 4, 5, 6, 7}) model_.hold(daily(day), "one");
  model_.hold(daily(3), "other");
  EXPECT_EQ(held().size(), 8U);
  EXPECT_EQ(held().front(), daily(1).unique_key);
  EXPECT_EQ(held().back(), daily(8).unique_key);
  EXPECT_EQ(stream().held[2].incident, "other");
  model_.hold(daily(9), "one");
  EXPECT_EQ(held().size(), 8U);
  EXPECT_EQ(held().front(), daily(2).unique_key);
  EXPECT_EQ(held().back(), daily(9).unique_key);
}

TEST_F(ModelStreams, AreForgottenAllTogether) {
  learn_days(0, 3, full);
  model_.settle();
  EXPECT_EQ(model_.streams(), 1U);
  model_.clear();
  EXPECT_EQ(model_.streams(), 0U);
  learn(daily(2));
  learn(daily(1));
  EXPECT_EQ(model_.streams(), 1U);
  EXPECT_EQ(model_.all().size(), 1U);
  EXPECT_EQ(days(), (std::vector<int>{2, 1})) << "not settled any more";
  EXPECT_EQ(model_.judge(daily(3)).observations, 2U);
  EXPECT_EQ(days(), (std::vector<int>{1, 2}));
}

TEST_F(ModelStreams, ThatMatchAreOneHistory) {
  for (int day = 0; day < kEnough; ++day) {
    learn(day % 2 == 0 ? daily(day, 1000) : vague(daily(day, 1300)));
  }
  const Verdict verdict = model_.judge(daily(kEnough, 1300));
  EXPECT_EQ(verdict.observations, static_cast<std::size_t>(kEnough));
  EXPECT_NEAR(verdict.figures[kFiles].usual, vague(daily(kEnough - 1, 1300)).figures.files, 400);
  EXPECT_DOUBLE_EQ(verdict.change.files, (daily(kEnough, 1300).figures.files + 1) /
                                             (daily(kEnough - 1, 1300).figures.files + 1));
  learn(daily(kEnough, 1000));
  EXPECT_DOUBLE_EQ(
      model_.judge(daily(kEnough + 1, 1300)).change.files,
      (daily(kEnough + 1, 1300).figures.files + 1) / (daily(kEnough, 1000).figures.files + 1))
      << "by time, whichever stream comes first";
  const Backup first = daily(kEnough + 1, 1000, 1e6, 9e5);
  EXPECT_EQ(model_.judge(first).outcome, Outcome::kAnomalous);
  model_.learn(vague(first), 1);
  EXPECT_EQ(model_.judge(first).outcome, Outcome::kNormal);
}

TEST_F(ModelStreams, OfFullBackupsAdoptAChangeTogether) {
  learn_days(0, kEnough, full);
  const Backup changed = daily(kEnough + 3, 2500, 2.5e6);
  model_.hold(weekly(kEnough, 2500, 2.5e6), "one");
  EXPECT_EQ(model_.judge(changed).outcome, Outcome::kAnomalous);
  model_.hold(incremental(kEnough + 1, 2500, 2.5e6), "other");
  EXPECT_EQ(model_.judge(changed).outcome, Outcome::kAnomalous) << "an incremental has no say";
  model_.hold(weekly(kEnough + 1, 2500, 2.5e6), "one");
  EXPECT_EQ(model_.judge(changed).outcome, Outcome::kAdopted);
}

TEST_F(ModelStreams, OfIncrementalsChangeSlowlyByThemselves) {
  learn_days(0, kEnough, full);
  for (int day = 0; day < kEnough; ++day) learn(incremental(day, 10));
  const Backup third = incremental(kEnough + 2, 90);
  const auto is_slow = [&] { return model_.judge(third).slow_change.has_value(); };
  EXPECT_FALSE(is_slow());
  model_.hold(incremental(kEnough, 90), "one");
  model_.hold(incremental(kEnough + 1, 90), "one");
  EXPECT_TRUE(is_slow());
  model_.hold(daily(kEnough + 2), "other");
  Backup elsewhere = incremental(kEnough + 2, 10);
  elsewhere.time -= 1;
  elsewhere.stream.schedule_name = "hourly";
  model_.hold(elsewhere, "other");
  EXPECT_TRUE(is_slow()) << "other streams have no say";
  elsewhere.stream = vague(third).stream;
  model_.hold(elsewhere, "other");
  EXPECT_FALSE(is_slow()) << "but those that match have";
}

// The full backup of the night, as the verdict on an incremental uses it.
class NightOfAnIncremental : public ModelStreams {
 protected:
  NightOfAnIncremental() {
    learn_days(0, kEnough, full);
    learn_days(0, kEnough, part);
  }
  // Files of that full backup by those of the one before; -1 when there is none.
  double files_of_night(std::int32_t time) {
    Backup record = incremental(kEnough);
    record.time = time;
    const double change = model_.judge(record).change.files;
    return change < 0 ? -1 : std::round(change * 1000);
  }
  // Whether it vouches for an incremental that is anomalous by itself.
  bool vouches() {
    const Verdict verdict = model_.judge(incremental(kEnough, 900, 9e5));
    EXPECT_TRUE(verdict.outcome == Outcome::kNormal || verdict.outcome == Outcome::kAnomalous);
    return verdict.outcome == Outcome::kNormal;
  }
};

TEST_F(NightOfAnIncremental, LastsTwelveHours) {
  const Backup accepted = daily(kEnough - 1);
  EXPECT_EQ(files_of_night(accepted.time), 1000);
  EXPECT_EQ(files_of_night(accepted.time + 12 * 3600), 1000);
  EXPECT_EQ(files_of_night(accepted.time + 12 * 3600 + 1), -1);
  EXPECT_EQ(files_of_night(daily(0).time - 1), -1) << "a later one is none";
}

TEST_F(NightOfAnIncremental, IsTheLatestOfAllStreams) {
  Backup first = weekly(kEnough, 500);
  Backup second = weekly(kEnough, 250);
  second.stream.schedule_name = "monthly";
  second.unique_key += "monthly";
  const std::int32_t late = second.time += 100;
  for (const bool is_held : {false, true}) {
    for (const Backup& backup : {first, second}) {
      if (is_held) {
        model_.hold(backup, "one");
      } else {
        learn(backup);
      }
    }
    EXPECT_NEAR(files_of_night(late + 100), 250, 10) << is_held;
    EXPECT_NEAR(files_of_night(late - 1), 500, 10) << is_held;
    std::swap(first.time, second.time);
    std::swap(first.figures, second.figures);
    model_.clear();
    learn_days(0, kEnough, full);
  }
}

TEST_F(NightOfAnIncremental, IsComparedWithTheStreamOfMostFullBackups) {
  for (int day = 0; day < kEnough; ++day) learn(weekly(day, 500));
  EXPECT_EQ(files_of_night(daily(kEnough - 1).time), 500)
      << "of as many the first; the night has its own";
  learn(weekly(kEnough, 500));
  EXPECT_NEAR(files_of_night(daily(kEnough).time), 1000, 10);
}

TEST_F(NightOfAnIncremental, VouchesWhenItIsAcceptedAndKnowsItsTransfer) {
  EXPECT_FALSE(vouches());
  Backup night = daily(kEnough, 1000, 1e6, 0);
  night.figures.transferred_kb = 0;
  learn(night);
  EXPECT_TRUE(vouches());
  night.figures.transferred_kb = -1;
  learn(night);
  EXPECT_FALSE(vouches());
}

TEST_F(NightOfAnIncremental, VouchesWhenItsStreamHasLearnt) {
  for (int day = 1; day < kEnough; ++day) {
    Backup early = weekly(day);
    early.time -= 1;
    learn(early);
  }
  EXPECT_FALSE(vouches());
  learn(weekly(kEnough));
  EXPECT_TRUE(vouches());
  model_.clear();
  learn_days(0, kEnough, full);
  learn_days(0, kEnough, part);
  for (int day = 2; day < kEnough; ++day) learn(weekly(day));
  learn(weekly(kEnough));
  EXPECT_FALSE(vouches()) << "one too few";
}

TEST_F(NightOfAnIncremental, DoesNotVouchWhenItIsAnomalous) {
  model_.hold(daily(kEnough - 3), "other");
  model_.hold(daily(kEnough), "one");
  EXPECT_FALSE(vouches()) << "the latest counts";
  learn(daily(kEnough));
  EXPECT_FALSE(vouches()) << "of one second the anomalous one counts";
  model_.clear();
  learn_days(0, kEnough + 1, full);
  learn_days(0, kEnough, part);
  EXPECT_TRUE(vouches());
}

TEST_F(NightOfAnIncremental, NeedsAFullBackupToCompareWith) {
  model_.clear();
  learn_days(0, kEnough, part);
  model_.hold(daily(kEnough), "one");
  const Verdict verdict = model_.judge(incremental(kEnough));
  EXPECT_EQ(verdict.change.files, -1);
  EXPECT_EQ(verdict.change.touched_files, -1);
}

// Of the other streams only, and of the same source.
TEST_F(ModelStreams, AreComparedWithAnotherOneOfTheSource) {
  learn_days(0, kEnough, full);
  learn(vague(weekly(0)));
  EXPECT_EQ(model_.judge(weekly(kEnough, 10)).outcome, Outcome::kLearning);
  for (const int day : {1, 2, 3}) learn(weekly(day));
  EXPECT_TRUE(model_.judge(weekly(kEnough, 10)).by_other_stream);
  for (const auto part_of_source : {&StreamKey::client, &StreamKey::policy}) {
    Model other(settings(), [](const std::string&) { return std::string(); });
    for (int day = 0; day < kEnough; ++day) other.learn(daily(day), kNoCluster);
    Backup backup = weekly(kEnough, 10);
    backup.stream.*part_of_source = "other";
    for (const int day : {1, 2, 3}) {
      Backup own = weekly(day);
      own.stream = backup.stream;
      other.learn(own, kNoCluster);
    }
    EXPECT_EQ(other.judge(backup).outcome, Outcome::kLearning);
  }
}

class Incidents : public ModelStreams {
 protected:
  std::string incident(int day) { return model_.incident_of(daily(day)); }
  static std::string own(int day) { return incident_name(daily(day).unique_key); }
};

TEST_F(Incidents, AreNamedByTheirFirstRecord) {
  EXPECT_EQ(incident(5), own(5));
  model_.hold(daily(5), own(5));
  EXPECT_EQ(incident(5), own(5)) << "gathered again";
  EXPECT_EQ(incident(4), own(4)) << "what came before is another";
  EXPECT_EQ(incident(6), own(5));
  Backup same_second = daily(5);
  same_second.unique_key += "other";
  EXPECT_EQ(model_.incident_of(same_second), own(5));
  model_.hold(daily(6), own(5));
  model_.hold(daily(8), own(8));
  EXPECT_EQ(incident(7), own(5));
  EXPECT_EQ(incident(9), own(8));
  EXPECT_TRUE(asked_.empty());
}

TEST_F(Incidents, WithoutANameAreLookedUpOnce) {
  reported_[daily(5).unique_key] = "incident_first";
  model_.hold(daily(5), {});
  EXPECT_TRUE(asked_.empty());
  EXPECT_EQ(incident(6), "incident_first");
  EXPECT_EQ(incident(7), "incident_first");
  EXPECT_EQ(asked_, std::vector{daily(5).unique_key});
  model_.hold(daily(6), {});
  EXPECT_EQ(incident(7), own(6)) << "purged";
  EXPECT_EQ(incident(8), own(6));
  EXPECT_EQ(asked_.size(), 2U);
}

TEST_F(Incidents, EndWithAnAcceptedBackup) {
  model_.hold(daily(5), own(5));
  learn(daily(4));
  EXPECT_EQ(incident(7), own(5));
  learn(daily(8));
  model_.settle();
  EXPECT_EQ(incident(7), own(5)) << "one that comes later does not count";
  EXPECT_EQ(incident(9), own(9));
  learn(daily(6));
  EXPECT_EQ(incident(7), own(7));
}

TEST_F(Incidents, EndWithAFalsePositiveOfAnyRecord) {
  reported_[daily(6).unique_key] = own(5);
  for (const int day : {5, 6, 7}) model_.hold(daily(day), own(5));
  model_.learn(daily(3), 1);
  EXPECT_EQ(incident(8), own(5)) << "of another incident";
  model_.learn(daily(6), 2);
  asked_.clear();
  EXPECT_EQ(incident(8), own(8));
  EXPECT_EQ(incident(8), own(8));
  EXPECT_EQ(asked_, std::vector{daily(6).unique_key});
  model_.forget_false_positive(daily(6));
  EXPECT_EQ(incident(8), own(5));
  model_.learn(daily(5), 3);
  EXPECT_EQ(incident(8), own(8)) << "the first, though purged";
}

}  // namespace
}  // namespace corvane::detect
