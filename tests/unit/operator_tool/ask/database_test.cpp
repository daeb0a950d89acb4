#include "operator_tool/ask/database.h"

#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <functional>

#include "anomaly_database/gather_marks.h"
#include "operator_tool/ask/alert_database.h"
#include "tests/support/in_child.h"
#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::ctl {
namespace {

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
  if (getuid() != 0) GTEST_SKIP() << "takes root";
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
  if (getuid() != 0) GTEST_SKIP() << "takes root";
  std::filesystem::permissions(database(), std::filesystem::perms(0600));
  std::filesystem::permissions(directory_(), std::filesystem::perms(0755));
  EXPECT_EQ(test::in_child([&] {
              if (setuid(65534) != 0) return 99;
              return static_cast<int>(status_of_opening());
            }),
            static_cast<int>(ExitStatus::kUnreadable));
}

TEST_F(DatabaseTest, AConfigurationThatMayNotBeReadIsNoDefault) {
  if (getuid() != 0) GTEST_SKIP() << "takes root";
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
  EXPECT_NE(sentence_.find("There is no anomaly database at " + database()), std::string::npos);
  EXPECT_FALSE(has_file("CV_Anomaly.db"));
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
  EXPECT_EQ(said.error, "cvanomalyctl: " + database() + " is damaged or no database at all.\n");
  EXPECT_EQ(said.out, "");
}

TEST_F(DatabaseTest, EmptyAndOlderOnes) {
  sql("DROP TABLE QUEUED_TO_CAPTURE_DATA");
  EXPECT_EQ(status_of_opening(), ExitStatus::kOlder);
  EXPECT_NE(sentence_.find("has no table QUEUED_TO_CAPTURE_DATA"), std::string::npos);
  sql("CREATE TABLE QUEUED_TO_CAPTURE_DATA (JOB_ID INT)");
  EXPECT_EQ(status_of_opening(), ExitStatus::kOlder);
  EXPECT_NE(sentence_.find("has no column START_TIME in table QUEUED_TO_CAPTURE_DATA"),
            std::string::npos);
  close_database();
  test::write_file(database(), "");
  EXPECT_EQ(status_of_opening(), ExitStatus::kOlder);
}

TEST_F(DatabaseTest, NamesMayHoldAnything) {
  close_database();
  const std::string odd = directory_("a ?#%41&mode=rwc.db");
  std::filesystem::rename(database(), odd);
  const Database opened(odd);
  EXPECT_EQ(opened.path(), odd);
}

TEST_F(DatabaseTest, AlertsThatComeIntoUseMeanwhileAreNoticed) {
  Options options;
  options.database = database();
  const std::string path = options.alert_database();
  { const alert::StateDatabase closed(path); }
  bool asked = false;
  with_alert_database(options, [&](alert::StateDatabase&) { asked = true; });
  EXPECT_TRUE(asked);
  std::unique_ptr<alert::StateDatabase> used;
  const auto come_into_use = [&](alert::StateDatabase&) {
    used = std::make_unique<alert::StateDatabase>(path);
    used->set_number("x", 1);
  };
  EXPECT_THROW(with_alert_database(options, come_into_use), ChangedMeanwhile);
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
                            ": the database was changed while it was read; try again.\n");
  EXPECT_EQ(opened_, 3);
}

TEST_F(DatabaseTest, DamagedAlertsAreTrouble) {
  Options options;
  options.database = database();
  test::write_file(options.alert_database(), std::string(100000, 'x'));
  try {
    with_alert_database(options, [](alert::StateDatabase& state) { state.tag(); });
    FAIL();
  } catch (const Trouble& trouble) {
    EXPECT_EQ(trouble.status(), ExitStatus::kDamaged);
  }
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
  EXPECT_EQ(trouble([&] { open().execute("SELECT no FROM t"); }).status(), ExitStatus::kOlder);
  EXPECT_EQ(trouble([&] { open().execute("SELECT 1 FROM none"); }).status(), ExitStatus::kOlder);
  EXPECT_EQ(trouble([&] { open(Connection::Access::kRead).execute("DELETE FROM t"); }).status(),
            ExitStatus::kUnreadable);
  EXPECT_EQ(
      trouble([&] { Connection(directory_("none/x.db"), Connection::Access::kRead); }).status(),
      ExitStatus::kUnreadable);
  EXPECT_EQ(trouble([&] { open().execute("syntax"); }).status(), ExitStatus::kFailed);
  EXPECT_EQ(trouble_of("x.db", std::runtime_error("no file")).status(), ExitStatus::kFailed);
}

TEST_F(TroubleOf, ALock) {
  Connection writer = open();
  writer.execute("CREATE TABLE t (x)");
  writer.execute("BEGIN EXCLUSIVE");
  Connection reader = open(Connection::Access::kRead);
  const Trouble locked = trouble([&] { reader.number(kRead); });
  EXPECT_EQ(locked.status(), ExitStatus::kLocked);
  EXPECT_STREQ(locked.what(),
               "x.db is locked by another program, and stayed so for 5 seconds; try again.");
}

TEST_F(TroubleOf, Damage) {
  test::write_file(directory_("x.db"), std::string(100000, 'x'));
  Connection reader = open(Connection::Access::kRead);
  EXPECT_EQ(trouble([&] { reader.number(kRead); }).status(), ExitStatus::kDamaged);
}

}  // namespace
}  // namespace corvane::ctl
