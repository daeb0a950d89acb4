#include "operator_tool/series.h"

#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::ctl {
namespace {

class SeriesTest : public OperatorWorld {
 protected:
  AllSeries read(std::int64_t since, std::size_t most) {
    Database opened(database());
    return read_series(opened, survey(opened, {}, kNow), since, most);
  }
};

TEST_F(SeriesTest, FromAMomentOnByTime) {
  history({}, 10);
  insert("DATA_TO_PROCESS", {.time = kNow - 3 * kDay - 5, .mark = 2});
  insert("DATA_TO_PROCESS", {.time = kNow - 7, .mark = 1});
  insert("HIST_DATA", {.time = kNow - 9, .mark = 4});  // people's: it was reported
  const AllSeries series = read(kNow - 4 * kDay, 1000);
  ASSERT_EQ(series.streams.size(), 1U);
  ASSERT_EQ(series.streams[0].size(), 5U);
  EXPECT_EQ(series.streams[0][0].time, kNow - 4 * kDay);
  EXPECT_TRUE(series.streams[0][1].is_reported);
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

}  // namespace
}  // namespace corvane::ctl
