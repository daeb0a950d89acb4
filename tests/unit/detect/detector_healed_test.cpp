// A database that was lost, emptied, or replaced by an older copy; its rows are healed.
#include <gtest/gtest.h>

#include "tests/unit/detect/detector_verdicts_world.h"

namespace corvane::detect {
namespace {

class Healed : public DetectorVerdicts, public testing::WithParamInterface<bool> {
 protected:
  static constexpr int kWeeks = 40;
  static constexpr int kHealed = 27;  // from here on

  static Backup week(int number) {
    if (number == kWeeks) return weekly(7 * number, 10, 1e4);
    if (number == kWeeks + 1) return weekly(7 * number, 400, 4e5);
    return weekly(7 * number);
  }
  void SetUp() override {
    DetectorVerdicts::SetUp();
    for (int number = 0; number < kWeeks; ++number) world_.insert("HIST_DATA", week(number), -1);
    gather(reported_);
    gather(false_positive_);
    ASSERT_EQ(pass().anomalous, 2U);
    feedback(false_positive_, 1);
    pass();
    ASSERT_EQ(cluster(false_positive_), "1");
  }
  void lose(const char* tables) { world_.run(std::string("DELETE FROM ") + tables); }
  void lose_everything() {
    for (const char* table :
         {"HIST_DATA", "DATA_TO_PROCESS", "ANOMALY_DATA", "ANOMALY_DATA_FEEDBACK"}) {
      lose(table);
    }
    if (GetParam()) stop();
  }
  const Stream& weekly_stream() {
    for (const auto& one : detector_->model().all()) {
      if (one->key == reported_.stream) return *one;
    }
    throw std::logic_error("no such stream");
  }
  void expect_nothing_learnt() {
    for (int round = 0; round < 2; ++round) {
      EXPECT_EQ(weekly_stream().history.size(), std::size_t{kWeeks - kHealed});
      EXPECT_EQ(weekly_stream().held.size(), 1U);
      EXPECT_EQ(weekly_stream().by_people.size(), 1U);
      EXPECT_EQ(own(reported_)->judged_as, JudgedAs::kAnomalous);
      EXPECT_EQ(own(reported_)->incident, incident_name(reported_.unique_key));
      EXPECT_EQ(own(false_positive_)->judged_as, JudgedAs::kAnomalous);
      EXPECT_EQ(own(false_positive_)->cluster, 1);
      stop();
      EXPECT_EQ(all(pass()), 0U);
    }
  }

  const Backup reported_ = week(kWeeks);
  const Backup false_positive_ = week(kWeeks + 1);
};

TEST_P(Healed, RowsOfAStreamThatLearnsAgainKeepTheirVerdicts) {
  lose_everything();
  for (int number = kHealed; number < kWeeks + 2; ++number) gather(week(number));
  EXPECT_EQ(all(pass()), 0U);
  EXPECT_EQ(status(reported_) + status(false_positive_) + status(week(kHealed)), "211");
  EXPECT_EQ(cluster(reported_), "");
  EXPECT_EQ(cluster(false_positive_), "1");
  EXPECT_EQ(test::count(world_.db(), "ANOMALY_DATA"), "0") << "too little to compare it with";
  expect_nothing_learnt();
}

TEST_P(Healed, RowsThatAreStillUnusualAreReportedAgain) {
  lose_everything();
  for (int number = 0; number < kWeeks + 2; ++number) gather(week(number));
  EXPECT_EQ(pass().anomalous, 1U);
  EXPECT_EQ(test::query_column(world_.db(), "SELECT ANOMALY_UNIQUE_ID FROM ANOMALY_DATA"),
            std::vector{anomaly_id(reported_.unique_key)});
  EXPECT_EQ(weekly_stream().held.size(), 1U);
  EXPECT_EQ(weekly_stream().history.size(), std::size_t{kWeeks});
}

TEST_P(Healed, RowsOfTheHistoryKeepTheirVerdicts) {
  lose_everything();
  for (int number = kHealed; number < kWeeks + 2; ++number) {
    world_.insert("HIST_DATA", week(number), -1);
  }
  EXPECT_EQ(all(pass()), 0U);
  expect_nothing_learnt();
}

// The copy is from before the feedback. The row was gathered again, or not.
TEST_P(Healed, AFalsePositiveThatAnOlderCopyDoesNotKnowIsPutBack) {
  for (const int waits : {0, 1}) {
    lose("HIST_DATA WHERE USER_IDENTIFIED_CLUSTER = 1");
    lose("ANOMALY_DATA_FEEDBACK");
    stop();
    if (!GetParam()) pass();
    if (waits == 1) gather(false_positive_);
    EXPECT_EQ(all(pass()), 0U);
    EXPECT_EQ(cluster(false_positive_), "1");
    EXPECT_EQ(status(false_positive_), "2");
    EXPECT_EQ(own(false_positive_)->cluster, 1);
    EXPECT_EQ(weekly_stream().by_people.size(), 1U);
    EXPECT_EQ(weekly_stream().held.size(), 1U);
    EXPECT_EQ(weekly_stream().history.size(), std::size_t{kWeeks});
  }
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutARestart, Healed, testing::Bool());

}  // namespace
}  // namespace corvane::detect
