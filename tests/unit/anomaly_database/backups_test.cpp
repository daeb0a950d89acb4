#include "anomaly_database/backups.h"

#include "anomaly_database/backup_types.h"
#include "anomaly_database/schema.h"
#include "tests/support/anomaly_tables.h"

namespace corvane {
namespace {

using test::key_of;
using test::kNow;
using test::TestBackup;

class Backups : public test::AnomalyTables {
 protected:
  static bool is(const Backup& backup, const TestBackup& wanted) {
    return backup.unique_key == key_of(wanted) && backup.time == wanted.time;
  }
  std::string mark_of(const std::string& table, const std::string& column, const TestBackup& of) {
    return test::query_one(database.handle(), "SELECT " + column + " FROM " + table +
                                                  " WHERE UNIQUE_KEY = '" + key_of(of) + "'");
  }
};

TEST_F(Backups, AreReadWithAllThatTheDetectionGoesBy) {
  insert("HIST_DATA", {.client = "it's",
                       .policy_type = "NAS-Data-Protection",
                       .schedule_type = "0",
                       .files = 7,
                       .size_kb = 8.5,
                       .transferred_kb = 9});
  const auto found = find_backup(database, key_of({.client = "it's"}));
  ASSERT_TRUE(found);
  EXPECT_EQ(found->backup_id, "it's_1700000000");
  EXPECT_EQ(found->job_id, 0);
  EXPECT_EQ(found->time, kNow);
  EXPECT_EQ(found->figures.files, 7);
  EXPECT_EQ(found->figures.size_kb, 8.5);
  EXPECT_EQ(found->figures.transferred_kb, 9);
  EXPECT_EQ(found->figures.ratio, 20);
  EXPECT_EQ(found->figures.seconds, 60);
  EXPECT_EQ(found->unique_key, key_of({.client = "it's"}));
  EXPECT_EQ(found->stream, (StreamKey{"it's", "nightly", fold_policy_type("NAS-Data-Protection"),
                                      "FULL", "daily", "FS", "disk"}));
}

TEST_F(Backups, AreFoundInEitherTable) {
  insert("HIST_DATA", {.client = "a"});
  insert("DATA_TO_PROCESS", {.client = "b", .mark = 0});
  EXPECT_EQ(find_backup(database, key_of({.client = "a"}))->stream.client, "a");
  EXPECT_EQ(find_backup(database, key_of({.client = "b"}))->stream.client, "b");
  EXPECT_FALSE(find_backup(database, "none"));
  EXPECT_TRUE(is_in_history(database, key_of({.client = "a"})));
  EXPECT_FALSE(is_in_history(database, key_of({.client = "b"})));
}

TEST_F(Backups, ThatAreInBothTablesAreReadAsTheyWereGatheredLast) {
  insert("HIST_DATA", {.files = 7});
  insert("DATA_TO_PROCESS", {.files = 8});
  EXPECT_EQ(find_backup(database, key_of({}))->figures.files, 8);
  database.execute("DROP TABLE DATA_TO_PROCESS");  // no reader was left behind
}

TEST_F(Backups, OfTheHistoryAreReadFromARowOn) {
  insert("HIST_DATA", {.client = "a"});
  insert("HIST_DATA", {.client = "b", .mark = 3});
  insert("HIST_DATA", {.client = "c"});
  std::string read;
  const auto visit = [&](const HistoryRow& row) {
    read += row.backup.stream.client + std::to_string(row.cluster);
    return true;
  };
  EXPECT_EQ(read_history(database, 0, visit), 3);
  EXPECT_EQ(read, "a-1b3c-1");
  read.clear();
  EXPECT_EQ(read_history(database, 2, visit), 3);
  EXPECT_EQ(read, "c-1");
  EXPECT_EQ(read_history(database, 3, visit), 3);  // nothing new
  EXPECT_EQ(last_history_rowid(database), 3);
  EXPECT_EQ(last_rowid_to_process(database), 0);
  EXPECT_EQ(last_history_key(database), key_of({.client = "c"}));
  EXPECT_EQ(last_key_to_process(database), "");
  int seen = 0;
  EXPECT_EQ(read_history(database, 0, [&](const HistoryRow&) { return ++seen < 2; }), 2);
  database.execute("DROP TABLE HIST_DATA");  // no reader was left behind
}

TEST_F(Backups, OfTheHistoryHaveARowAClusterAndAMode) {
  insert("HIST_DATA", {.client = "a", .mark = 5});
  insert("HIST_DATA", {.client = "b"});
  database.execute("UPDATE HIST_DATA SET MODE = CLIENT = 'a'");
  std::vector<HistoryRow> rows;
  read_history(database, 0, [&](const HistoryRow& row) {
    rows.push_back(row);
    return true;
  });
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].rowid, 1);
  EXPECT_EQ(rows[0].mode, GatherMode::kLive);
  EXPECT_EQ(rows[1].rowid, 2);
  EXPECT_EQ(rows[1].mode, GatherMode::kHistorical);
  for (const HistoryRow& row : rows) {
    const HistoryRow found = find_in_history(database, row.backup.unique_key).value();
    EXPECT_EQ(found.rowid, row.rowid);
    EXPECT_EQ(found.cluster, row.cluster);
    EXPECT_EQ(found.mode, row.mode);
    EXPECT_EQ(found.backup.stream.client, row.backup.stream.client);
  }
  EXPECT_FALSE(find_in_history(database, "none"));
  database.execute("DROP TABLE HIST_DATA");  // no reader was left behind
}

