#include "anomaly_database/anomaly_database.h"

#include <chrono>

#include "anomaly_database/anomalies.h"
#include "tests/support/anomaly_tables.h"

namespace corvane {
namespace {

using test::query_one;

class OpenDatabase : public test::AnomalyTables {
 protected:
  // How long a connection waits for a lock, in milliseconds, as SQLite keeps it.
  static std::string patience(Connection& connection) {
    return query_one(connection.handle(), "PRAGMA busy_timeout");
  }
};

TEST_F(OpenDatabase, ForReadingChangesNothing) {
  anomaly("a", "");
  Connection reading = open_for_reading(path());
  EXPECT_TRUE(has_anomaly(reading, "a"));
  EXPECT_THROW(mark_processed(reading, "a"), QueryError);
  EXPECT_EQ(patience(reading), "5000");
  EXPECT_THROW(open_for_reading(directory_("none.db")), QueryError);
}

TEST_F(OpenDatabase, ForReadingTakesAUri) {
  anomaly("a", "");
  Connection reading = open_for_reading("file:" + path() + "?mode=ro");
  EXPECT_TRUE(has_anomaly(reading, "a"));
}

TEST_F(OpenDatabase, ForACompanionWritesAndWaitsHalfASecond) {
  anomaly("a", "");
  Connection companion = open_for_companion(path());
  mark_processed(companion, "a");
  EXPECT_EQ(find_anomaly_row(database, "a")->status, AnomalyStatus::kProcessed);
  EXPECT_EQ(patience(companion), "500");
  EXPECT_EQ(query_one(companion.handle(), "PRAGMA synchronous"), "1");  // normal
}

TEST_F(OpenDatabase, ForACompanionMakesNone) {
  EXPECT_THROW(open_for_companion(directory_("none.db")), QueryError);
  EXPECT_FALSE(std::filesystem::exists(directory_("none.db")));
}

}  // namespace
}  // namespace corvane
