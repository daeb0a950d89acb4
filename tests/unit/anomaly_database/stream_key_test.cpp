#include "anomaly_database/stream_key.h"

#include <gtest/gtest.h>

#include "sqlite/connection.h"

namespace corvane {
namespace {

TEST(StreamKey, UnknownPartsMatchAny) {
  const StreamKey live{"c", "p", "STANDARD", "FULL", "daily", "FS", "disk"};
  StreamKey gathered = live;
  gathered.app_type = "NONE";
  gathered.destination = "NA";
  EXPECT_TRUE(live.matches(gathered));
  EXPECT_TRUE(gathered.matches(live));
  StreamKey other = live;
  other.destination = "tape";
  EXPECT_FALSE(live.matches(other));
  EXPECT_TRUE(gathered.matches(other));
}

TEST(StreamKey, EveryOtherPartMatchesItsLikeAlone) {
  const StreamKey live{"c", "p", "STANDARD", "FULL", "daily", "FS", "disk"};
  EXPECT_TRUE(live.matches(live));
  for (const auto part : kStreamKeyParts) {
    StreamKey other = live;
    other.*part = "other";
    EXPECT_FALSE(live.matches(other)) << other.text();
    EXPECT_FALSE(other.matches(live)) << other.text();
    EXPECT_NE(live, other);
    for (const auto unknown : {&StreamKey::app_type, &StreamKey::destination}) {
      StreamKey gathered = live;
      gathered.*unknown = "";
      EXPECT_EQ(gathered.matches(other), part == unknown) << other.text();
      EXPECT_EQ(other.matches(gathered), part == unknown) << other.text();
    }
  }
}

TEST(StreamKey, HasNames) {
  const StreamKey key{"c", "p", "STANDARD", "FULL", "daily", "FS", "disk"};
  EXPECT_EQ(key.client_and_policy(), "c\np");
  EXPECT_EQ(key.family(), "c\np\nSTANDARD\nFULL\ndaily");
  EXPECT_EQ(key.text(), "c/p/STANDARD/FULL/daily/FS/disk");
}

TEST(StreamKey, IncrementalsAreThoseThatSaySo) {
  const auto is_incremental = [](const char* type) {
    StreamKey key;
    key.schedule_type = type;
    return key.is_incremental();
  };
  EXPECT_TRUE(is_incremental("INCREMENTAL"));
  EXPECT_TRUE(is_incremental("DIFFERENTIAL_INCREMENTAL"));
  EXPECT_FALSE(is_incremental("FULL"));
  EXPECT_FALSE(is_incremental(""));
}

TEST(StreamKey, IsBoundInTheOrderOfItsColumns) {
  Connection database(":memory:", Connection::Access::kCreate);
  const StreamKey key{"c", "p", "STANDARD", "FULL", "daily", "FS", "disk"};
  Query& query = database.query("SELECT ?, ?, ?, ?, ?, ?, ?, ?");
  bind_stream_key(query, key);
  query.bind(std::int64_t{8});
  ASSERT_TRUE(query.step());
  EXPECT_EQ(read_stream_key(query, 0), key);
  EXPECT_EQ(query.integer(kStreamKeyColumns), 8);
}

TEST(StreamKey, IsReadWithItsTypesFolded) {
  Connection database(":memory:", Connection::Access::kCreate);
  Query& row = database.query(
      "SELECT 7 AS BEFORE, " STREAM_KEY_COLUMNS
      " FROM (SELECT 'c' AS CLIENT, 'p' AS POLICY, 'NAS-Data-Protection' AS POLICY_TYPE,"
      " '0' AS SCHEDULE_TYPE, 'daily' AS SCHEDULE_NAME, 'FS' AS APP_TYPE,"
      " 'disk' AS DESTINATION_STORAGE_NAME)");
  ASSERT_TRUE(row.step());
  const StreamKey expected{"c", "p", "NAS_DATA_PROTECTION", "FULL", "daily", "FS", "disk"};
  EXPECT_EQ(read_stream_key(row, 1), expected);
  StreamKey into{"of", "a", "former", "row", "with", "other", "texts"};
  read_stream_key(row, 1, into);
  EXPECT_EQ(into, expected);
}

}  // namespace
}  // namespace corvane
