#include "sqlite/connection.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

#include "tests/support/scratch_dir.h"
#include "tests/support/sql.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using corvane::test::count;
using corvane::test::query_one;
using corvane::test::ScratchDir;
using Access = Connection::Access;

static_assert(!std::is_copy_constructible_v<Connection>);
static_assert(!std::is_copy_constructible_v<Transaction>);

class ConnectionTest : public ::testing::Test {
 protected:
  // A file with the table t(x), which holds one 1.
  void make_file() {
    Connection made(path_, Access::kCreate);
    made.execute("CREATE TABLE t(x UNIQUE); INSERT INTO t VALUES(1)");
  }

  static std::optional<QueryError> failure(const std::function<void()>& failing) {
    try {
      failing();
    } catch (const QueryError& error) {
      return error;
    }
    ADD_FAILURE() << "no failure";
    return std::nullopt;
  }

  std::optional<QueryError> opening(const std::string& name, Access access) {
    return failure([&] { Connection(name, access); });
  }

  ScratchDir dir_;
  std::string path_ = dir_("x.db");
};

TEST_F(ConnectionTest, OnlyCreatingMakesAMissingFile) {
  EXPECT_TRUE(opening(path_, Access::kRead));
  EXPECT_TRUE(opening(path_, Access::kWrite));
  EXPECT_FALSE(std::filesystem::exists(path_));
  Connection(path_, Access::kCreate).execute("CREATE TABLE t(x)");
  EXPECT_TRUE(std::filesystem::exists(path_));
  EXPECT_EQ(Connection(path_, Access::kCreate).number("SELECT count(*) FROM t"), 0);
}

TEST_F(ConnectionTest, AFailedOpenNamesTheFileAndKeepsTheReason) {
  const auto error = opening(path_, Access::kRead);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->what(), "Could not open database " + path_);
  EXPECT_EQ(error->inner_message(), "unable to open database file");
  EXPECT_EQ(error->code(), SQLITE_CANTOPEN);
  EXPECT_EQ(error->system_errno(), ENOENT);
}

TEST_F(ConnectionTest, AFailedOpenReleasesWhatSqliteHandedOut) {
  opening(dir_("nowhere/x.db"), Access::kCreate);
  const auto before = sqlite3_memory_used();
  opening(dir_("nowhere/x.db"), Access::kCreate);
  EXPECT_EQ(sqlite3_memory_used(), before);
}

TEST_F(ConnectionTest, ReadingAloneRefusesWriting) {
  make_file();
  Connection reading(path_, Access::kRead);
  const auto error = failure([&] { reading.execute("INSERT INTO t VALUES(2)"); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), SQLITE_READONLY);
  EXPECT_EQ(error->inner_message(), "attempt to write a readonly database");
  EXPECT_EQ(error->system_errno(), 0);
  Connection writing(path_, Access::kWrite);
  writing.execute("INSERT INTO t VALUES(2)");
  EXPECT_EQ(count(reading.handle(), "t"), "2");
}

TEST_F(ConnectionTest, AUriSaysHowToOpen) {
  make_file();
  Connection reading("file:" + path_ + "?mode=ro", Access::kWrite);
  EXPECT_EQ(count(reading.handle(), "t"), "1");
  const auto error = failure([&] { reading.execute("INSERT INTO t VALUES(2)"); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), SQLITE_READONLY);
}

TEST_F(ConnectionTest, AnImmutableFileIsReadPastLocks) {
  make_file();
  Connection locking(path_, Access::kWrite);
  locking.execute("BEGIN EXCLUSIVE");
  Connection waiting("file:" + path_ + "?mode=ro", Access::kRead, 0ms);
  const auto error = failure([&] { waiting.number("SELECT count(*) FROM t"); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), SQLITE_BUSY);
  Connection passing("file:" + path_ + "?mode=ro&immutable=1", Access::kRead, 0ms);
  EXPECT_EQ(passing.number("SELECT count(*) FROM t"), 1);
}

TEST_F(ConnectionTest, PatienceIsFiveSecondsUnlessSaid) {
  EXPECT_EQ(Connection(path_, Access::kCreate).number("PRAGMA busy_timeout"), 5000);
  EXPECT_EQ(Connection(path_, Access::kWrite, 250ms).number("PRAGMA busy_timeout"), 250);
}

