#include "companions/common/own_database.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/error_of.h"
#include "tests/support/scratch_dir.h"

namespace corvane {
namespace {

using Access = Connection::Access;

class OwnDatabaseTest : public testing::Test {
 protected:
  const test::ScratchDir directory_;
  const std::string path_ = directory_("own.db");
};

TEST_F(OwnDatabaseTest, KeepsValues) {
  OwnDatabase database(path_, Access::kCreate, 1);
  database.execute("CREATE TABLE meta (name TEXT PRIMARY KEY NOT NULL, value NOT NULL)");
  EXPECT_EQ(database.number_of("n"), 0);
  EXPECT_EQ(database.text_of("t"), "");
  database.set_number("n", 7);
  database.set_number("n", 8);
  database.set_text("t", "x");
  OwnDatabase other(path_, Access::kRead, 1);
  EXPECT_EQ(other.number_of("n"), 8);
  EXPECT_EQ(other.text_of("t"), "x");
  EXPECT_THROW(other.set_number("n", 9), QueryError);
  database.set_text("t", "y");  // no reader holds a lock
  EXPECT_EQ(other.text_of("t"), "y");
}

TEST_F(OwnDatabaseTest, WritesAhead) {
  OwnDatabase database(path_, Access::kCreate, 1);
  Query& mode = database.query("PRAGMA journal_mode");
  ASSERT_TRUE(mode.step());
  EXPECT_EQ(mode.text(0), "wal");
  EXPECT_EQ(database.number("PRAGMA synchronous"), 1);
}

TEST_F(OwnDatabaseTest, OfALaterVersionIsRefused) {
  {
    OwnDatabase database(path_, Access::kCreate, 1);
    EXPECT_EQ(database.version(), 0);
    database.execute("PRAGMA user_version = 2");
  }
  EXPECT_EQ(OwnDatabase(path_, Access::kRead, 2).version(), 2);
  EXPECT_EQ(test::error_of([&] { const OwnDatabase refused(path_, Access::kRead, 1); }),
            path_ + " is version 2, newer than this program supports");
}

TEST_F(OwnDatabaseTest, IsMadeOnDemandAlone) {
  EXPECT_THROW(OwnDatabase(path_, Access::kRead, 1), QueryError);
  EXPECT_THROW(OwnDatabase(path_, Access::kWrite, 1), QueryError);
}

}  // namespace
}  // namespace corvane
