#include "anomaly_database/stream_history.h"

#include "tests/support/anomaly_tables.h"

namespace corvane {
namespace {

using test::key_of;
using test::kNow;

class StreamHistoryTest : public test::AnomalyTables {
 protected:
  std::vector<HistoryPoint> read(std::int64_t until = kNow, std::size_t most = 100) {
    return read_stream_history(
        database, {"web01", "nightly", "STANDARD", "FULL", "daily", "FS", "disk"}, until, most);
  }
};

TEST_F(StreamHistoryTest, AcceptedAndAnomalousBackupsByTime) {
  history({}, 3);
  insert("DATA_TO_PROCESS", {.time = kNow - 2 * kDay + 5, .mark = 2, .files = 7});
  insert("DATA_TO_PROCESS", {.time = kNow - 5, .mark = 0});     // not judged
  insert("DATA_TO_PROCESS", {.time = kNow - kDay, .mark = 1});  // in the history
  insert("HIST_DATA", {.time = kNow + 5});                      // later
  const std::vector<HistoryPoint> points = read();
  ASSERT_EQ(points.size(), 4U);
  EXPECT_EQ(points[0].time, kNow - 3 * kDay);
  EXPECT_FALSE(points[1].is_anomalous);
  EXPECT_TRUE(points[2].is_anomalous);
  EXPECT_EQ(points[2].unique_key, key_of({.time = kNow - 2 * kDay + 5}));
  EXPECT_EQ(points[2].figures.files, 7);
  EXPECT_EQ(points[3].time, kNow - kDay);
  EXPECT_EQ(points[3].figures.seconds, 60);
  EXPECT_FALSE(points[3].is_anomalous);
  EXPECT_EQ(points[3].unique_key, key_of({.time = kNow - kDay}));
  EXPECT_EQ(read(kNow - kDay).size(), 4U);  // up to the moment itself
  EXPECT_EQ(read(kNow - kDay - 1).size(), 3U);
  EXPECT_EQ(read(kNow, 4).size(), 4U);
  EXPECT_EQ(read(kNow, 3).size(), 3U);
}

TEST_F(StreamHistoryTest, AFalsePositiveIsOneAnomalousBackup) {
  insert("HIST_DATA", {.mark = 4});
  insert("DATA_TO_PROCESS", {.mark = 2});
  const std::vector<HistoryPoint> points = read();
  ASSERT_EQ(points.size(), 1U);
  EXPECT_TRUE(points[0].is_anomalous);
}

TEST_F(StreamHistoryTest, OnlyWhatMatchesTheStream) {
  insert("HIST_DATA", {.time = kNow - 1, .app = "NONE", .destination = "NA"});
  insert("HIST_DATA", {.time = kNow - 2, .schedule_type = "0"});
  insert("HIST_DATA", {.time = kNow - 3, .destination = "other"});
  insert("HIST_DATA", {.time = kNow - 4, .schedule_type = "INCREMENTAL"});
  insert("HIST_DATA", {.client = "db01", .time = kNow - 5});
  insert("HIST_DATA", {.time = kNow - 6, .policy = "other"});
  insert("HIST_DATA", {.time = kNow - 7, .schedule = "weekly"});
  const std::vector<HistoryPoint> points = read();
  ASSERT_EQ(points.size(), 2U);
  EXPECT_EQ(points[0].time, kNow - 2);
  EXPECT_EQ(points[1].time, kNow - 1);
}

TEST_F(StreamHistoryTest, TheNewestOfMany) {
  history({}, 10);
  const std::vector<HistoryPoint> points = read(kNow - 3 * kDay, 2);
  ASSERT_EQ(points.size(), 2U);
  EXPECT_EQ(points[0].time, kNow - 4 * kDay);
  EXPECT_EQ(points[1].time, kNow - 3 * kDay);
}

}  // namespace
}  // namespace corvane
