#include "companions/detect/detector.h"

#include <gtest/gtest.h>

#include <cmath>

#include "anomaly_database/anomaly_database.h"
#include "companions/detect/replay.h"
#include "finding/anomaly.h"
#include "tests/unit/detect/detector_world.h"

namespace corvane::detect {
namespace {

TEST_F(DetectorTest, NormalRowsJoinTheHistoryAndAnomaliesDoNot) {
  gather(good_);
  gather(bad_);
  Detector detector = make();
  EXPECT_TRUE(detector.has_news());
  const PassCounts counts = detector.pass();
  EXPECT_EQ(counts.normal, 1U);
  EXPECT_EQ(counts.learning, 0U);
  EXPECT_EQ(counts.anomalous, 1U);
  EXPECT_EQ(status(good_), "1");
  EXPECT_EQ(cluster(good_), "-1");
  EXPECT_EQ(status(bad_), "2");
  EXPECT_EQ(cluster(bad_), "");
  const auto rows = test::query(world_.db(), "SELECT * FROM ANOMALY_DATA");
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0][0], anomaly_id(bad_.unique_key));
  EXPECT_EQ(rows[0][2], "0");
  EXPECT_EQ(rows[0][3], bad_.stream.text());
  EXPECT_EQ(rows[0][4], "client");
  EXPECT_EQ(rows[0][5], std::to_string(fake::state().now));
  EXPECT_EQ(test::query(world_.db(), "SELECT EPS, SCHEDULE_TYPE FROM DBSCAN_MODEL_PARAMS"),
            (std::vector<test::SqlRow>{{"2.5", "FULL"}}));
  expect_same_columns(good_, "-1");
  EXPECT_FALSE(detector.has_news());
}

TEST_F(DetectorTest, ARowGatheredAgainAlertsNobodyTwice) {
  gather(good_);
  gather(bad_);
  Detector detector = make();
  detector.pass();
  world_.run("UPDATE ANOMALY_DATA SET PROCESSED = 1, ANOMALY_DETAILS = 'kept'");
  gather(good_);
  gather(bad_);
  EXPECT_TRUE(detector.has_news());
  const PassCounts counts = detector.pass();
  EXPECT_EQ(counts.normal + counts.anomalous, 0U);
  EXPECT_EQ(status(good_), "1");
  EXPECT_EQ(status(bad_), "2");
  EXPECT_EQ(world_.one("SELECT PROCESSED || ANOMALY_DETAILS FROM ANOMALY_DATA"), "1kept");
  EXPECT_EQ(test::count(world_.db(), "ANOMALY_DATA"), "1");
}

TEST_F(DetectorTest, FollowsFeedbackBothWaysAndAcrossARestart) {
  gather(bad_);
  Detector detector = make();
  detector.pass();
  feedback(bad_, 1);
  detector.pass();
  EXPECT_EQ(cluster(bad_), "1");
  EXPECT_EQ(status(bad_), "2");
  const Backup again = daily(42, 1000, 1e6, 9e5);
  gather(again);
  Detector restarted = make();
  restarted.pass();
  EXPECT_EQ(status(again), "1");
  const Backup deletion = daily(43, 300, 3e5);
  gather(deletion);
  restarted.pass();
  EXPECT_EQ(status(deletion), "2");
  feedback(deletion, 1);
  feedback(bad_, 0);
  restarted.pass();
  EXPECT_EQ(cluster(deletion), "2");  // of its own
  EXPECT_EQ(cluster(bad_), "");
  const Backup third = daily(44, 1000, 1e6, 9e5);
  gather(third);
  restarted.pass();
  EXPECT_EQ(status(third), "2");
}

TEST_F(DetectorTest, TellsTheIncidentOfAnAdoptedChange) {
  const std::vector<Backup> changed{daily(40, 2500, 2.5e6), daily(41, 2500, 2.5e6),
                                    daily(42, 2500, 2.5e6)};
  for (const Backup& backup : changed) gather(backup);
  make().pass();
  EXPECT_EQ(status(changed[0]) + status(changed[1]) + status(changed[2]), "221");
  const std::string details =
      world_.one("SELECT ANOMALY_DETAILS FROM ANOMALY_DATA WHERE ANOMALY_UNIQUE_ID = '" +
                 anomaly_id(changed[0].unique_key) + "'");
  EXPECT_NE(details.find("\"adopted\":{\"backup_id\":\"" + changed[2].backup_id),
            std::string::npos);
}

