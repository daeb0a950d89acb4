#include "health/database.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>

#include "anomaly_database/gather_marks.h"
#include "tests/support/in_child.h"
#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::health {
namespace {

using namespace ctl;  // NOLINT(google-build-using-namespace)

class DatabaseTest : public OperatorWorld {
 protected:
  ExitStatus status_of_opening() {
    try {
      const Database opened(database());
      return ExitStatus::kDone;
    } catch (const Trouble& trouble) {
      sentence_ = trouble.what();
      return trouble.status();
    }
  }
  bool has_file(const std::string& name) const { return std::filesystem::exists(directory_(name)); }
  std::string sentence_;
};

TEST_F(DatabaseTest, OneInUseIsReadWithItsLog) {
  Database opened(database());
  gathered(500);
  EXPECT_EQ(last_gather(opened.connection()), 500);
}

TEST_F(DatabaseTest, HowOneIsOpened) {
  const std::string used = ReadOnlySource(database()).uri();
  EXPECT_TRUE(used.ends_with("?mode=ro")) << used;
  close_database();
  const std::string unused = ReadOnlySource(database()).uri();
  EXPECT_TRUE(unused.ends_with("?mode=ro&immutable=1")) << unused;
}

TEST_F(DatabaseTest, NothingCanBeWritten) {
  Database opened(database());
  try {
    opened.connection().execute("DELETE FROM HIST_DATA");
    FAIL();
  } catch (const QueryError& error) {
    EXPECT_EQ(error.code(), SQLITE_READONLY);
  }
}

TEST_F(DatabaseTest, OneThatNobodyUsesIsReadWithoutMakingAFile) {
  gathered(500);
  close_database();
  ASSERT_FALSE(has_file("CV_Anomaly.db-wal"));
  {
    Database opened(database());
    EXPECT_EQ(last_gather(opened.connection()), 500);
    EXPECT_FALSE(has_file("CV_Anomaly.db-wal"));
    EXPECT_FALSE(has_file("CV_Anomaly.db-shm"));
    opened.check_unchanged();
  }
  EXPECT_FALSE(has_file("CV_Anomaly.db-shm"));
}

TEST_F(DatabaseTest, OneThatComesIntoUseMeanwhileIsNoticed) {
  close_database();
  Database opened(database());
  service_ = std::make_unique<ManagementService>(directory_(), "CV_Anomaly.db", "FULL", "m", 15);
  service_->initializeDB();
  gathered(500);
  EXPECT_THROW(opened.check_unchanged(), ChangedMeanwhile);
}

TEST_F(DatabaseTest, AUserWithoutRightsToWriteReadsIt) {
  if (getuid() != 0) GTEST_SKIP() << "only root can become another user";
  history({}, 3);
  std::filesystem::permissions(directory_(), std::filesystem::perms(0755));
  const auto count = [&] {
    return test::in_child([&] {
      if (setuid(65534) != 0) return 99;
      Database opened(database());
      return static_cast<int>(opened.connection().number("SELECT count(*) FROM HIST_DATA"));
    });
  };
  EXPECT_EQ(count(), 3);  // while the service has it open
  close_database();
  EXPECT_EQ(count(), 3);  // and after it has stopped
}

TEST_F(DatabaseTest, OneThatMayNotBeRead) {
  if (getuid() != 0) GTEST_SKIP() << "only root can become another user";
  const auto sentence = [&](std::filesystem::perms of_file, std::filesystem::perms of_directory) {
    std::filesystem::permissions(database(), of_file);
    std::filesystem::permissions(directory_(), of_directory);
    const int status = test::in_child([&] {
      if (setuid(65534) != 0) return 99;
      const ExitStatus found = status_of_opening();
      EXPECT_EQ(sentence_, "Cannot read " + database() + ": permission denied.");
      return static_cast<int>(found);
    });
    std::filesystem::permissions(directory_(), std::filesystem::perms(0755));
    return status;
  };
  EXPECT_EQ(sentence(std::filesystem::perms(0600), std::filesystem::perms(0755)), 7);
  EXPECT_EQ(sentence(std::filesystem::perms(0644), std::filesystem::perms(0700)), 7);
}

TEST_F(DatabaseTest, AConfigurationThatMayNotBeReadIsNoDefault) {
  if (getuid() != 0) GTEST_SKIP() << "only root can become another user";
  switch_everything_on();
  std::filesystem::permissions(directory_("anomaly_config.conf"), std::filesystem::perms(0600));
  std::filesystem::permissions(directory_(), std::filesystem::perms(0755));
  const auto status_of = [&](const char* command) {
    return test::in_child([&] { return setuid(65534) != 0 ? 99 : say({command}).status; });
  };
  EXPECT_EQ(status_of("streams"), static_cast<int>(ExitStatus::kUnreadable));
  EXPECT_EQ(status_of("check"), 3);
  EXPECT_EQ(status_of("anomalies"), 0);
}

TEST_F(DatabaseTest, MissingOne) {
  close_database();
  std::filesystem::remove(database());
  EXPECT_EQ(status_of_opening(), ExitStatus::kMissing);
  EXPECT_EQ(sentence_, "Database not found: " + database() +
                           ". Has the service ever run here? Use --database to name another file.");
  EXPECT_FALSE(has_file("CV_Anomaly.db"));
  std::filesystem::create_directory(database());
  errno = EACCES;  // of a former call
  EXPECT_EQ(status_of_opening(), ExitStatus::kMissing);
}

TEST_F(DatabaseTest, DamagedOnes) {
  close_database();
  test::write_file(database(), std::string(100000, 'x'));
  EXPECT_EQ(status_of_opening(), ExitStatus::kDamaged);
}

TEST_F(DatabaseTest, OneThatIsDamagedInTheMiddle) {
  history({}, 500);
  close_database();
  std::string content = test::read_file(database());
  std::fill(content.begin() + 8192, content.end(), '\xAA');
  test::write_file(database(), content);
  const Said said = say({"status"});
  EXPECT_EQ(said.status, static_cast<int>(ExitStatus::kDamaged));
  EXPECT_EQ(said.error, "cvanomalyctl: " + database() + " is damaged or is not a database.\n");
  EXPECT_EQ(said.out, "");
}

TEST_F(DatabaseTest, EmptyAndOlderOnes) {
  sql("DROP TABLE QUEUED_TO_CAPTURE_DATA");
  EXPECT_EQ(status_of_opening(), ExitStatus::kOlder);
  EXPECT_EQ(sentence_,
            database() +
                " has no table QUEUED_TO_CAPTURE_DATA. It is not an anomaly database, or "
                "this version of the service has not opened it yet.");
  sql("CREATE TABLE QUEUED_TO_CAPTURE_DATA (JOB_ID INT)");
  EXPECT_EQ(status_of_opening(), ExitStatus::kOlder);
  EXPECT_EQ(sentence_, database() +
                           " has no column START_TIME in table QUEUED_TO_CAPTURE_DATA. It is from "
                           "another version of the service.");
  close_database();
  test::write_file(database(), "");
  EXPECT_EQ(status_of_opening(), ExitStatus::kOlder);
}

TEST_F(DatabaseTest, NamesMayHoldAnything) {
  close_database();
  const std::string odd = directory_("a ?#%41&mode=rwc\xC3\xBF\x01.db");
  std::filesystem::rename(database(), odd);
  const Database opened(odd);
  EXPECT_EQ(opened.path(), odd);
  EXPECT_EQ(
      ReadOnlySource(odd).uri(),
      "file:" + directory_() + "/a%20%3F%23%2541%26mode%3Drwc%C3%BF%01.db?mode=ro&immutable=1");
}

TEST_F(DatabaseTest, PlainNamesStandInTheUriAsTheyAre) {
  close_database();
  const std::string plain = directory_("09AZaz._-~");
  std::filesystem::rename(database(), plain);
  EXPECT_EQ(ReadOnlySource(plain).uri(), "file:" + plain + "?mode=ro&immutable=1");
  const std::string bounds = directory_("@[`{:");
  std::filesystem::rename(plain, bounds);
  EXPECT_EQ(ReadOnlySource(bounds).uri(),
            "file:" + directory_() + "/%40%5B%60%7B%3A?mode=ro&immutable=1");
}

TEST_F(DatabaseTest, ARelativeNameIsMadeAbsolute) {
  close_database();
  EXPECT_EQ(test::in_child([&] {
              std::filesystem::current_path(directory_());
              const ReadOnlySource source("CV_Anomaly.db");
              EXPECT_EQ(source.path(), "CV_Anomaly.db");
              EXPECT_EQ(source.uri(), "file:" + std::filesystem::current_path().string() +
                                          "/CV_Anomaly.db?mode=ro&immutable=1");
              return 0;
            }),
            0);
}

// Without a write-ahead log SQLite's own locks keep readers and writers apart.
TEST_F(DatabaseTest, OneWithoutAWriteAheadLogIsNeverTakenForUnused) {
  close_database();
  { Connection(database(), Connection::Access::kWrite).execute("PRAGMA journal_mode = DELETE"); }
  EXPECT_TRUE(ReadOnlySource(database()).uri().ends_with("?mode=ro"));
  for (const std::size_t size : {0U, 18U, 19U}) {
    test::write_file(directory_("short"), std::string(size, '\x02'));
    EXPECT_TRUE(ReadOnlySource(directory_("short")).uri().ends_with("?mode=ro")) << size;
  }
}

class HasChanged : public DatabaseTest {
 protected:
  // Of a database that nobody used, after this was done to it.
  bool after(const std::function<void(const std::string& path)>& change) {
    const std::string path = directory_("still.db");
    test::write_file(path, std::string(100, '\x02'));
    std::filesystem::remove(path + "-wal");
    const ReadOnlySource source(path);
    EXPECT_FALSE(source.has_changed());
    change(path);
    return source.has_changed();
  }
  static void set_time(const std::string& path, timespec modified) {
    const timespec times[]{modified, modified};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }
};

TEST_F(HasChanged, ByWhateverHappensToTheFile) {
  EXPECT_TRUE(after([](const std::string& path) { std::filesystem::remove(path); }));
  EXPECT_TRUE(after([](const std::string& path) { test::write_file(path + "-wal", ""); }));
  // The same in all but the size, the time or the file itself.
  const auto keeping_time = [](const std::string& path, const std::function<void()>& change) {
    struct stat former {};
    ASSERT_EQ(stat(path.c_str(), &former), 0);
    change();
    set_time(path, former.st_mtim);
  };
  EXPECT_FALSE(after([&](const std::string& path) { keeping_time(path, [] {}); }));
  EXPECT_TRUE(after([&](const std::string& path) {
    keeping_time(path, [&] { std::filesystem::resize_file(path, 101); });
  }));
  EXPECT_TRUE(after([&](const std::string& path) {
    keeping_time(path, [&] {
      std::filesystem::rename(path, path + ".former");
      test::write_file(path, std::string(100, '\x02'));
    });
  }));
  for (const auto& [seconds, nanoseconds] : {std::pair(1, 0), std::pair(0, 1)}) {
    EXPECT_TRUE(after([s = seconds, n = nanoseconds](const std::string& path) {
      struct stat former {};
      ASSERT_EQ(stat(path.c_str(), &former), 0);
      set_time(path, {former.st_mtim.tv_sec + s, (former.st_mtim.tv_nsec + n) % 1000000000});
    }));
  }
}

TEST_F(HasChanged, NothingIsAskedOfOneInUse) {
  const ReadOnlySource source(database());
  gathered(500);
  EXPECT_FALSE(source.has_changed());
}

// Of a file that was changed meanwhile nobody knows what a refusal means.
TEST_F(HasChanged, ThatIsSaidRatherThanWhatIsWrong) {
  sql("DROP TABLE QUEUED_TO_CAPTURE_DATA");
  close_database();
  static std::string changing;
  changing = database();
  constexpr auto kChange = +[](sqlite3* db, const char**, const sqlite3_api_routines*) -> int {
    if (sqlite3_db_filename(db, "main") == changing) set_time(changing, {5, 0});
    return SQLITE_OK;
  };
  sqlite3_auto_extension(reinterpret_cast<void (*)()>(kChange));
  EXPECT_THROW(status_of_opening(), ChangedMeanwhile);
  test::write_file(database(), std::string(100000, '\x02'));
  EXPECT_THROW(status_of_opening(), ChangedMeanwhile);
  sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(kChange));
  EXPECT_EQ(status_of_opening(), ExitStatus::kDamaged);
}

