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
  EXPECT_EQ(read(kNow - 4 * kDay + 1, 1000).streams[0].size(), 4U);
}

TEST_F(SeriesTest, AnomalousOnesFromTheMomentItself) {
  insert("DATA_TO_PROCESS", {.time = kNow, .mark = 2});
  EXPECT_EQ(read(kNow, 1000).streams[0].size(), 1U);
  EXPECT_EQ(read(kNow + 1, 1000).streams[0].size(), 0U);
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

TEST_F(SeriesTest, AsManyAsThereMayBeAreNotTooMany) {
  history({.client = "a"}, 20);
  history({.client = "b"}, 20);
  EXPECT_FALSE(read(0, 40).is_shortened);
  const AllSeries series = read(0, 39);
  EXPECT_TRUE(series.is_shortened);
  EXPECT_EQ(series.streams[0].size(), 19U);
  EXPECT_EQ(series.streams[1].size(), 19U);
  EXPECT_EQ(series.streams[1].front().time, kNow - 19 * kDay);
}

TEST_F(SeriesTest, TenOfEachAreKeptHoweverFewThereMayBe) {
  history({.client = "a"}, 12);
  history({.client = "b"}, 9);
  for (const std::size_t most : {1, 18, 20}) {
    const AllSeries series = read(0, most);
    EXPECT_EQ(series.streams[0].size(), 10U) << most;
    EXPECT_EQ(series.streams[1].size(), 9U) << most;
  }
}

TEST_F(SeriesTest, OfNoStreamsAreNone) {
  const AllSeries none = read_series(
      database, 0, [](const StreamKey&) { return std::nullopt; }, 0, 0);
  EXPECT_TRUE(none.streams.empty());
  EXPECT_FALSE(none.is_shortened);
}

TEST_F(SeriesTest, AStreamIsLookedUpOnceForEachSpelling) {
  history({}, 3);
  history({.policy_type = "Standard"}, 2);
  int looked_up = 0;
  read_series(
      database, 1,
      [&](const StreamKey&) {
        ++looked_up;
        return std::optional<std::size_t>(0);
      },
      0, 100);
  EXPECT_EQ(looked_up, 2);
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
