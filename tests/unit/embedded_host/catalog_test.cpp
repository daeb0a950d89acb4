#include "embedded_host/catalog.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/support/sql.h"
#include "tests/unit/embedded_host/catalog_world.h"

namespace corvane::host {
namespace {

using corvane::test::query;
using corvane::test::query_one;
using corvane::test::write_file;

class Catalog : public ::testing::Test {
 protected:
  std::string opening(Connection::Access mode) const {
    try {
      open_catalog(path_, mode);
      return "opened";
    } catch (const CatalogError& error) {
      return error.what();
    }
  }

  corvane::test::ScratchDir dir_;
  std::string path_ = dir_("catalog.db");
};

TEST_F(Catalog, OnlyCreatingMakesAMissingOne) {
  EXPECT_EQ(opening(Connection::Access::kRead), path_ + ": No such file or directory");
  EXPECT_EQ(opening(Connection::Access::kWrite), path_ + ": No such file or directory");
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_EQ(opening(Connection::Access::kCreate), "opened");
  EXPECT_EQ(opening(Connection::Access::kCreate), "opened");
  EXPECT_EQ(opening(Connection::Access::kWrite), "opened");
  EXPECT_EQ(opening(Connection::Access::kRead), "opened");
}

TEST_F(Catalog, IsInWalModeAndWaitsForLocks) {
  Connection catalog = open_catalog(path_, Connection::Access::kCreate);
  EXPECT_EQ(query_one(catalog.handle(), "PRAGMA journal_mode"), "wal");
  EXPECT_EQ(query_one(catalog.handle(), "PRAGMA busy_timeout"), "5000");
  EXPECT_EQ(query_one(catalog.handle(), "PRAGMA synchronous"), "1");
  Connection writer = open_catalog(path_, Connection::Access::kWrite);
  EXPECT_EQ(query_one(writer.handle(), "PRAGMA synchronous"), "1");
}

TEST_F(Catalog, OtherFilesAreRefusedAndLeftAlone) {
  write_file(path_, "not a database, but long enough to be looked at as one, line after line\n");
  const std::string before = corvane::test::read_file(path_);
  EXPECT_EQ(opening(Connection::Access::kRead), path_ + ": file is not a database");
  EXPECT_EQ(opening(Connection::Access::kCreate), path_ + ": file is not a database");
  EXPECT_EQ(corvane::test::read_file(path_), before);

  std::filesystem::remove(path_);
  Connection(path_, Connection::Access::kCreate).execute("CREATE TABLE other(x)");
  EXPECT_EQ(opening(Connection::Access::kRead), path_ + ": not a catalog");
  EXPECT_EQ(opening(Connection::Access::kCreate), path_ + ": not a catalog but another database");
  Connection other(path_, Connection::Access::kRead);
  EXPECT_EQ(query_one(other.handle(), "SELECT group_concat(name) FROM sqlite_schema"), "other");
}

TEST_F(Catalog, RefusalsAreToldInSqlitesOwnWords) {
  Connection catalog = open_catalog(path_, Connection::Access::kCreate);
  try {
    catalog.execute("DROP TABLE missing");
    FAIL();
  } catch (const std::exception& error) {
    EXPECT_EQ(plain_reason(error), "no such table: missing");
  }
  EXPECT_EQ(plain_reason(std::runtime_error("another")), "another");
}

TEST_F(Catalog, ReportsReplaceOneAnother) {
  Connection catalog = open_catalog(path_, Connection::Access::kCreate);
  EXPECT_TRUE(put_report(catalog, kAnomaly, "A1", "{\"n\":1}"));
  EXPECT_TRUE(put_report(catalog, kAnomaly, "A2", "{}"));
  EXPECT_FALSE(put_report(catalog, kAnomaly, "A1", "{\"n\":2}"));
  EXPECT_EQ(query(catalog.handle(), "SELECT type, id, attributes FROM reports ORDER BY id"),
            (std::vector<corvane::test::SqlRow>{{"anomaly", "A1", "{\"n\":2}"},
                                                {"anomaly", "A2", "{}"}}));
}

TEST_F(Catalog, FeedbackStandsBesideItsAnomaly) {
  Connection catalog = open_catalog(path_, Connection::Access::kCreate);
  put_report(catalog, kAnomaly, "A1", "{}");
  put_feedback(catalog, "A1", "CONFIRMED");
  put_feedback(catalog, "A1", "FALSE_POSITIVE");
  EXPECT_EQ(query(catalog.handle(), "SELECT type, attributes FROM reports ORDER BY type"),
            (std::vector<corvane::test::SqlRow>{
                {"anomaly", "{}"}, {"anomalyFeedback", "{\"feedback\":\"FALSE_POSITIVE\"}"}}));
}

TEST_F(Catalog, FeedbackOfAnotherKindIsRefused) {
  Connection catalog = open_catalog(path_, Connection::Access::kCreate);
  EXPECT_THROW(put_feedback(catalog, "A1", "false_positive"), std::invalid_argument);
  EXPECT_THROW(put_feedback(catalog, "A1", ""), std::invalid_argument);
  EXPECT_THROW(put_feedback(catalog, "", "NONE"), std::invalid_argument);
  EXPECT_THROW(put_feedback(catalog, std::string(257, 'a'), "NONE"), std::invalid_argument);
  EXPECT_EQ(query_one(catalog.handle(), "SELECT count(*) FROM reports"), "0");
}

TEST_F(Catalog, TheLongestIdIsTaken) {
  Connection catalog = open_catalog(path_, Connection::Access::kCreate);
  put_feedback(catalog, std::string(256, 'a'), "NONE");
  EXPECT_EQ(query_one(catalog.handle(), "SELECT attributes FROM reports"),
            "{\"feedback\":\"NONE\"}");
}

TEST_F(Catalog, WritersWaitForOneAnother) {
  open_catalog(path_, Connection::Access::kCreate);
  const auto report = [&](const std::string& prefix) {
    Connection catalog = open_catalog(path_, Connection::Access::kWrite);
    for (int i = 0; i < 50; ++i) put_report(catalog, kAnomaly, prefix + std::to_string(i), "{}");
  };
  std::thread other(report, "a");
  report("b");
  other.join();
  Connection catalog = open_catalog(path_, Connection::Access::kRead);
  EXPECT_EQ(query_one(catalog.handle(), "SELECT count(*) FROM reports"), "100");
}

}  // namespace
}  // namespace corvane::host