TEST_F(DetectorTest, SaysOncePerStreamAndDayThatItIsInconclusive) {
  const auto noisy = [](int day, double files, const std::string& client, int second = 0) {
    Backup backup = daily(day, files);
    backup.stream.client = client;
    backup.time += second;
    backup.unique_key += client + std::to_string(second);
    return backup;
  };
  std::vector<Backup> judged;
  for (const char* client : {"noisier", "noisy"}) {
    for (int day = 0; day < 40; ++day) {
      // Every fifth night another multiple of the usual, and back again.
      const double files = day % 5 == 4 ? 1000 * std::exp2(1 + day / 5) : 1000;
      world_.insert("HIST_DATA", noisy(day, files, client), -1);
    }
    judged.push_back(noisy(40, 10, client));
    judged.push_back(noisy(40, 1e6, client, 60));
    judged.push_back(noisy(41, 10, client));
  }
  for (const Backup& backup : judged) gather(backup);
  make().pass();
  for (const Backup& backup : judged) {
    EXPECT_EQ(status(backup), "1");
    Connection database = open_for_reading(world_.path());
    EXPECT_EQ(explain(database, Settings{}, backup.unique_key)->verdict, "inconclusive")
        << backup.unique_key;
  }
  std::vector<std::string> streams;
  for (const auto& line : fake::log_lines(8)) {
    EXPECT_NE(line.text.find("] is inconclusive: "), std::string::npos) << line.text;
    streams.push_back(line.text.substr(0, line.text.find('/')));
  }
  EXPECT_EQ(streams, (std::vector<std::string>{"[noisier", "[noisy", "[noisier", "[noisy"}));
}

// After a restart, too: what was reported is read again, and what was said of it asked for.
TEST_F(DetectorTest, AnIncidentGoesOnUntilPeopleCallARecordAFalsePositive) {
  const auto incident = [&](const Backup& backup) {
    Connection database = open_for_reading(world_.path());
    return reported_incident(database, backup.unique_key);
  };
  const std::vector<Backup> records{daily(41, 1000, 1e6, 9e5), daily(42, 300, 3e5),
                                    daily(43, 5000, 5e6)};
  for (const Backup& record : records) gather(record);
  make().pass();
  const std::string name = incident_name(records[0].unique_key);
  for (const Backup& record : records) EXPECT_EQ(incident(record), name);

  feedback(records[1], 1);
  make().pass();
  const Backup fourth = daily(44, 20, 2e4);
  gather(fourth);
  make().pass();
  EXPECT_EQ(incident(fourth), incident_name(fourth.unique_key));

  feedback(records[1], 0);
  make().pass();
  const Backup fifth = daily(45, 15, 1e4);
  gather(fifth);
  make().pass();
  EXPECT_EQ(incident(fifth), incident_name(fourth.unique_key)) << "its stream's former one";
}

TEST_F(DetectorTest, SaysOfABackupThatIsJudgedLateWhenTheNextUsualOneWas) {
  const Backup late = daily(35, 300, 3e5);
  Backup row = late;
  row.unique_key += "late";
  gather(row);
  world_.insert("HIST_DATA", daily(41), -1);
  make().pass();
  const std::string details = world_.one("SELECT ANOMALY_DETAILS FROM ANOMALY_DATA");
  EXPECT_NE(details.find("\"usual_since\":" + std::to_string(daily(36).time)), std::string::npos)
      << details;
}

TEST_F(DetectorTest, BacktestAndExplainChangeNothing) {
  gather(good_);
  gather(bad_);
  make().pass();
  world_.insert("HIST_DATA", daily(42, 300, 3e5), -1);
  const std::string before = world_.one("SELECT COUNT(*) || max(rowid) FROM HIST_DATA");
  Connection database = open_for_reading(world_.path());
  const Backtest result = backtest(database, Settings{}, 5);
  ASSERT_EQ(result.findings.size(), 2U);
  EXPECT_EQ(result.findings[0].unique_key, bad_.unique_key);
  EXPECT_EQ(result.findings[1].unique_key, daily(42).unique_key);
  const std::string lines = text_of(result);
  EXPECT_NE(lines.find(bad_.unique_key), std::string::npos);
  EXPECT_NE(lines.find("5 backups judged again, 2 would have been reported"), std::string::npos)
      << lines;
  EXPECT_EQ(explain(database, Settings{}, bad_.unique_key)->verdict, "anomalous");
  EXPECT_EQ(explain(database, Settings{}, bad_.unique_key)->stream, "judged");
  EXPECT_EQ(explain(database, Settings{}, daily(12).unique_key)->verdict, "learning 12 of 30");
  EXPECT_EQ(explain(database, Settings{}, daily(12).unique_key)->stream, "learning 12 of 30");
  EXPECT_FALSE(explain(database, Settings{}, "none"));
  EXPECT_EQ(world_.one("SELECT COUNT(*) || max(rowid) FROM HIST_DATA"), before);
  EXPECT_EQ(test::count(world_.db(), "ANOMALY_DATA"), "1");
}

// By time; of one second full backups first, then by key.
TEST(JudgedBefore, IsAnOrder) {
  Backup early = daily(1);
  Backup late = daily(2);
  EXPECT_TRUE(judged_before(early, late));
  EXPECT_FALSE(judged_before(late, early));
  EXPECT_FALSE(judged_before(early, early));
  Backup part = incremental(1);
  part.time = early.time;
  part.unique_key = "a";
  EXPECT_TRUE(judged_before(early, part));
  EXPECT_FALSE(judged_before(part, early));
  late.time = early.time;
  early.unique_key = "a";
  late.unique_key = "b";
  EXPECT_TRUE(judged_before(early, late));
  EXPECT_FALSE(judged_before(late, early));
}

