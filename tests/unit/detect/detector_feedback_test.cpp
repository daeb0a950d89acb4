// The detection and what others write meanwhile: feedback, histories that are read in part, rows
// that are gathered again.
#include <gtest/gtest.h>

#include "companions/detect/detector.h"
#include "finding/anomaly.h"
#include "tests/unit/detect/detector_world.h"

namespace corvane::detect {
namespace {

using DetectorFeedback = DetectorTest;

TEST_F(DetectorFeedback, IsLoggedOnceForEachChange) {
  gather(bad_);
  Detector detector = make();
  detector.pass();
  fake.log.clear();
  const std::string id = anomaly_id(bad_.unique_key);
  for (const int value : {1, 1, 0, 0, 1}) {
    feedback(bad_, value);
    detector.pass();
  }
  const std::string yes = "Anomaly [" + id + "] was marked as a false positive";
  const std::string no = "Anomaly [" + id + "] is no longer marked as a false positive";
  EXPECT_EQ(fake::log_lines(), (std::vector<fake::LogLine>{{4, "cvanomalydetect", yes},
                                                           {4, "cvanomalydetect", no},
                                                           {4, "cvanomalydetect", yes}}));
}

TEST_F(DetectorFeedback, ThatConfirmsAnAnomalyChangesNothing) {
  gather(bad_);
  Detector detector = make();
  detector.pass();
  fake.log.clear();
  feedback(bad_, 0);
  detector.pass();
  EXPECT_EQ(cluster(bad_), "");
  EXPECT_TRUE(fake::log_lines().empty());
}

// Its row, as gathered anew into the history, is not the copy that the feedback has made.
TEST_F(DetectorFeedback, ThatIsWithdrawnLeavesAnAcceptedRecordInTheHistory) {
  gather(bad_);
  Detector detector = make();
  detector.pass();
  feedback(bad_, 1);
  detector.pass();
  EXPECT_EQ(cluster(bad_), "1");
  world_.run("UPDATE HIST_DATA SET USER_IDENTIFIED_CLUSTER = -1 WHERE UNIQUE_KEY = '" +
             bad_.unique_key + "'");
  feedback(bad_, 0);
  detector.pass();
  EXPECT_EQ(cluster(bad_), "-1");
  EXPECT_EQ(test::count(world_.db(), "HIST_DATA"), "41");
}

TEST_F(DetectorFeedback, ThatIsWithdrawnMakesTheBackupAnomalousAgain) {
  gather(bad_);
  Detector detector = make();
  detector.pass();
  feedback(bad_, 1);
  detector.pass();
  feedback(bad_, 0);
  detector.pass();
  EXPECT_EQ(cluster(bad_), "");
  EXPECT_EQ(status(bad_), "2");
  const Backup again = daily(42, 1000, 1e6, 9e5);
  gather(again);
  detector.pass();
  EXPECT_EQ(status(again), "2");
  EXPECT_EQ(incident_of_record(again), incident_name(bad_.unique_key)) << "it is held again";
}

// SQLite then gives its rowid to the next row of the history.
TEST_F(DetectorFeedback, ThatIsWithdrawnHidesNoRowOfTheHistory) {
  gather(bad_);
  Detector detector = make();
  detector.pass();
  feedback(bad_, 1);
  detector.pass();
  detector.pass();  // reads the row that the feedback has made
  feedback(bad_, 0);
  detector.pass();
  world_.insert("HIST_DATA", good_, -1);
  detector.pass();
  EXPECT_TRUE(knows(detector, good_));
}

TEST_F(DetectorFeedback, IsFollowedOnce) {
  gather(bad_);
  Detector detector = make();
  detector.pass();
  feedback(bad_, 1);
  detector.pass();
  world_.insert("HIST_DATA", good_, -1);
  detector.pass();
  world_.run("DELETE FROM HIST_DATA WHERE USER_IDENTIFIED_CLUSTER = 1");
  detector.pass();
  EXPECT_EQ(cluster(bad_), "");
}

TEST_F(DetectorFeedback, OnWhatTheDetectionDoesNotKnowIsIgnored) {
  gather(bad_);
  Detector detector = make();
  detector.pass();
  world_.run("INSERT INTO ANOMALY_DATA_FEEDBACK VALUES ('somebody_elses', 1, 1)");
  feedback(daily(50), 1);  // neither an anomaly nor a backup
  feedback(daily(3), 1);   // a backup, but no anomaly
  detector.pass();
  EXPECT_EQ(test::count(world_.db(), "HIST_DATA"), "40");
  EXPECT_EQ(cluster(daily(3)), "-1");
  EXPECT_EQ(world_.one("SELECT COUNT(*) FROM HIST_DATA WHERE USER_IDENTIFIED_CLUSTER <> -1"), "0");
  // An anomaly whose backup has been purged.
  feedback(bad_, 1);
  world_.run("DELETE FROM DATA_TO_PROCESS WHERE JOB_ID = 1041");
  detector.pass();
  EXPECT_EQ(test::count(world_.db(), "HIST_DATA"), "40");
}

TEST_F(DetectorFeedback, AFalsePositiveIsTheRecordWithAClusterOfItsOwn) {
  gather(bad_);
  Detector detector = make();
  detector.pass();
  feedback(bad_, 1);
  detector.pass();
  expect_same_columns(bad_, "1");
}

class HalfReadHistory : public DetectorTest {
 protected:
  static constexpr int kRows = 4096;  // so many are read between two looks for a stop

