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
  std::string opening(OpenMode mode) const {
    try {
      open_catalog(path_, mode);
      return "opened";
    } catch (const SqlError& error) {
      return error.what();
    }
  }

  corvane::test::ScratchDir dir_;
  std::string path_ = dir_("catalog.db");
};

TEST_F(Catalog, OnlyCreatingMakesAMissingOne) {
  EXPECT_EQ(opening(OpenMode::kRead), path_ + ": No such file or directory");
  EXPECT_EQ(opening(OpenMode::kWrite), path_ + ": No such file or directory");
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_EQ(opening(OpenMode::kCreate), "opened");
  EXPECT_EQ(opening(OpenMode::kCreate), "opened");
  EXPECT_EQ(opening(OpenMode::kWrite), "opened");
  EXPECT_EQ(opening(OpenMode::kRead), "opened");
}

TEST_F(Catalog, IsInWalModeAndWaitsForLocks) {
  Database catalog = open_catalog(path_, OpenMode::kCreate);
  EXPECT_EQ(query_one(catalog.handle(), "PRAGMA journal_mode"), "wal");
  EXPECT_EQ(query_one(catalog.handle(), "PRAGMA busy_timeout"), "5000");
}

TEST_F(Catalog, OtherFilesAreRefusedAndLeftAlone) {
  write_file(path_, "not a database, but long enough to be looked at as one, line after line\n");
  const std::string before = corvane::test::read_file(path_);
  EXPECT_EQ(opening(OpenMode::kRead), path_ + ": file is not a database");
  EXPECT_EQ(opening(OpenMode::kCreate), path_ + ": file is not a database");
  EXPECT_EQ(corvane::test::read_file(path_), before);

  std::filesystem::remove(path_);
  Database(path_, OpenMode::kCreate).execute("CREATE TABLE other(x)");
  EXPECT_EQ(opening(OpenMode::kRead), path_ + ": not a catalog");
  EXPECT_EQ(opening(OpenMode::kCreate), path_ + ": not a catalog, some other database");
  Database other(path_, OpenMode::kRead);
  EXPECT_EQ(query_one(other.handle(), "SELECT group_concat(name) FROM sqlite_schema"), "other");
}

TEST_F(Catalog, ReportsReplaceOneAnother) {
  Database catalog = open_catalog(path_, OpenMode::kCreate);
  EXPECT_TRUE(put_report(catalog, kAnomaly, "A1", "{\"n\":1}"));
  EXPECT_TRUE(put_report(catalog, kAnomaly, "A2", "{}"));
  EXPECT_FALSE(put_report(catalog, kAnomaly, "A1", "{\"n\":2}"));
  EXPECT_EQ(query(catalog.handle(), "SELECT type, id, attributes FROM reports ORDER BY id"),
            (std::vector<corvane::test::SqlRow>{{"anomaly", "A1", "{\"n\":2}"},
                                                {"anomaly", "A2", "{}"}}));
}

TEST_F(Catalog, FeedbackStandsBesideItsAnomaly) {
  Database catalog = open_catalog(path_, OpenMode::kCreate);
  put_report(catalog, kAnomaly, "A1", "{}");
  put_feedback(catalog, "A1", "CONFIRMED");
  put_feedback(catalog, "A1", "FALSE_POSITIVE");
  EXPECT_EQ(query(catalog.handle(), "SELECT type, attributes FROM reports ORDER BY type"),
            (std::vector<corvane::test::SqlRow>{
                {"anomaly", "{}"}, {"anomalyFeedback", "{\"feedback\":\"FALSE_POSITIVE\"}"}}));
}

TEST_F(Catalog, FeedbackOfAnotherKindIsRefused) {
  Database catalog = open_catalog(path_, OpenMode::kCreate);
  EXPECT_THROW(put_feedback(catalog, "A1", "false_positive"), std::invalid_argument);
  EXPECT_THROW(put_feedback(catalog, "A1", ""), std::invalid_argument);
  EXPECT_THROW(put_feedback(catalog, "", "NONE"), std::invalid_argument);
  EXPECT_THROW(put_feedback(catalog, std::string(257, 'a'), "NONE"), std::invalid_argument);
  EXPECT_EQ(query_one(catalog.handle(), "SELECT count(*) FROM reports"), "0");
}

TEST_F(Catalog, WritersWaitForOneAnother) {
  open_catalog(path_, OpenMode::kCreate);
  const auto report = [&](const std::string& prefix) {
    Database catalog = open_catalog(path_, OpenMode::kWrite);
    for (int i = 0; i < 50; ++i) put_report(catalog, kAnomaly, prefix + std::to_string(i), "{}");
  };
  std::thread other(report, "a");
  report("b");
  other.join();
  Database catalog = open_catalog(path_, OpenMode::kRead);
  EXPECT_EQ(query_one(catalog.handle(), "SELECT count(*) FROM reports"), "100");
}

}  // namespace
}  // namespace corvane::host