TEST_F(ConnectionTest, ALockIsWaitedForAsLongAsThePatienceLasts) {
  make_file();
  std::atomic<bool> locked = false;
  std::atomic<bool> refused = false;
  std::thread other([&] {
    Connection locking(path_, Access::kWrite);
    Transaction transaction(locking);
    locking.execute("INSERT INTO t VALUES(2)");
    locked = true;
    locked.notify_one();
    refused.wait(false);
    std::this_thread::sleep_for(200ms);  // what the patient one has to wait
    transaction.commit();
  });
  locked.wait(false);
  Connection impatient(path_, Access::kWrite, 1ms);
  const auto error = failure([&] { Transaction{impatient}; });
  refused = true;
  refused.notify_one();
  Connection patient(path_, Access::kWrite);
  EXPECT_NO_THROW(patient.execute("INSERT INTO t VALUES(3)"));
  other.join();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), SQLITE_BUSY);
  EXPECT_STREQ(error->what(), "Query failed: database is locked");
  EXPECT_EQ(count(patient.handle(), "t"), "3");
}

TEST_F(ConnectionTest, AQueryStaysCompiledAndComesReadyToBeBound) {
  static constexpr char kSelect[] = "SELECT ?";
  make_file();
  Connection connection(path_, Access::kRead);
  Query& query = connection.query(kSelect);
  ASSERT_TRUE(query.bind("one").step());
  Query& again = connection.query(kSelect);
  EXPECT_EQ(&again, &query);
  ASSERT_TRUE(again.bind("two").step());
  EXPECT_EQ(again.view(0), "two");
  const std::string other = "SELECT 2";
  EXPECT_NE(&connection.query(other), &query);
  EXPECT_EQ(connection.number("SELECT x FROM t"), 1);
  EXPECT_EQ(connection.number("SELECT x FROM t WHERE x > 1"), 0) << "there is no row";
}

TEST_F(ConnectionTest, AQueryThatCannotBeCompiledIsNotKept) {
  static constexpr char kSelect[] = "SELECT x FROM later";
  Connection connection(path_, Access::kCreate);
  EXPECT_THROW(connection.query(kSelect), QueryError);
  connection.execute("CREATE TABLE later(x); INSERT INTO later VALUES(4)");
  EXPECT_EQ(connection.number(kSelect), 4);
}

TEST_F(ConnectionTest, ChangesAndRowidAreThoseOfTheLastStatement) {
  make_file();
  Connection connection(path_, Access::kWrite);
  connection.execute("INSERT INTO t(rowid, x) VALUES(70, 'a')");
  EXPECT_EQ(connection.last_rowid(), 70);
  EXPECT_EQ(connection.changes(), 1);
  connection.execute("DELETE FROM t");
  EXPECT_EQ(connection.changes(), 2);
}

TEST_F(ConnectionTest, AnotherConnectionsCommitChangesTheDataVersion) {
  make_file();
  Connection watching(path_, Access::kRead);
  Connection writing(path_, Access::kWrite);
  const std::int64_t first = watching.data_version();
  EXPECT_EQ(watching.data_version(), first);
  const std::int64_t own = writing.data_version();
  {
    Transaction transaction(writing);
    writing.execute("INSERT INTO t VALUES(2)");
  }
  EXPECT_EQ(watching.data_version(), first) << "nothing was committed";
  writing.execute("INSERT INTO t VALUES(3)");
  EXPECT_NE(watching.data_version(), first);
  EXPECT_EQ(writing.data_version(), own);
}

TEST_F(ConnectionTest, ErrorsHaveSqlitesWordsAndCode) {
  make_file();
  Connection connection(path_, Access::kWrite);
  const auto nonsense = failure([&] { connection.execute("CREATE NONSENSE"); });
  ASSERT_TRUE(nonsense);
  EXPECT_STREQ(nonsense->what(), "Query failed: near \"NONSENSE\": syntax error");
  EXPECT_EQ(nonsense->inner_message(), "near \"NONSENSE\": syntax error");
  EXPECT_EQ(nonsense->extended_code(), SQLITE_ERROR);

  Query insert(connection.handle(), "INSERT INTO t VALUES(?)");
  const auto twice = failure([&] { insert.bind(std::int64_t{1}).run(); });
  ASSERT_TRUE(twice);
  EXPECT_EQ(twice->extended_code(), SQLITE_CONSTRAINT_UNIQUE);
  EXPECT_EQ(twice->code(), SQLITE_CONSTRAINT);
  insert.restart().bind(std::int64_t{2}).run();
  EXPECT_EQ(count(connection.handle(), "t"), "2");

  const auto range = failure([&] { Query(connection.handle(), "SELECT ?1").bind(1.0).bind(2.0); });
  ASSERT_TRUE(range);
  EXPECT_EQ(range->code(), SQLITE_RANGE);
}