TEST_F(DetectorTest, LogsWhatItHasStored) {
  Backup fresh = weekly(39);
  fresh.stream.client = "fresh";
  for (const Backup& backup : {bad_, good_, fresh}) gather(backup);
  Detector detector = make();
  const PassCounts counts = detector.pass();
  EXPECT_EQ(counts.normal, 1U);
  EXPECT_EQ(counts.learning, 1U);
  EXPECT_EQ(counts.anomalous, 1U);
  Connection database = open_for_reading(world_.path());
  const std::string summary = explain(database, Settings{}, bad_.unique_key)->finding.summary;
  EXPECT_EQ(fake::log_lines(),
            (std::vector<fake::LogLine>{
                {2, "cvanomalydetect", fresh.stream.text() + ": learning 0 of 30"},
                {4, "cvanomalydetect",
                 "Anomaly [" + anomaly_id(bad_.unique_key) + "] in [" + bad_.stream.text() +
                     "]: " + summary}}));
}

TEST_F(DetectorTest, JudgesInTheOrderOfBackups) {
  const Backup deleted = daily(42, 300, 3e5);
  for (const Backup& backup : {deleted, bad_}) gather(backup);
  make().pass();
  EXPECT_EQ(incident_of_record(deleted), incident_name(bad_.unique_key));
}

TEST_F(DetectorTest, LogsTheAdoptionOfAChange) {
  for (int day = 40; day < 43; ++day) gather(daily(day, 2500, 2.5e6));
  const PassCounts counts = make().pass();
  EXPECT_EQ(counts.normal, 1U);
  EXPECT_EQ(counts.anomalous, 2U);
  EXPECT_EQ(fake::log_lines().back(),
            (fake::LogLine{4, "cvanomalydetect",
                           "The change in [" + good_.stream.text() +
                               "] has lasted and is part of the baseline as of backup [" +
                               daily(42).backup_id + "]"}));
}

TEST_F(DetectorTest, LogsTheShareOfNoise) {
  for (int day = 0; day < 43; ++day) {
    world_.insert("HIST_DATA", daily(day, day % 5 == 4 ? 1000 * std::exp2(1 + day / 5) : 1000), -1);
  }
  const Backup last = daily(43, 10);
  gather(last);
  make().pass();
  Connection database = open_for_reading(world_.path());
  const double share = explain(database, Settings{}, last.unique_key)->noise_share;
  EXPECT_EQ(fake::log_lines(),
            (std::vector<fake::LogLine>{{8, "cvanomalydetect",
                                         "[" + good_.stream.text() + "] is inconclusive: " +
                                             std::to_string(std::lround(100 * share)) +
                                             "% of its history is noise"}}));
}

TEST_F(DetectorTest, KeepsTheRadiusOfEachStream) {
  const auto radii = [&] {
    return test::query_column(world_.db(), "SELECT EPS FROM DBSCAN_MODEL_PARAMS ORDER BY CLIENT");
  };
  Backup other = good_;
  other.stream.client = "other";
  other.unique_key = "other";
  gather(good_);
  gather(other);
  Detector detector = make();
  detector.pass();
  EXPECT_EQ(radii(), (std::vector<std::string>{"2.5", "2.5"}));
  world_.run("UPDATE DBSCAN_MODEL_PARAMS SET EPS = 7");
  gather(daily(42));
  detector.pass();
  EXPECT_EQ(radii(), (std::vector<std::string>{"7.0", "7.0"})) << "written when it changes";
  Settings settings;
  settings.sensitivity = 100;
  detector.set_settings(settings);
  gather(daily(43));
  detector.pass();
  EXPECT_EQ(radii(), (std::vector<std::string>{"1.25", "7.0"}));
  gather(daily(44));
  make().pass();
  EXPECT_EQ(radii(), (std::vector<std::string>{"2.5", "7.0"})) << "read at the start";
  world_.run("UPDATE DBSCAN_MODEL_PARAMS SET CAPTURE_DATE = 1");
  gather(daily(45));
  make().pass();
  EXPECT_EQ(world_.one("SELECT COUNT(*) FROM DBSCAN_MODEL_PARAMS WHERE CAPTURE_DATE <> 1"), "0")
      << "written only when it differs";
}

TEST_F(DetectorTest, WhatItAcceptsIsHistoryAtOnce) {
  gather(good_);
  Detector detector = make();
  detector.pass();
  EXPECT_TRUE(knows(detector, good_));
  EXPECT_FALSE(knows(detector, bad_));
}

TEST_F(DetectorTest, ReadsEachRowOnceAndKeepsTheHistoryByTime) {
  world_.insert("HIST_DATA", daily(50), -1);
  world_.insert("HIST_DATA", daily(45), -1);
  Detector detector = make();
  detector.pass();
  const auto& history = detector.model().all().front()->history;
  EXPECT_TRUE(std::is_sorted(history.begin(), history.end()));
  gather(bad_);
  detector.pass();
  world_.run("UPDATE HIST_DATA SET CLIENT = 'renamed'");
  detector.pass();
  EXPECT_EQ(detector.model().streams(), 1U);
  EXPECT_EQ(detector.model().all().front()->key.client, "client");
}

}  // namespace
}  // namespace corvane::detect
