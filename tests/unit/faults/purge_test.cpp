// One purge of the database.
#include "tests/unit/faults/attempt.h"
#include "tests/unit/faults/outcome.h"

namespace corvane::test {
namespace {

constexpr int kOldRows = 25;
// In the order in which they are purged.
const std::vector<std::string> kTables{"ANOMALY_DATA", "ANOMALY_DATA_FEEDBACK", "HIST_DATA",
                                       "DATA_TO_PROCESS"};

bool is_old(const std::string& row) { return row.find("|old ") != std::string::npos; }

// What is still there of a table's old rows.
std::vector<std::ptrdiff_t> old_rows_left(const Outcome& outcome) {
  std::vector<std::ptrdiff_t> left;
  for (const std::string& table : kTables) {
    left.push_back(std::count_if(
        outcome.rows.begin(), outcome.rows.end(),
        [&](const std::string& row) { return row.starts_with(table + "|") && is_old(row); }));
  }
  return left;
}

class Purge : public FaultTest {
 protected:
  static void fill(sqlite3* db, const std::string& key, int time) {
    query(db, "BEGIN");
    query(db, "INSERT INTO ANOMALY_DATA VALUES (" + key + ", '', 1, '', '', " +
                  std::to_string(time) + ")");
    query(db, "INSERT INTO ANOMALY_DATA_FEEDBACK VALUES (" + key + ", 1, " + std::to_string(time) +
                  ")");
    for (const std::string table : {"HIST_DATA", "DATA_TO_PROCESS"}) {
      query(db, "INSERT INTO " + table + " VALUES ('', " + std::to_string(time) +
                    ", 'a client', 'a policy', '', '', '', '', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, -1, "
                    "'', 0, '', " +
                    key + ")");
    }
    query(db, "COMMIT");
  }

  int attempt(const FaultPoint& point) {
    SmallWorld world;
    for (int i = 0; i < kOldRows; ++i) {
      fill(world.handle(), "'old " + std::to_string(i) + "'", kNow - 13 * 2'592'000);
    }
    fill(world.handle(), "'new'", kNow);
    const auto purge = [&] { world.service.purge_database(); };
    const int failed = failed_calls_of(purge, point);
    const Outcome outcome = outcome_of(world);
    purge();
    Outcome undisturbed = outcome_of(world);
    EXPECT_EQ(undisturbed.rows.size(), kTables.size()) << "the next purge does not make up for it";
    undisturbed.log.clear();
    expect_stated(outcome, undisturbed, {{error("Failed to purge database."), 0, "|old "}});
    const std::vector<std::ptrdiff_t> left = old_rows_left(outcome);
    EXPECT_TRUE(std::is_sorted(left.begin(), left.end())) << "it did not stop where it failed";
    for (const std::ptrdiff_t rows : left) EXPECT_TRUE(rows == 0 || rows == kOldRows) << rows;
    return failed;
  }
};

TEST_P(Purge, StopsWhereItFailsAndSaysSo) {
  try_every_point([this](const FaultPoint& point) { return attempt(point); });
}

INSTANTIATE_TEST_SUITE_P(Every, Purge,
                         ::testing::ValuesIn(once_and_from_then_on({Fault::kAllocation,
                                                                    Fault::kStatement, Fault::kRead,
                                                                    Fault::kWrite, Fault::kSync})),
                         kind_name);

}  // namespace
}  // namespace corvane::test
