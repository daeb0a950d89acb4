#include "companions/detect/verdicts.h"

#include <gtest/gtest.h>

#include "anomaly_database/anomaly_database.h"
#include "finding/anomaly.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/unit/detect/anomaly_db.h"
#include "tests/unit/detect/detect_world.h"

namespace corvane::detect {
namespace {

class VerdictsTest : public PlatformFake {
 protected:
  static HistoryRow row(const Backup& backup, GatherMode mode, int cluster = kNoCluster,
                        std::int64_t rowid = 1) {
    HistoryRow made{rowid, backup, cluster, mode};
    made.backup.figures.files = 1;  // not as judged
    return made;
  }
  void report(const Backup& backup) {
    world_.run("INSERT INTO ANOMALY_DATA VALUES ('" + anomaly_id(backup.unique_key) +
               R"(', '{"incident":"incident_reported"}', 0, '', '', 1))");
  }
  // "learnt", "false positive 3", "held"; and whether the figures are those of the verdict.
  static std::string words(const Standing& standing) {
    std::string text = standing.is_held ? "held" : "learnt";
    if (standing.cluster != kNoCluster) text = "false positive " + std::to_string(standing.cluster);
    return text + (standing.backup->figures.files == 1 ? "" : " as judged");
  }
  std::optional<KnownVerdict> stored(const Backup& backup) {
    return open_verdicts_for_reading(world_.own_path())->find(backup.unique_key);
  }

