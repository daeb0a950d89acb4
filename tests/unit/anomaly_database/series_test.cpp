#include "anomaly_database/series.h"

#include "tests/support/anomaly_tables.h"

namespace corvane {
namespace {

using test::kNow;

class SeriesTest : public test::AnomalyTables {
 protected:
  // A series for each client: web01 or a, then b.
  AllSeries read(std::int64_t since, std::size_t most) {
    return read_series(
        database, 2,
        [](const StreamKey& key) -> std::optional<std::size_t> {
          if (key.client == "none") return std::nullopt;
          return key.client == "b" ? 1 : 0;
        },
        since, most);
  }
};

TEST_F(SeriesTest, FromAMomentOnByTime) {
  history({}, 10);
  insert("DATA_TO_PROCESS", {.time = kNow - 3 * kDay - 5, .mark = 2});
  insert("DATA_TO_PROCESS", {.time = kNow - 7, .mark = 1});
  insert("HIST_DATA", {.time = kNow - 9, .mark = 4});  // people's: it was anomalous
  const AllSeries series = read(kNow - 4 * kDay, 1000);
  ASSERT_EQ(series.streams.size(), 2U);
  ASSERT_EQ(series.streams[0].size(), 5U);
  EXPECT_EQ(series.streams[0][0].time, kNow - 4 * kDay);
  EXPECT_EQ(series.streams[0][0].files, 1000);
  EXPECT_EQ(series.streams[0][0].size_kb, 100000);
  EXPECT_EQ(series.streams[0][0].transferred_kb, 5000);
  EXPECT_FALSE(series.streams[0][0].is_anomalous);
  EXPECT_TRUE(series.streams[0][1].is_anomalous);
  EXPECT_EQ(series.streams[0][4].time, kNow - kDay);
  EXPECT_FALSE(series.is_shortened);
}

TEST_F(SeriesTest, TheNewestAreKeptWhenThereAreTooMany) {
  history({.client = "a"}, 100);
  history({.client = "b"}, 15);
  const AllSeries series = read(0, 40);
  EXPECT_TRUE(series.is_shortened);
  EXPECT_EQ(series.streams[0].size(), 20U);
  EXPECT_EQ(series.streams[0].back().time, kNow - kDay);
  EXPECT_EQ(series.streams[1].size(), 15U);
}

TEST_F(SeriesTest, AStreamOfNoSeriesIsLeftOut) {
  history({.client = "none"}, 3);
  history({.client = "b"}, 2);
  const AllSeries series = read(0, 1000);
  EXPECT_TRUE(series.streams[0].empty());
  EXPECT_EQ(series.streams[1].size(), 2U);
}

}  // namespace
}  // namespace corvane