  void insert_rows(const std::string& table, int mark, const std::string& client) {
    world_.run("BEGIN");
    for (int i = 0; i < kRows; ++i) {
      Backup backup = daily(0);
      backup.stream.client = client + std::to_string(i);
      backup.unique_key = backup.stream.client;
      world_.insert(table, backup, mark);
    }
    world_.run("COMMIT");
  }
  Detector stoppable() {
    return Detector(world_.path(), Settings{}, [this] { return stopped_; });
  }

  bool stopped_ = false;
};

TEST_F(HalfReadHistory, IsNotTakenForTheWhole) {
  gather(bad_);
  make().pass();
  feedback(bad_, 1);
  insert_rows("HIST_DATA", -1, "client");
  const Backup next = daily(43, 300, 3e5);
  gather(next);
  stopped_ = true;
  Detector detector = stoppable();
  const PassCounts counts = detector.pass();
  EXPECT_EQ(counts.normal + counts.learning + counts.anomalous, 0U);
  EXPECT_EQ(cluster(bad_), "") << "feedback waits";
  EXPECT_EQ(status(next), "0");
  EXPECT_TRUE(detector.has_news());
  EXPECT_TRUE(detector.has_news());
  stopped_ = false;
  detector.pass();
  EXPECT_EQ(cluster(bad_), "1");
  EXPECT_EQ(status(next), "2");
  EXPECT_FALSE(detector.has_news());
}

TEST_F(HalfReadHistory, IsReadAnewAlsoInALaterPass) {
  Detector detector = stoppable();
  EXPECT_TRUE(detector.has_news());
  detector.pass();
  EXPECT_FALSE(detector.has_news());
  insert_rows("HIST_DATA", -1, "client");
  insert_rows("HIST_DATA", -1, "other");
  gather(bad_);
  EXPECT_TRUE(detector.has_news());
  stopped_ = true;
  detector.pass();
  EXPECT_EQ(detector.model().streams(), kRows + 1U) << "a look after so many rows";
  EXPECT_TRUE(detector.has_news()) << "what was left is still to come";
  stopped_ = false;
  detector.pass();
  EXPECT_EQ(detector.model().streams(), 2U * kRows + 1U);
  EXPECT_EQ(status(bad_), "2");
}

TEST_F(HalfReadHistory, EndsAmongTheRowsToProcessToo) {
  insert_rows("DATA_TO_PROCESS", 2, "client");
  insert_rows("DATA_TO_PROCESS", 2, "other");
  stopped_ = true;
  Detector detector = stoppable();
  detector.pass();
  EXPECT_EQ(detector.model().streams(), kRows + 1U);
  stopped_ = false;
  detector.pass();
  EXPECT_EQ(detector.model().streams(), 2U * kRows + 1U);
}

}  // namespace
}  // namespace corvane::detect
