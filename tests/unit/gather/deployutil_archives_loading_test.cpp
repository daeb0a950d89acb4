// Loading the archives: order, transactions, failures, stop requests.
#include "service/service_stop_exception.h"
#include "service/signals.h"
#include "tests/support/child_process.h"
#include "tests/unit/gather/archives.h"

namespace corvane::test {
namespace {

constexpr char kTag[] = "DataGather::do_cvdeployutil_gather";

LogLine progress(const std::string& text) { return {2, kProgram, text}; }
LogLine own(const std::string& text) { return {2, kTag, text}; }

class ArchiveLoading : public ArchivesTest {
 protected:
  void load() { gather.do_cvdeployutil_gather(500, 5000, covered_start, covered_end); }

  // The archives in the order in which they are found.
  std::vector<std::string> found() {
    std::vector<std::string> dirs;
    int ignored_start = 0;
    int ignored_end = 0;
    gather.collect_deployutil_directories(500, 5000, dirs, ignored_start, ignored_end);
    fake.log.clear();
    return dirs;
  }

  int covered_start = 0;
  int covered_end = 0;
};

TEST_F(ArchiveLoading, GoesFromTheLastFolderToTheFirstEachInATransactionOfItsOwn) {
  world.archive("a", 1000, 2000, {1});
  world.archive("b", 2000, 3000, {2});
  world.archive("c", 3000, 4000, {3});
  const auto dirs = found();
  ASSERT_EQ(dirs.size(), 3U);
  SqlRecorder sql(db);
  load();
  std::vector<LogLine> expected{own("Collecting cvdeployutil directories...")};
  for (const auto& dir : dirs) expected.push_back(progress("Checking in folder " + dir));
  for (auto dir = dirs.rbegin(); dir != dirs.rend(); ++dir) {
    expected.push_back(own("Collecting data from file: " + *dir + "/qpimagelist.out"));
    expected.push_back(progress("Parsing file " + *dir + "/qpimagelist.out"));
    expected.push_back(progress("Total images captured = 1"));
  }
  EXPECT_EQ(fake.log, expected);
  const std::string insert =
      "INSERT OR REPLACE INTO HIST_DATA  VALUES ( ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
      "?, ?, ?, ?, ?, ?, ? );";
  std::vector<std::string> statements;
  for (int i = 0; i < 3; ++i) {
    statements.insert(statements.end(), {"BEGIN TRANSACTION;", insert, "END TRANSACTION;"});
  }
  EXPECT_EQ(sql.texts, statements);
  EXPECT_EQ(covered_start, 1000);
  EXPECT_EQ(covered_end, 4000);
}

TEST_F(ArchiveLoading, ImagesGoToHistDataInHistoricalMode) {
  gather.set_detection_state(0);
  world.archive("a", 1000, 2000);
  write_file(world.file("a", "qpimagelist.out"),
             "{\"backupid\": \"h_1\", \"job_id\": 42, \"client_type\": 1}\n");
  load();
  EXPECT_EQ(query(db, "SELECT UNIQUE_KEY, POLICY_TYPE, MODE FROM HIST_DATA"),
            (std::vector<SqlRow>{{"data_42_h_1", "Unix-Files", "0"}}));
}

TEST_F(ArchiveLoading, ArchiveWithoutAnImageFileIsAnEmptyOneThatStillCovers) {
  world.archive("a", 1000, 2000);
  std::filesystem::remove(world.file("a", "qpimagelist.out"));
  load();
  EXPECT_EQ(covered_end, 2000);
  EXPECT_EQ(fake.log.back(), progress("Total images captured = 0"));
  EXPECT_TRUE(corvane::fake::log_lines(16).empty());
}

TEST_F(ArchiveLoading, ArchiveThatCannotBeReadToItsEndIsSaidAndTheOthersAreLoaded) {
  world.archive("good", 1000, 2000, {1});
  world.archive("bad", 2000, 3000);
  std::filesystem::remove(world.file("bad", "qpimagelist.out"));
  std::filesystem::create_directory(world.file("bad", "qpimagelist.out"));  // opens, is not read
  load();
  EXPECT_EQ(world.stored_jobs(), std::vector<std::string>{"1"});
  EXPECT_EQ(
      corvane::fake::log_lines(16),
      (std::vector<LogLine>{{16, "cvanomalymgmt",
                             "Could not read all of " + world.path("bad") + "/qpimagelist.out"}}));
  EXPECT_EQ(covered_end, 3000);
}

TEST_F(ArchiveLoading, BadLinesInsideAnArchiveDoNotUndoTheOthers) {
  world.archive("a", 1000, 2000);
  write_file(world.file("a", "qpimagelist.out"), "{\"job_id\": 1}\n{half\n{\"job_id\": 2}\n");
  load();
  EXPECT_EQ(world.stored_jobs(), (std::vector<std::string>{"1", "2"}));
}

// Rows of these jobs make the commit of their transaction fail, which leaves it open.
void refuse_commit_of_job(sqlite3* db, int job_id) {
  query(db, "PRAGMA foreign_keys=ON");
  query(db, "CREATE TABLE PARENT (ID INTEGER PRIMARY KEY)");
  query(db, "CREATE TABLE CHILD (ID INT REFERENCES PARENT (ID) DEFERRABLE INITIALLY DEFERRED)");
  query(db, "CREATE TRIGGER orphan AFTER INSERT ON HIST_DATA WHEN NEW.JOB_ID = " +
                std::to_string(job_id) + " BEGIN INSERT INTO CHILD VALUES (1); END");
}

TEST_F(ArchiveLoading, ArchiveWhoseCommitFailsLeavesNoRowsAndTheOthersAreLoaded) {
  refuse_commit_of_job(db, 13);
  world.archive("a", 1000, 2000, {1});
  world.archive("bad", 2000, 3000, {12, 13, 14});
  world.archive("c", 3000, 4000, {3});
  load();
  EXPECT_EQ(world.stored_jobs(), (std::vector<std::string>{"1", "3"}));
  EXPECT_EQ(std::count(fake.log.begin(), fake.log.end(),
                       own("Error occurred while reading image data from " + world.path("bad") +
                           "/qpimagelist.out")),
            1);
  EXPECT_TRUE(corvane::fake::log_lines(16).empty());
  EXPECT_NE(sqlite3_get_autocommit(db), 0);
  EXPECT_EQ(covered_end, 4000);  // the caller takes it as covered all the same
}

TEST_F(ArchiveLoading, RollbackThatFailsIsLoggedAndTheNextArchiveFollows) {
  world.archive("a", 1000, 2000, {1});
  world.archive("b", 2000, 3000, {2});
  // A commit that this refuses is rolled back by SQLite itself, as on a full disk.
  int commits = 0;
  sqlite3_commit_hook(
      db, [](void* count) { return ++*static_cast<int*>(count) == 1 ? 1 : 0; }, &commits);
  const auto dirs = found();
  load();
  sqlite3_commit_hook(db, nullptr, nullptr);
  const std::vector<LogLine> tail(fake.log.begin() + 3, fake.log.end());
  EXPECT_EQ(tail,
            (std::vector<LogLine>{
                own("Collecting data from file: " + dirs[1] + "/qpimagelist.out"),
                progress("Parsing file " + dirs[1] + "/qpimagelist.out"),
                progress("Total images captured = 1"),
                own("Error occurred while reading image data from " + dirs[1] + "/qpimagelist.out"),
                {16, kTag, "ROLLBACK TRANSACTION execution failed."},
                own("Collecting data from file: " + dirs[0] + "/qpimagelist.out"),
                progress("Parsing file " + dirs[0] + "/qpimagelist.out"),
                progress("Total images captured = 1")}));
  EXPECT_EQ(world.rows("HIST_DATA"), "1");
}

TEST_F(ArchiveLoading, BeginInsideAnOpenTransactionFailsAndRollsThatBack) {
  world.archive("a", 1000, 2000, {1});
  world.db().begin_transaction();
  query(db, "INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (7)");
  load();
  EXPECT_EQ(fake.log.back(), own("Error occurred while reading image data from " + world.path("a") +
                                 "/qpimagelist.out"));
  EXPECT_EQ(world.rows("LAST_BACKUP_DATA_CAPTURE"), "0");
  EXPECT_EQ(world.rows("HIST_DATA"), "0");
  EXPECT_NE(sqlite3_get_autocommit(db), 0);
}

TEST_F(ArchiveLoading, ImageThatTheDatabaseRefusesIsLostAlone) {
  query(db,
        "CREATE TRIGGER refuse BEFORE INSERT ON HIST_DATA WHEN NEW.JOB_ID = 2 "
        "BEGIN SELECT RAISE(ABORT, 'no'); END");
  world.archive("a", 1000, 2000, {1, 2, 3});
  load();
  EXPECT_EQ(world.stored_jobs(), (std::vector<std::string>{"1", "3"}));
  EXPECT_EQ(corvane::fake::log_lines(16),
            (std::vector<LogLine>{{16, kProgram,
                                   "Error inserting data in IMAGE_DATA sqlite query execution "
                                   "failed."}}));
}

// --- Stop requests: once made they stay, hence a process for each ---

using ArchiveStop = PlatformFake;

TEST_F(ArchiveStop, BeforeTheFirstArchiveThrowsAndStoresNothing) {
  EXPECT_EQ(run_in_child([] {
              ArchiveWorld world;
              world.archive("a", 1000, 2000, {1});
              SetShutDownInitiated();
              try {
                world.gather->do_cvdeployutil_gather(500, 5000);
                ADD_FAILURE() << "nothing thrown";
              } catch (const ServiceStopException& stop) {
                EXPECT_STREQ(stop.what(), kTag);
              }
              EXPECT_EQ(corvane::fake::log_lines().back(),
                        (LogLine{4, kTag, "Service has been requested to stop"}));
              EXPECT_EQ(world.rows("HIST_DATA"), "0");
            }),
            kChildSucceeded);
}

TEST_F(ArchiveStop, BetweenTwoArchivesKeepsTheOneThatIsLoaded) {
  EXPECT_EQ(
      run_in_child([] {
        ArchiveWorld world;
        world.archive("a", 1000, 2000, {1});
        world.archive("b", 2000, 3000, {2});
        sqlite3_commit_hook(
            world.handle(), [](void*) { return SetShutDownInitiated(); }, nullptr);
        EXPECT_THROW(world.gather->do_cvdeployutil_gather(500, 5000), ServiceStopException);
        EXPECT_EQ(world.rows("HIST_DATA"), "1");
        EXPECT_NE(sqlite3_get_autocommit(world.handle()), 0);
        EXPECT_EQ(
            corvane::fake::log_lines(4),
            (std::vector<LogLine>{
                {4, "isTimeToStop", "System called for Service ShutDown. Stopping the service"},
                {4, kTag, "Service has been requested to stop"}}));
      }),
      kChildSucceeded);
}

TEST_F(ArchiveStop, WithoutArchivesIsNotNoticed) {
  EXPECT_EQ(run_in_child([] {
              ArchiveWorld world;
              SetShutDownInitiated();
              EXPECT_EQ(world.gather->do_cvdeployutil_gather(500, 5000).size(), 1U);
            }),
            kChildSucceeded);
}

}  // namespace
}  // namespace corvane::test