TEST_F(ConnectionTest, AnInterruptIsAFailureLikeAnother) {
  make_file();
  Connection connection(path_, Access::kRead);
  std::atomic<bool> stopping = true;
  sqlite3_progress_handler(
      connection.handle(), 100,
      [](void* flag) { return static_cast<std::atomic<bool>*>(flag)->load() ? 1 : 0; }, &stopping);
  static constexpr char kLong[] =
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<10000)"
      " SELECT count(*) FROM n";
  const auto error = failure([&] { connection.number(kLong); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), SQLITE_INTERRUPT);
  stopping = false;
  EXPECT_EQ(connection.number(kLong), 10000);
}

TEST_F(ConnectionTest, CanBeMovedWithItsQueries) {
  static constexpr char kCount[] = "SELECT count(*) FROM t";
  make_file();
  Connection first(path_, Access::kWrite);
  Query& query = first.query(kCount);
  Connection second = std::move(first);
  EXPECT_EQ(&second.query(kCount), &query);
  EXPECT_EQ(second.number(kCount), 1);
  Transaction transaction(second);
  second.execute("INSERT INTO t VALUES(2)");
  transaction.commit();
  EXPECT_EQ(second.number(kCount), 2);
}

TEST_F(ConnectionTest, ClosesItsFileAndItsQueries) {
  make_file();
  const auto before = sqlite3_memory_used();
  {
    Connection connection(path_, Access::kRead);
    connection.query("SELECT x FROM t").step();
  }
  EXPECT_EQ(sqlite3_memory_used(), before);
}

class TransactionTest : public ConnectionTest {
 protected:
  TransactionTest() { make_file(); }
};

TEST_F(TransactionTest, IsUndoneUnlessCommitted) {
  Connection connection(path_, Access::kWrite);
  {
    const Transaction undone(connection);
    connection.execute("INSERT INTO t VALUES(2)");
  }
  EXPECT_EQ(count(connection.handle(), "t"), "1");
  {
    Transaction kept(connection);
    connection.execute("INSERT INTO t VALUES(2)");
    kept.commit();
  }
  EXPECT_EQ(count(connection.handle(), "t"), "2");
}

TEST_F(TransactionTest, OneThatIsCommittedDoesNotEndTheNext) {
  Connection connection(path_, Access::kWrite);
  std::optional<Transaction> first(std::in_place, connection);
  first->commit();
  Transaction second(connection);
  connection.execute("INSERT INTO t VALUES(2)");
  first.reset();
  second.commit();
  EXPECT_EQ(count(connection.handle(), "t"), "2");
}

TEST_F(TransactionTest, TakesTheLockForWritingAtOnce) {
  Connection connection(path_, Access::kWrite);
  const Transaction transaction(connection);
  Connection other(path_, Access::kWrite, 0ms);
  EXPECT_EQ(count(other.handle(), "t"), "1") << "readers go on";
  EXPECT_THROW(other.execute("INSERT INTO t VALUES(2)"), QueryError);
}

TEST_F(TransactionTest, ASecondOneInsideIsAFailureAndHarmsNothing) {
  Connection connection(path_, Access::kWrite);
  Transaction outer(connection);
  connection.execute("INSERT INTO t VALUES(2)");
  EXPECT_THROW(Transaction{connection}, QueryError);
  outer.commit();
  EXPECT_EQ(count(connection.handle(), "t"), "2");
}

TEST_F(TransactionTest, SqliteMayHaveRolledBackByItself) {
  Connection connection(path_, Access::kWrite);
  {
    Transaction transaction(connection);
    connection.execute("INSERT INTO t VALUES(2)");
    EXPECT_THROW(connection.execute("INSERT OR ROLLBACK INTO t VALUES(2)"), QueryError);
    EXPECT_THROW(transaction.commit(), QueryError);
  }
  EXPECT_EQ(count(connection.handle(), "t"), "1");
  EXPECT_NO_THROW(Transaction{connection});
}

TEST_F(TransactionTest, ASnapshotSeesOneMoment) {
  static constexpr char kCount[] = "SELECT count(*) FROM t";
  Connection writing(path_, Access::kWrite);
  ASSERT_EQ(query_one(writing.handle(), "PRAGMA journal_mode=WAL"), "wal");
  Connection reading(path_, Access::kRead);
  {
    Transaction snapshot(reading, Transaction::Kind::kSnapshot);
    EXPECT_EQ(reading.number(kCount), 1);
    writing.execute("INSERT INTO t VALUES(2)");
    EXPECT_EQ(reading.number(kCount), 1);
    snapshot.commit();
  }
  EXPECT_EQ(reading.number(kCount), 2);
  {
    const Transaction snapshot(reading, Transaction::Kind::kSnapshot);
    EXPECT_EQ(reading.number(kCount), 2);
    writing.execute("INSERT INTO t VALUES(3)");
  }
  EXPECT_EQ(reading.number(kCount), 3) << "one that was not committed is over too";
}

}  // namespace
}  // namespace corvane
