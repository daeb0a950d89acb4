#include "companions/detect/replay.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "anomaly_database/anomaly_database.h"
#include "companions/detect/finding_of.h"
#include "finding/finding_json.h"
#include "tests/unit/detect/detector_world.h"
#include "util/json.h"

namespace corvane::detect {
namespace {

class Replay : public DetectorTest {
 protected:
  Backtest replay(int days, const Settings& settings = {}) {
    Connection database = open_for_reading(world_.path());
    return backtest(database, settings, days);
  }
  Explanation explained(const Backup& backup) {
    Connection database = open_for_reading(world_.path());
    return explain(database, Settings{}, backup.unique_key).value();
  }
  static std::vector<std::string> keys(const Backtest& result) {
    std::vector<std::string> found;
    for (const BacktestFinding& one : result.findings) found.push_back(one.unique_key);
    return found;
  }
  // Stored, as the detection has judged it.
  void store(const Backup& backup, bool anomalous) {
    world_.insert(anomalous ? "DATA_TO_PROCESS" : "HIST_DATA", backup, anomalous ? 2 : -1);
  }
};

using BacktestTest = Replay;

// Days are counted back from the newest backup; one at the very begin is history.
TEST_F(BacktestTest, JudgesTheLastDaysAgain) {
  EXPECT_EQ(replay(5).judged, 5U);
  EXPECT_EQ(replay(5).learning, 0U);
  EXPECT_EQ(replay(1).judged, 1U);
  EXPECT_EQ(replay(11).judged, 11U);
  EXPECT_EQ(replay(11).learning, 1U);
  EXPECT_EQ(replay(100).judged, 40U);
  EXPECT_EQ(replay(100).learning, 30U);
  EXPECT_TRUE(replay(100).findings.empty());
  store(bad_, true);
  EXPECT_EQ(replay(2).judged, 1U) << "from the anomalous one, two days after the last accepted";
  world_.run("DELETE FROM HIST_DATA");
  world_.run("DELETE FROM DATA_TO_PROCESS");
  EXPECT_EQ(replay(5).judged, 0U);
}

TEST_F(BacktestTest, FindsWhatWasFoundAndWhatWasNot) {
  store(bad_, true);
  store(daily(42, 300, 3e5), false);
  store(good_, false);
  gather(daily(43, 2, 2));  // not judged yet
  const Backtest result = replay(10);
  EXPECT_EQ(result.judged, 10U);
  EXPECT_EQ(keys(result), (std::vector{bad_.unique_key, daily(42).unique_key}));
  EXPECT_EQ(result.findings[0].finding.incident, incident_name(bad_.unique_key));
  EXPECT_EQ(result.findings[1].finding.incident, incident_name(bad_.unique_key));
  EXPECT_EQ(result.findings[0].finding.last_good.backup_id, good_.backup_id);
  EXPECT_EQ(result.findings[0].finding.observations, 41U);
}

TEST_F(BacktestTest, WhatIsAcceptedIsHistoryForTheNext) {
  store(daily(40, 2500, 2.5e6), true);
  store(daily(41, 2500, 2.5e6), true);
  store(daily(42, 2500, 2.5e6), false);
  store(daily(43, 2500, 2.5e6), false);
  EXPECT_EQ(keys(replay(4)), (std::vector{daily(40).unique_key, daily(41).unique_key}));
  EXPECT_TRUE(keys(replay(2)).empty()) << "what was anomalous before is held";
}

TEST_F(BacktestTest, AFalsePositiveIsHistoryAtAnyTime) {
  store(daily(42, 1000, 1e6, 9e5), true);
  EXPECT_EQ(replay(5).findings.size(), 1U);
  world_.insert("HIST_DATA", bad_, 1);
  world_.insert("DATA_TO_PROCESS", bad_, 2);
  EXPECT_EQ(replay(5).judged, 3U) << "day 40 and 41 have none";
  EXPECT_TRUE(replay(5).findings.empty());
}

TEST_F(BacktestTest, OfTheAnomaliesBeforeItKnowsTheIncident) {
  gather(bad_);
  make().pass();
  const Backup deleted = daily(42, 300, 3e5);
  store(deleted, true);
  world_.run(R"(UPDATE ANOMALY_DATA SET ANOMALY_DETAILS = '{"incident":"incident_earlier"}')");
  const Backtest result = replay(1);
  ASSERT_EQ(keys(result), std::vector{deleted.unique_key});
  EXPECT_EQ(result.findings[0].finding.incident, "incident_earlier");
}

TEST_F(BacktestTest, GoesByTheSettings) {
  store(daily(40, 760, 7.6e5), false);
  EXPECT_TRUE(replay(1).findings.empty());
  Settings sensitive;
  sensitive.sensitivity = 100;
  EXPECT_EQ(replay(1, sensitive).findings.size(), 1U);
}

TEST_F(BacktestTest, ReadsAsLinesAndTotals) {
  store(bad_, true);
  const Backtest result = replay(7);
  EXPECT_EQ(totals_of(result),
            "6 backups judged again, 1 would have been reported, 0 in streams that were still "
            "learning\n");
  EXPECT_EQ(text_of(result), "2023-12-25T22:13:20Z  critical  " + bad_.unique_key + "  " +
                                 result.findings[0].finding.summary + "\n" + totals_of(result));
  EXPECT_EQ(text_of({.judged = 1, .learning = 1, .findings = {}}),
            "1 backup judged again, 0 would have been reported, 1 in streams that were still "
            "learning\n");
  Backtest odd = result;
  odd.findings[0].unique_key = "\xff";
  EXPECT_EQ(text_of(odd).find('\xff'), std::string::npos);
}

TEST_F(BacktestTest, IsADocument) {
  store(bad_, true);
  Backtest result = replay(7);
  result.learning = 2;
  JsonPtr expected = to_json(result.findings[0].finding);
  put(expected.get(), "unique_key", bad_.unique_key);
  EXPECT_EQ(
      json_text(to_json(result).get()),
      R"({"schema":1,"judged":6,"learning":2,"anomalies":[)" + json_text(expected.get()) + "]}");
}

using ExplainTest = Replay;

TEST_F(ExplainTest, SaysHowABackupIsJudged) {
  gather(bad_);
  const Explanation anomalous = explained(bad_);
  EXPECT_EQ(anomalous.unique_key, bad_.unique_key);
  EXPECT_EQ(anomalous.outcome, Outcome::kAnomalous);
  EXPECT_EQ(anomalous.verdict, "anomalous");
  EXPECT_EQ(anomalous.stream, "judged");
  EXPECT_EQ(anomalous.finding.backup_id, bad_.backup_id);
  EXPECT_EQ(anomalous.finding.severity, Severity::kCritical);
  const Explanation learning = explained(daily(12));
  EXPECT_EQ(learning.outcome, Outcome::kLearning);
  EXPECT_EQ(learning.verdict, "learning 12 of 30");
  EXPECT_EQ(learning.stream, "learning 12 of 30");
  EXPECT_EQ(explained(daily(30)).verdict, "normal");
  EXPECT_EQ(explained(daily(0)).stream, "learning 0 of 30");
}

// By another stream a backup may be judged while its own is still learning.
TEST_F(ExplainTest, TheStateOfTheStreamIsAnother) {
  for (const int day : {10, 17, 24}) store(weekly(day), false);
  gather(weekly(38, 300, 3e5));
  const Explanation other = explained(weekly(38));
  EXPECT_EQ(other.verdict, "anomalous");
  EXPECT_EQ(other.stream, "learning 3 of 30");
  EXPECT_TRUE(other.finding.by_other_stream);
  Backup late = daily(39 + 366);
  gather(late);
  EXPECT_EQ(explained(late).stream, "dormant");
  EXPECT_EQ(explained(late).verdict, "learning 0 of 30");
}

TEST_F(ExplainTest, OnlyWhatCameBeforeInTheSameSourceCounts) {
  for (const auto part : {&StreamKey::client, &StreamKey::policy}) {
    Backup elsewhere = daily(12);
    elsewhere.stream.*part = "other";
    elsewhere.unique_key = "other";
    gather(elsewhere);
    EXPECT_EQ(explained(elsewhere).verdict, "learning 0 of 30");
  }
  store(bad_, true);
  const Backup deleted = daily(42, 300, 3e5);
  store(deleted, true);
  EXPECT_EQ(explained(deleted).finding.incident, incident_name(bad_.unique_key));
  EXPECT_EQ(explained(bad_).finding.incident, incident_name(bad_.unique_key));
  EXPECT_EQ(explained(daily(20)).finding.usual_since, 0);
  store(daily(43, 1000, 1e6, 9e5), true);
  world_.insert("HIST_DATA", bad_, 1);
  EXPECT_EQ(explained(daily(43)).verdict, "normal") << "like a false positive";
}

TEST_F(ExplainTest, WithoutSuchABackupThereIsNone) {
  Connection database = open_for_reading(world_.path());
  EXPECT_FALSE(explain(database, Settings{}, "none"));
}

TEST_F(ExplainTest, IsADocument) {
  gather(bad_);
  Explanation one = explained(bad_);
  EXPECT_EQ(one.noise_share, 0);
  one.noise_share = 0.25;
  one.stream = "judged";
  const auto tail = [&](const char* sustained) {
    std::string text = json_text(to_json(one.finding).get());
    text.back() = ',';
    return text + R"("state":"anomalous","stream_state":"judged","history_noise":0.25,)" +
           R"("sustained":)" + sustained + "}";
  };
  EXPECT_EQ(json_text(to_json(one).get()), tail("false"));
  one.finding.slow_change = SlowChange{3, true, 0.1, 0.05};
  EXPECT_EQ(json_text(to_json(one).get()), tail("true"));
}

TEST_F(ExplainTest, TellsTheNoiseOfTheHistory) {
  double transferred = 4e5;
  for (const int day : {9, 19, 29, 39}) {
    world_.insert("HIST_DATA", daily(day, 1000, 1e6, transferred), -1);
    transferred += 3e5;
  }
  gather(bad_);
  EXPECT_DOUBLE_EQ(explained(bad_).noise_share, 0.1);
}

// As the detection takes them: what was reported is not history, and figures are those of the
// verdict.
class ReplayOfVerdicts : public Replay {
 protected:
  void SetUp() override {
    Replay::SetUp();
    for (int day = 41; day < 61; ++day) gather(daily(day, 1000, 1e6, 9e5));
    make().pass();
    for (int day = 0; day < 40; ++day) world_.gather_history(daily(day));
    for (int day = 41; day < 61; ++day) world_.gather_history(daily(day, 1000, 1e6, 9e5));
    gather(last_);
  }
  const Backup last_ = daily(61, 1000, 1e6, 9e5);
};

TEST_F(ReplayOfVerdicts, GoesByTheOwnDatabase) {
  const Explanation explanation = explained(last_);
  EXPECT_EQ(explanation.outcome, Outcome::kAnomalous);
  EXPECT_EQ(explanation.finding.incident, incident_name(bad_.unique_key));
  EXPECT_EQ(explanation.finding.observations, 40U);
  EXPECT_TRUE(explanation.finding.figures[kTransferred].has_usual);
  EXPECT_EQ(explained(daily(60)).finding.figures[kTransferred].value,
            static_cast<float>(daily(60, 1000, 1e6, 9e5).figures.transferred_kb));
  EXPECT_EQ(replay(25).findings.size(), 20U);
  EXPECT_EQ(replay(25).judged, 24U) << "20, and days 36 to 39";
  world_.run("DELETE FROM ANOMALY_DATA");
  EXPECT_EQ(explained(last_).finding.incident, incident_name(bad_.unique_key));
}

TEST_F(ReplayOfVerdicts, HoldsAnomaliesThatAreInNoHistoryWithTheirFigures) {
  world_.run("DELETE FROM HIST_DATA WHERE JOB_ID > 1040");
  world_.run("UPDATE DATA_TO_PROCESS SET KB_TRANSFERRED = 20000 WHERE PROCESSED_STATUS = 2");
  EXPECT_EQ(replay(25).findings.size(), 20U);
}

TEST_F(ReplayOfVerdicts, DoesWithoutIt) {
  std::filesystem::remove(world_.own_path());
  EXPECT_EQ(explained(last_).outcome, Outcome::kNormal);
  EXPECT_EQ(explained(last_).finding.observations, 60U);
  EXPECT_FALSE(std::filesystem::exists(world_.own_path()));
}

}  // namespace
}  // namespace corvane::detect