// Just after the alerts' database was opened, somebody writes to it; so many times.
class AlertsChange : public OperatorWorld {
 protected:
  void SetUp() override {
    OperatorWorld::SetUp();
    path_ = directory_("CV_Anomaly_Alerts.db");
    { const alert::StateDatabase closed(path_); }
    opened_ = 0;
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(on_opening));
  }
  void TearDown() override {
    sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(on_opening));
    OperatorWorld::TearDown();
  }

  static int on_opening(sqlite3* db, const char**, const sqlite3_api_routines*) {
    if (sqlite3_db_filename(db, "main") != path_ || opened_++ >= changes_) return SQLITE_OK;
    std::filesystem::last_write_time(
        path_, std::filesystem::last_write_time(path_) + std::chrono::seconds(1));
    return SQLITE_OK;
  }

  static inline std::string path_;
  static inline int opened_ = 0;
  static inline int changes_ = 0;
};

TEST_F(AlertsChange, ACommandReadsAgain) {
  changes_ = 2;
  const Said said = say({"status"});
  EXPECT_EQ(said.status, 0) << said.error;
  EXPECT_NE(said.out.find("Messages      0 pending"), std::string::npos) << said.out;
  EXPECT_EQ(opened_, 3);
}

TEST_F(AlertsChange, ItGivesUpAfterThreeTimes) {
  changes_ = 1000;
  const Said said = say({"status"});
  EXPECT_EQ(said.status, static_cast<int>(ExitStatus::kLocked));
  EXPECT_EQ(said.error, "cvanomalyctl: " + database() +
                            ": the database changed while it was being read; try again.\n");
  EXPECT_EQ(opened_, 3);
}

