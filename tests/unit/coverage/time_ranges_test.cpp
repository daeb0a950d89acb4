#include "coverage/time_ranges.h"

#include <gtest/gtest.h>

#include <bitset>

namespace corvane::coverage {
namespace {

using Ranges = std::vector<TimeRange>;

TimeRanges set_of(const Ranges& ranges) {
  TimeRanges set;
  for (const TimeRange& range : ranges) set.add(range);
  return set;
}

TEST(TimeRanges, JoinWhatTouches) {
  EXPECT_EQ(set_of({{10, 19}, {20, 29}}).all(), (Ranges{{10, 29}}));
  EXPECT_EQ(set_of({{20, 29}, {10, 19}}).all(), (Ranges{{10, 29}}));
  EXPECT_EQ(set_of({{10, 19}, {21, 29}}).all(), (Ranges{{10, 19}, {21, 29}}));
  EXPECT_EQ(set_of({{10, 19}, {12, 13}}).all(), (Ranges{{10, 19}}));
  EXPECT_EQ(set_of({{10, 19}, {30, 39}, {50, 59}, {15, 49}}).all(), (Ranges{{10, 59}}));
}

TEST(TimeRanges, LoseTheirMiddleAndTheirEnds) {
  TimeRanges set = set_of({{10, 39}});
  set.remove({20, 29});
  EXPECT_EQ(set.all(), (Ranges{{10, 19}, {30, 39}}));
  set.remove({0, 10});
  set.remove({39, 50});
  EXPECT_EQ(set.all(), (Ranges{{11, 19}, {30, 38}}));
  set.remove({0, kEver});
  EXPECT_EQ(set.all(), Ranges{});
}

TEST(TimeRanges, KnowTheirGaps) {
  const TimeRanges set = set_of({{10, 19}, {30, 39}});
  EXPECT_EQ(set.gaps_in({0, 50}), (Ranges{{0, 9}, {20, 29}, {40, 50}}));
  EXPECT_EQ(set.gaps_in({10, 39}), (Ranges{{20, 29}}));
  EXPECT_EQ(set.gaps_in({12, 18}), Ranges{});
  EXPECT_EQ(set.gaps_in({25, 24}), Ranges{});
}

TEST(TimeRanges, AnEmptyRangeChangesNothing) {
  TimeRanges set = set_of({{10, 19}, {15, 14}, {30, 29}});
  set.remove({15, 14});
  EXPECT_EQ(set.all(), (Ranges{{10, 19}}));
}

// Against a set of bits, with every range in a small world.
TEST(TimeRanges, AreTheSameAsSingleSeconds) {
  constexpr int kWorld = 12;
  unsigned drawn = 1;
  for (int round = 0; round < 300; ++round) {
    TimeRanges set;
    std::bitset<kWorld> bits;
    for (int step = 0; step < 6; ++step) {
      drawn = drawn * 1103515245 + 12345;
      const int begin = static_cast<int>(drawn >> 16) % kWorld;
      const int end = std::min(kWorld - 1, begin + static_cast<int>(drawn >> 24) % 5);
      const bool adds = (drawn >> 8) % 3 != 0;
      adds ? set.add({begin, end}) : set.remove({begin, end});
      for (int second = begin; second <= end; ++second) bits[second] = adds;
    }
    std::bitset<kWorld> found;
    std::int64_t last_end = -2;
    for (const TimeRange& range : set.all()) {
      EXPECT_GT(range.begin, last_end + 1);
      last_end = range.end;
      for (std::int64_t second = range.begin; second <= range.end; ++second) found[second] = true;
    }
    ASSERT_EQ(found, bits);
    for (const TimeRange& gap : set.gaps_in({0, kWorld - 1})) {
      for (std::int64_t second = gap.begin; second <= gap.end; ++second) found[second] = true;
    }
    EXPECT_TRUE(found.all());
  }
}

}  // namespace
}  // namespace corvane::coverage