  AnomalyDb world_;
  Connection database_ = open_for_companion(world_.path());
  Verdicts verdicts_{database_, open_verdicts(world_.own_path())};
  const Backup accepted_ = daily(1);
  const Backup anomalous_ = daily(2);
  const Backup false_positive_ = daily(3);
  const Backup unknown_ = daily(4);
};

TEST_F(VerdictsTest, SayWhatARowOfTheHistoryCountsAs) {
  verdicts_.add(accepted_, JudgedAs::kAccepted, {});
  verdicts_.add(anomalous_, JudgedAs::kAnomalous, "one");
  verdicts_.add(false_positive_, JudgedAs::kAnomalous, "one");
  verdicts_.store(0);
  verdicts_.set_cluster(false_positive_.unique_key, 3, 0);
  using enum GatherMode;
  struct Case {
    const Backup& backup;
    GatherMode mode;
    int cluster;
    const char* expected;
  };
  const std::vector<Case> cases{
      {accepted_, kHistorical, -1, "learnt as judged"},
      {accepted_, kLive, -1, "learnt"},
      {accepted_, kHistorical, 2, "false positive 2"},
      {anomalous_, kHistorical, -1, "held as judged"},
      {anomalous_, kLive, -1, "held as judged"},
      {anomalous_, kLive, 2, "false positive 2 as judged"},
      {anomalous_, kHistorical, 2, "false positive 2 as judged"},
      {false_positive_, kHistorical, -1, "false positive 3 as judged"},
      {false_positive_, kLive, -1, "false positive 3 as judged"},
      {false_positive_, kLive, 3, "false positive 3 as judged"},
      {unknown_, kLive, 4, "false positive 4"},
      {unknown_, kHistorical, -1, "learnt"},
      {unknown_, kLive, -1, "learnt"},
  };
  KnownVerdicts reader(database_, open_verdicts_for_reading(world_.own_path()));
  KnownVerdicts none(database_, nullptr);
  for (const Case& one : cases) {
    const HistoryRow given = row(one.backup, one.mode, one.cluster);
    EXPECT_EQ(words(reader.standing_of(given)), one.expected) << one.backup.unique_key;
    EXPECT_EQ(words(verdicts_.note(given)), one.expected) << one.backup.unique_key;
    EXPECT_FALSE(none.standing_of(given).is_held);
    EXPECT_EQ(none.standing_of(given).backup, &given.backup);
  }
  EXPECT_FALSE(none.find(accepted_.unique_key));
  verdicts_.store(0);
  EXPECT_EQ(stored(accepted_)->cluster, kNoCluster) << "was never reported";
  EXPECT_EQ(stored(anomalous_)->cluster, 2);
  EXPECT_EQ(stored(false_positive_)->cluster, 3) << "an unknown one follows";
}

// Another process has reported it.
TEST_F(VerdictsTest, OfOthersCountToo) {
  Verdicts other(database_, open_verdicts(world_.own_path()));
  other.add(anomalous_, JudgedAs::kAnomalous, "one");
  other.store(0);
  EXPECT_EQ(words(verdicts_.standing_of(row(anomalous_, GatherMode::kHistorical))),
            "held as judged");
}

TEST_F(VerdictsTest, OfLiveRowsOfTheHistoryAreFoundOnce) {
  world_.insert("HIST_DATA", accepted_, -1);
  const auto look = [&](std::int64_t last) {
    verdicts_.begin_history(last);
    verdicts_.note(row(daily(10), GatherMode::kLive, -1, 5));
    verdicts_.note(row(daily(11), GatherMode::kLive, -1, 6));
    verdicts_.note(row(daily(12), GatherMode::kHistorical, -1, 7));
    verdicts_.note(row(daily(13), GatherMode::kLive, 2, 8));
    verdicts_.store(5);
  };
  verdicts_.begin_history(0);
  verdicts_.add(accepted_, JudgedAs::kAccepted, {});
  verdicts_.store(5);
  look(8);
  EXPECT_FALSE(stored(daily(10))) << "looked through before";
  EXPECT_EQ(stored(daily(11))->judged_as, JudgedAs::kAccepted);
  EXPECT_EQ(stored(daily(11))->backup.figures.files, 1);
  EXPECT_FALSE(stored(daily(12)));
  EXPECT_FALSE(stored(daily(13)));
  look(5);
  EXPECT_FALSE(stored(daily(10)));
  look(4);
  EXPECT_TRUE(stored(daily(10))) << "of another history";
}

TEST_F(VerdictsTest, OfLiveRowsAreFoundAsFarAsAHistoricalGatherReaches) {
  const auto aged = [](std::int64_t seconds, const char* key) {
    Backup backup = daily(0);
    backup.unique_key = key;
    backup.time = static_cast<std::int32_t>(fake::state().now - 120 * kDay - seconds);
    return backup;
  };
  verdicts_.begin_history(2);
  verdicts_.note(row(aged(0, "within"), GatherMode::kLive, -1, 1));
  verdicts_.note(row(aged(1, "older"), GatherMode::kLive, -1, 2));
  verdicts_.store(2);
  EXPECT_TRUE(stored(aged(0, "within")));
  EXPECT_FALSE(stored(aged(1, "older")));
}

TEST_F(VerdictsTest, NothingThatWasNotStoredOutlivesANewBegin) {
  verdicts_.add(accepted_, JudgedAs::kAccepted, {});
  verdicts_.begin_history(5);
  verdicts_.note(row(unknown_, GatherMode::kLive));
  verdicts_.begin_history(5);
  verdicts_.store(1);
  EXPECT_FALSE(stored(accepted_));
  EXPECT_FALSE(stored(unknown_));
}

TEST_F(VerdictsTest, OfAFalsePositiveThatIsJudgedAgainKeepTheCluster) {
  for (const Backup& backup : {anomalous_, false_positive_}) {
    verdicts_.add(backup, JudgedAs::kAnomalous, "one");
  }
  verdicts_.store(0);
  verdicts_.set_cluster(false_positive_.unique_key, 3, 0);
  for (const Backup& backup : {anomalous_, false_positive_}) {
    Backup again = backup;
    again.figures.files = 77;
    EXPECT_EQ(verdicts_.add(again, JudgedAs::kAnomalous, "other").figures.files,
              backup.figures.files);
  }
  verdicts_.store(0);
  EXPECT_EQ(stored(false_positive_)->cluster, 3);
  EXPECT_EQ(stored(false_positive_)->incident, "other");
  EXPECT_EQ(stored(anomalous_)->cluster, kNoCluster);
  EXPECT_EQ(stored(anomalous_)->backup.figures.files, anomalous_.figures.files);
}

TEST_F(VerdictsTest, OfReportedRowsAreFound) {
  verdicts_.begin_history(0);
  for (const Backup& backup : {anomalous_, false_positive_}) report(backup);
  world_.insert("HIST_DATA", false_positive_, 3);
  for (const Backup& backup : {anomalous_, false_positive_, unknown_}) {
    verdicts_.add_reported(backup, ProcessedStatus::kWaiting);
  }
  verdicts_.store(0);
  EXPECT_EQ(stored(anomalous_)->judged_as, JudgedAs::kAnomalous);
  EXPECT_EQ(stored(anomalous_)->cluster, kNoCluster);
  EXPECT_EQ(stored(anomalous_)->incident, "incident_reported");
  EXPECT_EQ(stored(false_positive_)->cluster, 3);
  EXPECT_FALSE(stored(unknown_));
  Backup again = anomalous_;
  again.figures.files = 77;
  verdicts_.add_reported(again, ProcessedStatus::kAnomalous);
  verdicts_.store(0);
  EXPECT_EQ(stored(anomalous_)->backup.figures.files, anomalous_.figures.files) << "the first";
  // Its anomaly is lost.
  verdicts_.add_reported(unknown_, ProcessedStatus::kAnomalous);
  verdicts_.store(0);
  EXPECT_EQ(stored(unknown_)->judged_as, JudgedAs::kAnomalous);
}

// The first of them are noted before the history is read.
TEST_F(VerdictsTest, AreStoredWithoutForgettingWhereTheHistoryWasRead) {
  verdicts_.begin_history(0);
  verdicts_.add(accepted_, JudgedAs::kAccepted, {});
  verdicts_.store(7);
  verdicts_.begin_history(9);
  verdicts_.add(unknown_, JudgedAs::kAccepted, {});
  verdicts_.store(0);
  EXPECT_EQ(open_verdicts_for_reading(world_.own_path())->history_rowid(), 7);
}

TEST_F(VerdictsTest, KnowTheIncident) {
  verdicts_.add(anomalous_, JudgedAs::kAnomalous, "incident_judged");
  verdicts_.store(0);
  EXPECT_EQ(verdicts_.incident_of(anomalous_.unique_key), "incident_judged");
  report(anomalous_);
  EXPECT_EQ(verdicts_.incident_of(anomalous_.unique_key), "incident_reported");
  EXPECT_EQ(verdicts_.incident_of("other"), "");
}

TEST_F(VerdictsTest, AreStoredOnlyWhenThereAreAny) {
  verdicts_.begin_history(9);
  verdicts_.store(9);
  EXPECT_EQ(open_verdicts_for_reading(world_.own_path())->history_rowid(), 0);
  verdicts_.add(accepted_, JudgedAs::kAccepted, {});
  verdicts_.store(9);
  EXPECT_EQ(open_verdicts_for_reading(world_.own_path())->history_rowid(), 9);
  verdicts_.store(10);
  EXPECT_EQ(open_verdicts_for_reading(world_.own_path())->history_rowid(), 9);
}

}  // namespace
}  // namespace corvane::detect
