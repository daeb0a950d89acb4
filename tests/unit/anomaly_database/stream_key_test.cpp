#include "anomaly_database/stream_key.h"

#include <gtest/gtest.h>

#include "sqlite/query.h"

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
  other = live;
  other.schedule_name = "weekly";
  EXPECT_FALSE(live.matches(other));
}

TEST(StreamKey, IsReadWithItsTypesFolded) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(":memory:", &db), SQLITE_OK);
  {
    Query row(db,
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
  sqlite3_close(db);
}

}  // namespace
}  // namespace corvane
