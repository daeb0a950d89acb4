#include "anomaly_database/portions.h"

#include <algorithm>
#include <functional>

#include "tests/support/anomaly_tables.h"

namespace corvane {
namespace {

using Rowids = std::vector<std::int64_t>;

class Portions : public test::AnomalyTables {
 protected:
  // Of the client's rows, the rowids in the order in which they are read.
  Rowids read(const std::string& client) {
    static constexpr char kSql[] =
        "SELECT " PORTION_COLUMNS "NUM_FILES FROM HIST_DATA" AFTER_FORMER_PORTION
        " AND CLIENT = ? AND POLICY = ?" BY_PORTIONS;
    Rowids rowids;
    read_portions(
        database, kSql, [&](const Query& row) { rowids.push_back(row.integer(0)); }, client,
        std::string("nightly"));
    return rowids;
  }
  // The rowids of a table of its own with so many rows.
  Rowids read_of(std::int64_t count, const std::function<void()>& after_first = {}) {
    static constexpr char kSql[] = "SELECT rowid FROM numbers" AFTER_FORMER_PORTION BY_PORTIONS;
    sql("PRAGMA journal_mode = WAL");
    sql("CREATE TABLE IF NOT EXISTS numbers (x)");
    sql("DELETE FROM numbers");
    sql("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
        std::to_string(count) + ") INSERT INTO numbers SELECT 1 FROM n");
    Rowids rowids;
    read_portions(database, kSql, [&](const Query& row) {
      rowids.push_back(row.integer(0));
      if (rowids.size() == 1 && after_first) after_first();
    });
    return rowids;
  }
};

TEST_F(Portions, ConditionsStandBetweenTheRowidAndTheLimit) {
  for (const char* client : {"a", "b", "a"}) {
    static std::int64_t time = test::kNow;
    insert("HIST_DATA", {.client = client, .time = ++time});
  }
  insert("HIST_DATA", {.client = "a", .policy = "other"});
  EXPECT_EQ(read("a"), (Rowids{1, 3}));
  EXPECT_EQ(read("none"), Rowids());
}

TEST_F(Portions, EachRowIsReadOnceWhereAPortionEnds) {
  EXPECT_EQ(kPortion, 100'000);
  for (const std::int64_t count : {kPortion - 1, kPortion, kPortion + 1}) {
    const Rowids rowids = read_of(count);
    EXPECT_EQ(std::ssize(rowids), count);
    EXPECT_EQ(rowids.back(), count);
    EXPECT_TRUE(std::ranges::is_sorted(rowids, std::ranges::less_equal{}));
  }
}

TEST_F(Portions, AreTransactionsOfTheirOwn) {
  Connection writer(path(), Connection::Access::kWrite);
  // What is written while the first portion is read is seen by the second.
  const auto write = [&] { writer.execute("INSERT INTO numbers VALUES (1)"); };
  EXPECT_EQ(std::ssize(read_of(kPortion + 1, write)), kPortion + 2);
  EXPECT_EQ(std::ssize(read_of(kPortion - 1, write)), kPortion - 1);
}

TEST_F(Portions, ColumnsAreWhereTheyAreSaidToBe) {
  insert("HIST_DATA", {.client = "a", .destination = "disk", .files = 77});
  Query& row = database.query("SELECT " PORTION_COLUMNS "NUM_FILES FROM HIST_DATA");
  ASSERT_TRUE(row.step());
  EXPECT_EQ(row.text(kPortionKeyColumn), "a");
  EXPECT_EQ(row.text(kPortionTimeColumn - 1), "disk");
  EXPECT_EQ(row.integer(kPortionTimeColumn), test::kNow);
  EXPECT_EQ(row.integer(kPortionOwnColumn), 77);
}

TEST_F(Portions, ASpellingHoldsAllNamesAndWhereTheyEnd) {
  insert("HIST_DATA", {.client = "a", .policy_type = "Standard", .schedule_type = "0"});
  Query& row = database.query("SELECT " PORTION_COLUMNS "NUM_FILES FROM HIST_DATA");
  ASSERT_TRUE(row.step());
  std::string spelling = "of the former row";
  spell_stream(row, spelling);
  using std::string_literals::operator""s;
  EXPECT_EQ(spelling,
            "a\0nightly\0Standard\0"
            "0\0daily\0FS\0disk\0"s);
}

}  // namespace
}  // namespace corvane