TEST_F(Backups, ToProcessAreReadFromARowOn) {
  insert("DATA_TO_PROCESS", {.client = "a", .mark = 0});
  insert("DATA_TO_PROCESS", {.client = "b", .mark = 2});
  std::vector<std::int64_t> rows;
  std::vector<ProcessedStatus> statuses;
  std::string clients;
  const auto visit = [&](const RowToProcess& row, ProcessedStatus status) {
    rows.push_back(row.rowid);
    statuses.push_back(status);
    clients += row.backup.stream.client;
    return true;
  };
  EXPECT_EQ(read_rows_to_process(database, 0, visit), 2);
  EXPECT_EQ(rows, (std::vector<std::int64_t>{1, 2}));
  EXPECT_EQ(statuses, (std::vector{ProcessedStatus::kWaiting, ProcessedStatus::kAnomalous}));
  EXPECT_EQ(read_rows_to_process(database, 1, visit), 2);
  EXPECT_EQ(rows, (std::vector<std::int64_t>{1, 2, 2}));
  EXPECT_EQ(clients, "abb");
  EXPECT_EQ(read_rows_to_process(database, 2, visit), 2);  // nothing new
  EXPECT_EQ(last_rowid_to_process(database), 2);
  EXPECT_EQ(last_history_rowid(database), 0);
  EXPECT_EQ(last_key_to_process(database), key_of({.client = "b"}));
  EXPECT_EQ(last_history_key(database), "");
  EXPECT_EQ(read_rows_to_process(database, 0, [](const RowToProcess&, auto) { return false; }), 1);
  database.execute("DROP TABLE DATA_TO_PROCESS");  // no reader was left behind
}

TEST_F(Backups, ThatWaitAreCountedAndTheFirstIsKnown) {
  EXPECT_EQ(count_waiting(database), 0);
  EXPECT_EQ(first_waiting(database), 0);
  insert("DATA_TO_PROCESS", {.client = "a", .mark = 1});
  insert("DATA_TO_PROCESS", {.client = "b", .mark = 0});
  insert("DATA_TO_PROCESS", {.client = "c", .mark = 2});
  insert("DATA_TO_PROCESS", {.client = "d", .mark = 0});
  EXPECT_EQ(count_waiting(database), 2);
  EXPECT_EQ(first_waiting(database), 2);
}

TEST_F(Backups, ThatWereAcceptedAreReadOfSomeTimeOn) {
  insert("HIST_DATA", {.client = "old", .time = kNow - kDay});
  insert("HIST_DATA", {.client = "new"});
  insert("HIST_DATA", {.client = "false positive", .mark = 1});
  std::string read;
  const auto visit = [&](const StreamKey& stream, std::int64_t time) {
    read += stream.client + std::to_string(time) + " ";
  };
  read_accepted(database, 0, kNow - kDay, visit);
  EXPECT_EQ(read, "new1700000000 ");
  read.clear();
  read_accepted(database, 0, kNow - kDay - 1, visit);
  EXPECT_EQ(read, "old1699913600 new1700000000 ");
  read.clear();
  read_accepted(database, 1, 0, visit);
  EXPECT_EQ(read, "new1700000000 ");
}

