#include "companions/detect/verdict_database.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/fakes/platform_fake_test.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/sql.h"
#include "tests/unit/detect/detect_world.h"

namespace corvane::detect {
namespace {

class VerdictDatabaseTest : public PlatformFake {
 protected:
  void SetUp() override {
    PlatformFake::SetUp();
    test::open_databases_without_syncing();
  }
  std::unique_ptr<VerdictDatabase> open() { return open_verdicts(path_); }
  static KnownVerdict accepted(const Backup& backup) {
    return {backup, JudgedAs::kAccepted, kNoCluster, {}};
  }
  static KnownVerdict anomalous(const Backup& backup, int cluster = kNoCluster) {
    return {backup, JudgedAs::kAnomalous, cluster, "incident_" + backup.unique_key};
  }
  bool exists(const std::string& suffix) { return std::filesystem::exists(path_ + suffix); }
  void run(const std::string& sql) {
    Connection(path_, Connection::Access::kWrite).execute(sql.c_str());
  }
  std::string one(const std::string& sql) {
    const Connection database(path_, Connection::Access::kRead);
    return test::query_one(database.handle(), sql);
  }
  // All pages but the first, which says that it is a database.
  void damage_pages() {
    std::string content = test::read_file(path_);
    ASSERT_GT(content.size(), 8192U);
    std::fill(content.begin() + 4096, content.end(), 'x');
    test::write_file(path_, content);
  }
  std::vector<fake::LogLine> moved_aside() const {
    return {{16, "cvanomalydetect",
             path_ + " is damaged. It was moved to " + path_ +
                 ".damaged and is made again from the anomaly database"}};
  }

  test::ScratchDir directory_;
  const std::string path_ = directory_("Own.db");
};

TEST_F(VerdictDatabaseTest, KeepsTheLastPass) {
  const auto own = open();
  EXPECT_EQ(own->last_pass(), LastPass{});
  own->set_last_pass({5, 6});
  EXPECT_EQ(own->last_pass(), (LastPass{5, 6}));
  own->set_last_pass({7, 8});
  EXPECT_EQ(open_verdicts_for_reading(path_)->last_pass(), (LastPass{7, 8}));
  EXPECT_EQ(own->history_rowid(), 0);
}

TEST_F(VerdictDatabaseTest, IsBesideTheAnomalyDatabase) {
  for (const auto& [name, expected] : {std::pair{"Some.db", "Some_Detection.db"},
                                       std::pair{"Some.db.x", "Some.db.x_Detection.db"}}) {
    Connection database(directory_(name), Connection::Access::kCreate);
    EXPECT_EQ(verdict_database_path(database), directory_(expected));
  }
}

TEST_F(VerdictDatabaseTest, KeepsEverythingOfAVerdict) {
  Backup backup = daily(3);
  backup.figures = {1.5, 2e15, 3.25, 0.1, 77.5};
  backup.stream = {"client", "policy", "TYPE", "SCHEDULE", "name", "APPLICATION", "disk"};
  open()->store({anomalous(backup, 7)}, {}, 0);
  const KnownVerdict known = open()->find(backup.unique_key).value();
  EXPECT_EQ(known.judged_as, JudgedAs::kAnomalous);
  EXPECT_EQ(known.cluster, 7);
  EXPECT_TRUE(known.is_false_positive());
  EXPECT_EQ(known.incident, "incident_" + backup.unique_key);
  EXPECT_EQ(known.backup.unique_key, backup.unique_key);
  EXPECT_EQ(known.backup.backup_id, backup.backup_id);
  EXPECT_EQ(known.backup.job_id, backup.job_id);
  EXPECT_EQ(known.backup.time, backup.time);
  EXPECT_EQ(known.backup.stream, backup.stream);
  EXPECT_EQ(known.backup.figures.files, 1.5);
  EXPECT_EQ(known.backup.figures.size_kb, 2e15);
  EXPECT_EQ(known.backup.figures.transferred_kb, 3.25);
  EXPECT_EQ(known.backup.figures.ratio, 0.1);
  EXPECT_EQ(known.backup.figures.seconds, 77.5);
  EXPECT_FALSE(open()->find("other"));
}

TEST_F(VerdictDatabaseTest, AVerdictReplacesAnotherButNothingThatWasOnlyFoundDoes) {
  const auto database = open();
  database->store({accepted(daily(1)), anomalous(daily(2))}, {accepted(daily(3))}, 5);
  EXPECT_EQ(database->history_rowid(), 5);
  database->store({anomalous(daily(1), 4), accepted(daily(2))}, {anomalous(daily(3))}, 9);
  EXPECT_EQ(database->find(daily(1).unique_key)->judged_as, JudgedAs::kAnomalous);
  EXPECT_TRUE(database->find(daily(1).unique_key)->is_false_positive());
  EXPECT_EQ(database->find(daily(2).unique_key)->judged_as, JudgedAs::kAccepted);
  EXPECT_FALSE(database->find(daily(2).unique_key)->is_false_positive());
  EXPECT_EQ(database->find(daily(3).unique_key)->judged_as, JudgedAs::kAccepted);
  EXPECT_EQ(open()->history_rowid(), 9);
}

TEST_F(VerdictDatabaseTest, ListsTheAnomalous) {
  const auto database = open();
  EXPECT_TRUE(database->anomalous_keys().empty());
  EXPECT_EQ(database->history_rowid(), 0);
  database->store({accepted(daily(1)), anomalous(daily(2)), anomalous(daily(3), 1)}, {}, 0);
  EXPECT_EQ(database->anomalous_keys(),
            (std::unordered_set{daily(2).unique_key, daily(3).unique_key}));
}

TEST_F(VerdictDatabaseTest, ChangesTheClusterOfOneBackup) {
  const auto database = open();
  database->store({anomalous(daily(1)), anomalous(daily(2))}, {}, 3);
  database->set_cluster(daily(1).unique_key, 6, 4);
  EXPECT_EQ(database->find(daily(1).unique_key)->cluster, 6);
  EXPECT_EQ(database->find(daily(2).unique_key)->cluster, kNoCluster);
  EXPECT_EQ(database->history_rowid(), 4);
  database->set_cluster(daily(1).unique_key, kNoCluster, 4);
  EXPECT_FALSE(database->find(daily(1).unique_key)->is_false_positive());
}

// Verdicts on backups of the newest days, two of each day.
class OldVerdicts : public VerdictDatabaseTest {
 protected:
  // `day`: before the day of now. The first and the last second of that day.
  static std::vector<KnownVerdict> of_day(int day) {
    std::vector<KnownVerdict> made;
    for (const int second : {0, kDay - 1}) {
      Backup backup = daily(0);
      backup.time = static_cast<std::int32_t>((kToday - day) * kDay + second);
      backup.unique_key = std::to_string(backup.time);
      made.push_back(accepted(backup));
    }
    return made;
  }
  void store_days(int days) {
    for (int day = 0; day < days; ++day) database_->store(of_day(day), {}, 0);
  }
  // The days of which both are there; a day of which one is there fails the test.
  int days_known() {
    EXPECT_EQ(one("SELECT min(n) FROM (SELECT count(*) AS n FROM verdict GROUP BY BACKUP_TIME / "
                  "86400)"),
              "2");
    return std::stoi(one("SELECT count(*) / 2 FROM verdict"));
  }
  // They are removed on a day on which they were not removed yet.
  void remove_at(std::int64_t day, int second = 0) {
    fake::state().now = day * kDay + second;
    database_->store({}, {}, 0);
  }

