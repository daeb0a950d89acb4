#include "anomaly_database/stream_scan.h"

#include <algorithm>

#include "tests/support/anomaly_tables.h"

namespace corvane {
namespace {

using test::kNow;
using test::TestBackup;

class StreamScanTest : public test::AnomalyTables {
 protected:
  StreamScan scan() { return scan_streams(database); }
};

TEST_F(StreamScanTest, CountsAStreamsBackups) {
  history({}, 40);
  insert("HIST_DATA", {.time = kNow - 50 * kDay, .mark = 3});
  insert("DATA_TO_PROCESS", {.time = kNow - 20, .mark = 0});
  insert("DATA_TO_PROCESS", {.time = kNow - 10, .mark = 2});
  insert("DATA_TO_PROCESS", {.time = kNow - kDay, .mark = 1});  // in the history too
  const StreamScan found = scan();
  ASSERT_EQ(found.streams.size(), 1U);
  const ScannedStream& stream = found.streams[0];
  ASSERT_EQ(stream.accepted.size(), 40U);
  EXPECT_EQ(stream.accepted.front(), kNow - 40 * kDay);
  EXPECT_EQ(stream.accepted.back(), kNow - kDay);
  EXPECT_EQ(stream.false_positives, 1);
  EXPECT_EQ(stream.waiting, 1);
  EXPECT_EQ(stream.anomalous, 1);
  EXPECT_EQ(stream.newest, kNow - 10);
  EXPECT_EQ(found.history_rows, 41);
  EXPECT_EQ(found.process_rows, 3);
  EXPECT_EQ(found.waiting_rows, 1);
  EXPECT_EQ(found.oldest_waiting, kNow - 20);
}

TEST_F(StreamScanTest, TheNewestIsOfAnyKind) {
  for (const TestBackup& newest :
       {TestBackup{.time = kNow, .mark = -1}, TestBackup{.time = kNow, .mark = 3}}) {
    sql("DELETE FROM HIST_DATA");
    insert("HIST_DATA", newest);
    insert("HIST_DATA", {.time = kNow - 1});
    EXPECT_EQ(scan().streams.at(0).newest, kNow);
  }
  for (const int status : {0, 2}) {
    sql("DELETE FROM DATA_TO_PROCESS");
    insert("DATA_TO_PROCESS", {.time = kNow + 2, .mark = status});
    insert("DATA_TO_PROCESS", {.time = kNow + 1, .mark = status});
    EXPECT_EQ(scan().streams.at(0).newest, kNow + 2) << status;
  }
}

TEST_F(StreamScanTest, OfThoseThatWaitTheOldestIsTold) {
  for (const int ago : {20, 30, 10}) insert("DATA_TO_PROCESS", {.time = kNow - ago, .mark = 0});
  insert("DATA_TO_PROCESS", {.client = "b", .time = kNow - 25, .mark = 0});
  insert("DATA_TO_PROCESS", {.time = kNow - 40, .mark = 7});  // of another version
  const StreamScan found = scan();
  EXPECT_EQ(found.oldest_waiting, kNow - 30);
  EXPECT_EQ(found.waiting_rows, 4);
  EXPECT_EQ(found.process_rows, 5);
  ASSERT_EQ(found.streams.size(), 2U);
  EXPECT_EQ(found.streams[0].waiting, 3);
  EXPECT_EQ(found.streams[1].waiting, 1);
  EXPECT_EQ(found.streams[1].key.client, "b");
}

TEST_F(StreamScanTest, AcceptedOnesAreInOrder) {
  for (const int ago : {20, 30, 10}) insert("HIST_DATA", {.time = kNow - ago});
  EXPECT_EQ(scan().streams.at(0).accepted,
            (std::vector<std::int32_t>{kNow - 30, kNow - 20, kNow - 10}));
}

TEST_F(StreamScanTest, SpellingsOfTypesAreOneStream) {
  history({.time = kNow, .policy_type = "NAS-Data-Protection", .schedule_type = "0"}, 2);
  history({.time = kNow - 5 * kDay, .policy_type = "NAS_DATA_PROTECTION"}, 3);
  const StreamScan found = scan();
  ASSERT_EQ(found.streams.size(), 1U);
  EXPECT_EQ(found.streams[0].accepted.size(), 5U);
  EXPECT_TRUE(std::ranges::is_sorted(found.streams[0].accepted));
}

// The names of the one would, put together, be those of the other.
TEST_F(StreamScanTest, NamesAreToldApartWhereTheyEnd) {
  insert("HIST_DATA", {.client = "ab", .policy = "c"});
  insert("HIST_DATA", {.client = "a", .policy = "bc"});
  insert("HIST_DATA", {.client = "ab", .time = kNow + 1, .policy = "c"});
  const StreamScan found = scan();
  ASSERT_EQ(found.streams.size(), 2U);
  EXPECT_EQ(found.streams[0].accepted.size(), 2U);
  EXPECT_EQ(found.streams[1].accepted.size(), 1U);
}

TEST_F(StreamScanTest, StreamsInTurnsAreCountedApart) {
  const std::vector<std::string> clients{"a", "b", "a", "c", "b", "a", "c", "c"};
  for (std::size_t i = 0; i < clients.size(); ++i) {
    insert("HIST_DATA", {.client = clients[i], .time = kNow + static_cast<std::int64_t>(i)});
  }
  const StreamScan found = scan();
  ASSERT_EQ(found.streams.size(), 3U);
  for (const ScannedStream& stream : found.streams) {
    EXPECT_EQ(static_cast<std::ptrdiff_t>(stream.accepted.size()),
              std::ranges::count(clients, stream.key.client));
  }
}

TEST_F(StreamScanTest, MoreThanOnePortionIsReadWhole) {
  sql("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 250001) "
      "INSERT INTO HIST_DATA SELECT 'b', i, 'web01', 'p', 'S', 'FULL', 'daily', 'FS', 1, 1, i, 1, "
      "1, 1, 1, 1, 1, 1, -1, 'disk', 1, 'NA', 'k' || i FROM n");
  const StreamScan found = scan();
  EXPECT_EQ(found.history_rows, 250001);
  ASSERT_EQ(found.streams.size(), 1U);
  EXPECT_EQ(found.streams[0].accepted.size(), 250001U);
}

TEST_F(StreamScanTest, OfAnEmptyDatabaseFindsNothing) {
  const StreamScan found = scan();
  EXPECT_TRUE(found.streams.empty());
  EXPECT_EQ(found.oldest_waiting, 0);
}

}  // namespace
}  // namespace corvane