TEST_F(Backups, AreMarkedOnlyWhileTheyWait) {
  insert("DATA_TO_PROCESS", {.mark = 0});
  insert("DATA_TO_PROCESS", {.client = "other", .mark = 0});
  EXPECT_TRUE(mark_processed(database, 1, ProcessedStatus::kAnomalous));
  EXPECT_EQ(mark_of("DATA_TO_PROCESS", "PROCESSED_STATUS", {.client = "other"}), "0");
  EXPECT_EQ(mark_of("DATA_TO_PROCESS", "PROCESSED_STATUS", {}), "2");
  EXPECT_FALSE(mark_processed(database, 1, ProcessedStatus::kNormal));
  EXPECT_EQ(mark_of("DATA_TO_PROCESS", "PROCESSED_STATUS", {}), "2");
  EXPECT_TRUE(mark_processed(database, 2, ProcessedStatus::kNormal));
  EXPECT_FALSE(mark_processed(database, 3, ProcessedStatus::kNormal));
}

TEST_F(Backups, AreAddedToTheHistoryColumnByColumn) {
  insert("DATA_TO_PROCESS", {.mark = 2, .files = 7});
  insert("DATA_TO_PROCESS", {.client = "other", .mark = 2});
  insert("HIST_DATA", {.files = 6});  // is replaced
  add_to_history(database, key_of({}), 4);
  const std::string others = "SELECT " + backup_columns("'mark'") + " FROM ";
  EXPECT_EQ(test::query(database.handle(), others + "HIST_DATA"),
            test::query(database.handle(), others + "DATA_TO_PROCESS WHERE CLIENT <> 'other'"));
  EXPECT_EQ(mark_of("HIST_DATA", "USER_IDENTIFIED_CLUSTER", {}), "4");
}

TEST_F(Backups, ThatAreFalsePositivesAreCopiedOrMarked) {
  insert("DATA_TO_PROCESS", {.client = "a", .mark = 2, .files = 7});
  insert("HIST_DATA", {.client = "b", .files = 6});
  insert("HIST_DATA", {.client = "c"});
  for (const char* client : {"a", "b"}) {
    add_false_positive_to_history(database, key_of({.client = client}), 4);
  }
  EXPECT_EQ(test::query(database.handle(),
                        "SELECT CLIENT, NUM_FILES, USER_IDENTIFIED_CLUSTER FROM HIST_DATA "
                        "WHERE CLIENT <> 'c' ORDER BY CLIENT"),
            (std::vector<test::SqlRow>{{"a", "7", "4"}, {"b", "6", "4"}}));
  EXPECT_EQ(mark_of("HIST_DATA", "USER_IDENTIFIED_CLUSTER", {.client = "c"}), "-1");
}

TEST_F(Backups, OfTheHistoryAloneLoseTheirMark) {
  insert("HIST_DATA", {.client = "a", .mark = 4});
  insert("HIST_DATA", {.client = "b", .mark = 4});
  insert("DATA_TO_PROCESS", {.client = "b", .mark = 2});
  insert("HIST_DATA", {.client = "c", .mark = 4});
  EXPECT_TRUE(unmark_false_positive(database, key_of({.client = "a"})));
  EXPECT_FALSE(unmark_false_positive(database, key_of({.client = "a"})));
  EXPECT_FALSE(unmark_false_positive(database, key_of({.client = "b"})));
  EXPECT_EQ(mark_of("HIST_DATA", "USER_IDENTIFIED_CLUSTER", {.client = "a"}), "-1");
  EXPECT_EQ(mark_of("HIST_DATA", "USER_IDENTIFIED_CLUSTER", {.client = "b"}), "4");
  EXPECT_EQ(mark_of("HIST_DATA", "USER_IDENTIFIED_CLUSTER", {.client = "c"}), "4");
}

TEST_F(Backups, OfPeopleAloneAreRemovedFromTheHistory) {
  insert("HIST_DATA", {.client = "a", .mark = 4});
  insert("HIST_DATA", {.client = "b"});
  EXPECT_TRUE(remove_false_positive(database, key_of({.client = "a"})));
  EXPECT_FALSE(remove_false_positive(database, key_of({.client = "a"})));
  EXPECT_FALSE(remove_false_positive(database, key_of({.client = "b"})));
  EXPECT_FALSE(is_in_history(database, key_of({.client = "a"})));
  EXPECT_TRUE(is_in_history(database, key_of({.client = "b"})));
}

}  // namespace
}  // namespace corvane