  static constexpr std::int64_t kToday = kFirstDay / kDay;
  std::unique_ptr<VerdictDatabase> database_;
  void SetUp() override {
    VerdictDatabaseTest::SetUp();
    fake::state().now = kToday * kDay;
    database_ = open();
  }
};

TEST_F(OldVerdicts, AreRemovedOnceADay) {
  store_days(403);
  EXPECT_EQ(days_known(), 403);
  fake::state().now += kDay - 1;
  database_->store({}, {}, 0);
  EXPECT_EQ(days_known(), 403);
  remove_at(kToday + 1);
  EXPECT_EQ(days_known(), 400);
  EXPECT_TRUE(database_->find(of_day(399)[0].backup.unique_key));
  open()->store(of_day(400), {}, 0);
  EXPECT_EQ(days_known(), 400) << "another program looks at once";
}

TEST_F(OldVerdicts, AreKeptFor400DaysHoweverManyAreNewer) {
  store_days(410);
  remove_at(kToday - 9);
  EXPECT_EQ(days_known(), 410);
  remove_at(kToday - 8, 1);
  EXPECT_EQ(one("SELECT count(*) FROM verdict"), "817") << "to the second";
}

TEST_F(OldVerdicts, OfTheNewest400DaysSurviveAClockThatIsAhead) {
  store_days(400);
  remove_at(kToday + 400);
  EXPECT_EQ(days_known(), 400);
  remove_at(kToday + 4000);
  EXPECT_EQ(days_known(), 400);
}

// Days without backups do not count.
TEST_F(OldVerdicts, OfAStreamWithFewBackupsStayLonger) {
  for (int week = 0; week < 100; ++week) database_->store(of_day(7 * week), {}, 0);
  remove_at(kToday + 1);
  EXPECT_EQ(days_known(), 100);
}

TEST_F(OldVerdicts, AreNotPushedOutByBackupsOfTheFuture) {
  store_days(400);
  database_->store(of_day(-5000), {}, 0);
  remove_at(kToday + 400);
  EXPECT_EQ(days_known(), 400) << "one day of the past";
  EXPECT_TRUE(database_->find(of_day(398)[0].backup.unique_key));
}

TEST_F(OldVerdicts, BeforeTheEpochAreNoDays) {
  Backup backup = daily(0);
  backup.time = -1;
  database_->store({accepted(backup)}, {}, 0);
  store_days(1);
  EXPECT_FALSE(database_->find(backup.unique_key));
}

TEST_F(VerdictDatabaseTest, IsWrittenInOneTransactionWithALog) {
  const auto database = open();
  EXPECT_EQ(one("PRAGMA journal_mode"), "wal");
  EXPECT_EQ(one("PRAGMA user_version"), "1");
  run("CREATE TRIGGER refuse BEFORE INSERT ON meta BEGIN SELECT RAISE(ABORT, 'full'); END");
  EXPECT_THROW(database->store({accepted(daily(1))}, {}, 1), QueryError);
  EXPECT_FALSE(database->find(daily(1).unique_key));
  EXPECT_TRUE(exists("")) << "not damaged";
}

TEST_F(VerdictDatabaseTest, WithoutItsTablesGetsThemAgain) {
  open();
  run("DROP TABLE verdict");
  open()->store({accepted(daily(1))}, {}, 1);
  EXPECT_TRUE(open()->find(daily(1).unique_key));
}

TEST_F(VerdictDatabaseTest, OfALaterVersionIsRefused) {
  open();
  run("PRAGMA user_version = 2");
  for (const auto access : {VerdictDatabase::Access::kRead, VerdictDatabase::Access::kCreate}) {
    try {
      VerdictDatabase(path_, access);
      FAIL() << "accepted";
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(error.what(), path_ + " is version 2, newer than this program supports");
    }
  }
  EXPECT_THROW(open_verdicts_for_reading(path_), std::runtime_error);
}

TEST_F(VerdictDatabaseTest, ThatIsDamagedIsMovedAsideWhenItIsOpened) {
  test::write_file(path_, std::string(5000, 'x'));
  for (const char* suffix : {"-wal", "-shm"}) test::write_file(path_ + suffix, "old");
  EXPECT_TRUE(open()->anomalous_keys().empty());
  EXPECT_EQ(test::read_file(path_ + ".damaged"), std::string(5000, 'x'));
  EXPECT_EQ(fake::log_lines(), moved_aside());
  open();
  EXPECT_EQ(fake::log_lines(), moved_aside()) << "once";
}

TEST_F(VerdictDatabaseTest, ThatTurnsOutToBeDamagedIsMovedAside) {
  using Use = std::function<void(VerdictDatabase&)>;
  const std::vector<Use> uses{
      [](VerdictDatabase& database) { database.find("x"); },
      [](VerdictDatabase& database) { database.anomalous_keys(); },
      [](VerdictDatabase& database) { database.history_rowid(); },
      [](VerdictDatabase& database) { database.store({accepted(daily(1))}, {}, 1); },
      [](VerdictDatabase& database) { database.set_cluster(daily(1).unique_key, 1, 1); },
  };
  for (const Use& use : uses) {
    fake.log.clear();
    open();
    damage_pages();
    {
      const auto database = open();
      EXPECT_THROW(use(*database), QueryError);
      EXPECT_FALSE(exists("-wal")) << "another would take it for its own";
      EXPECT_FALSE(exists("-shm"));
    }
    EXPECT_EQ(fake::log_lines(), moved_aside());
    EXPECT_FALSE(exists(""));
  }
}

TEST_F(VerdictDatabaseTest, ThatCannotBeCreatedIsAnError) {
  EXPECT_THROW(open_verdicts(directory_("missing/Own.db")), QueryError);
  EXPECT_TRUE(fake::log_lines().empty());
}

TEST_F(VerdictDatabaseTest, ReadersTakeItAsItIs) {
  EXPECT_EQ(open_verdicts_for_reading(path_), nullptr);
  EXPECT_FALSE(exists(""));
  const auto writer = open();
  writer->store({anomalous(daily(1))}, {}, 2);
  EXPECT_TRUE(open_verdicts_for_reading(path_)->find(daily(1).unique_key));
  EXPECT_THROW(open_verdicts_for_reading(path_)->store({}, {}, 3), QueryError);
  EXPECT_EQ(writer->history_rowid(), 2);
}

TEST_F(VerdictDatabaseTest, ReadersCountADamagedOneAsNone) {
  test::write_file(path_, std::string(5000, 'x'));
  EXPECT_EQ(open_verdicts_for_reading(path_), nullptr);
  EXPECT_TRUE(exists(""));
  EXPECT_TRUE(fake::log_lines().empty());
  std::filesystem::remove(path_);
  open();
  damage_pages();
  EXPECT_EQ(open_verdicts_for_reading(path_), nullptr);
  EXPECT_THROW(VerdictDatabase(path_, VerdictDatabase::Access::kRead).anomalous_keys(), QueryError);
  EXPECT_TRUE(exists("")) << "a reader moves nothing";
}

}  // namespace
}  // namespace corvane::detect