class TroubleOf : public testing::Test {
 protected:
  // Of what SQLite refuses; "" when it does not.
  static Trouble trouble(const std::function<void()>& work) {
    try {
      work();
    } catch (const QueryError& error) {
      return trouble_of("x.db", error);
    }
    ADD_FAILURE() << "nothing was refused";
    return {ExitStatus::kDone, ""};
  }
  Connection open(Connection::Access access = Connection::Access::kCreate) const {
    return {directory_("x.db"), access, std::chrono::milliseconds(0)};
  }
  static constexpr char kRead[] = "SELECT count(*) FROM t";
  test::ScratchDir directory_;
};

TEST_F(TroubleOf, SaysWhatItIs) {
  Connection writer = open();
  writer.execute("CREATE TABLE t (x)");
  const auto expect = [](const Trouble& found, ExitStatus status, const std::string& words) {
    EXPECT_EQ(found.status(), status);
    EXPECT_EQ(found.what(), words);
  };
  const std::string denied =
      "Cannot read x.db or its write-ahead log: permission denied. Try again as root or as the "
      "service account.";
  expect(trouble([&] { open().query("SELECT no FROM t"); }), ExitStatus::kOlder,
         "x.db is from another version of the service: Query failed: no such column: no.");
  EXPECT_EQ(trouble([&] { open().execute("SELECT 1 FROM none"); }).status(), ExitStatus::kOlder);
  expect(trouble([&] { open(Connection::Access::kRead).execute("DELETE FROM t"); }),
         ExitStatus::kUnreadable, denied);
  expect(trouble([&] { Connection(directory_("none/x.db"), Connection::Access::kRead); }),
         ExitStatus::kUnreadable, denied);
  EXPECT_EQ(trouble([&] { open().execute("syntax"); }).status(), ExitStatus::kFailed);
  expect(trouble_of("x.db", std::runtime_error("no file")), ExitStatus::kFailed,
         "Cannot read x.db: no file.");
}

TEST_F(TroubleOf, ALock) {
  Connection writer = open();
  writer.execute("CREATE TABLE t (x)");
  writer.execute("BEGIN EXCLUSIVE");
  Connection reader = open(Connection::Access::kRead);
  const Trouble locked = trouble([&] { reader.number(kRead); });
  EXPECT_EQ(locked.status(), ExitStatus::kLocked);
  EXPECT_STREQ(locked.what(), "x.db is locked by another program. Try again later.");
}

TEST_F(TroubleOf, Damage) {
  test::write_file(directory_("x.db"), std::string(100000, 'x'));
  Connection reader = open(Connection::Access::kRead);
  EXPECT_EQ(trouble([&] { reader.number(kRead); }).status(), ExitStatus::kDamaged);
}

}  // namespace
}  // namespace corvane::health
