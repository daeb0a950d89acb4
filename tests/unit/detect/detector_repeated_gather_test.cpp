// A historical gather that is repeated, over backups that were reported.
#include <gtest/gtest.h>

#include "tests/unit/detect/detector_verdicts_world.h"

namespace corvane::detect {
namespace {

class RepeatedGather : public DetectorVerdicts, public testing::WithParamInterface<bool> {
 protected:
  static constexpr int kEncrypted = 20;

  // Twenty encrypted nights were reported; then the whole history is gathered again.
  void SetUp() override {
    DetectorVerdicts::SetUp();
    for (int day = 40; day < 40 + kEncrypted; ++day) gather(encrypted(day));
    ASSERT_EQ(pass().anomalous, std::size_t{kEncrypted});
    if (restarts()) stop();
    for (int day = 0; day < 40; ++day) world_.gather_history(daily(day));
    for (int day = 40; day < 40 + kEncrypted; ++day) world_.gather_history(encrypted(day));
  }
  static bool restarts() { return GetParam(); }
  static Backup encrypted(int day) { return daily(day, 1000, 1e6, 9e5); }
};

TEST_P(RepeatedGather, MakesNoHistoryOfWhatWasReported) {
  EXPECT_EQ(all(pass()), 0U);
  EXPECT_EQ(detector_->model().streams(), 1U);
  EXPECT_EQ(stream().history.size(), 40U);
  EXPECT_EQ(stream().held.size() + stream().older_held.size(), std::size_t{kEncrypted});
  EXPECT_EQ(test::count(world_.db(), "ANOMALY_DATA"), std::to_string(kEncrypted));
  const Backup next = encrypted(40 + kEncrypted);
  gather(next);
  EXPECT_EQ(pass().anomalous, 1U);
  EXPECT_EQ(incident_of_record(next), incident_name(encrypted(40).unique_key));
}

TEST_P(RepeatedGather, TakesNoFiguresFromTheHistory) {
  pass();
  for (const Observation& one : stream().history) {
    const int day = (one.time() - kFirstDay) / kDay;
    const Figures expected = Observation(daily(day)).figures();
    EXPECT_EQ(one.figures().transferred_kb, expected.transferred_kb) << day;
    EXPECT_EQ(one.figures().seconds, expected.seconds) << day;
  }
  for (const Held& one : stream().held) EXPECT_GT(one.observation.figures().transferred_kb, 8e5);
}

TEST_P(RepeatedGather, HidesNoFalsePositive) {
  const Backup one = encrypted(45);
  feedback(one, 1);
  EXPECT_EQ(all(pass()), 0U);
  EXPECT_EQ(cluster(one), "1") << "in place of the row that the gather wrote";
  EXPECT_EQ(own(one)->cluster, 1);
  stop();
  world_.gather_history(one);
  pass();
  EXPECT_EQ(stream().by_people.size(), 1U);
  EXPECT_EQ(stream().history.size(), 40U);
  EXPECT_EQ(cluster(one), "1") << "put back";
  world_.gather_history(one);
  feedback(one, 0);
  pass();
  EXPECT_EQ(cluster(one), "-1") << "the gather's row stays";
  EXPECT_EQ(own(one)->cluster, -1);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(stream().by_people.size(), 0U) << round;
    EXPECT_EQ(stream().history.size(), 40U) << round;
    stop();
    pass();
  }
}

// The anomalies are known from the anomaly database; the figures of the others are lost.
TEST_P(RepeatedGather, IsHarmlessEvenWithoutTheOwnDatabase) {
  stop();
  std::filesystem::remove(world_.own_path());
  EXPECT_EQ(all(pass()), 0U);
  EXPECT_EQ(own(encrypted(47))->incident, incident_name(encrypted(40).unique_key));
  const Backup next = encrypted(40 + kEncrypted);
  gather(next);
  EXPECT_EQ(detector_->model().streams(), 2U) << "the gather does not know the whole stream";
  EXPECT_EQ(stream().held.size() + stream().older_held.size(), std::size_t{kEncrypted});
  const Backup deleted = daily(41 + kEncrypted, 300, 3e5);
  gather(deleted);
  pass();
  EXPECT_EQ(status(deleted), "2");
}

// Without the anomaly, too: it was deleted, or the whole anomaly database was.
TEST_P(RepeatedGather, HoldsWhatIsKnownFromTheOwnDatabaseAlone) {
  stop();
  world_.run("DELETE FROM ANOMALY_DATA");
  world_.run("DELETE FROM DATA_TO_PROCESS");
  pass();
  EXPECT_EQ(stream().held.size() + stream().older_held.size(), std::size_t{kEncrypted});
  const Backup next = encrypted(40 + kEncrypted);
  gather(next);
  pass();
  EXPECT_EQ(incident_of_record(next), incident_name(encrypted(40).unique_key));
}

// The service stored them while the detection was disabled.
TEST_P(RepeatedGather, HoldsLiveRowsThatAreKnownFromTheOwnDatabaseAlone) {
  stop();
  world_.run("DELETE FROM ANOMALY_DATA");
  world_.run("DELETE FROM DATA_TO_PROCESS");
  for (int day = 40; day < 40 + kEncrypted; ++day) world_.insert("HIST_DATA", encrypted(day), -1);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(all(pass()), 0U);
    EXPECT_EQ(stream().history.size(), 40U);
    EXPECT_EQ(stream().held.size() + stream().older_held.size(), std::size_t{kEncrypted});
    EXPECT_EQ(own(encrypted(45))->judged_as, JudgedAs::kAnomalous);
    stop();
  }
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutARestart, RepeatedGather, testing::Bool());

}  // namespace
}  // namespace corvane::detect
