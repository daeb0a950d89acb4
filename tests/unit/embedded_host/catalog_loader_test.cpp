#include "embedded_host/catalog_loader.h"

#include <gmock/gmock.h>

#include "tests/support/error_of.h"
#include "tests/support/sql.h"
#include "tests/unit/embedded_host/catalog_world.h"

namespace corvane::host {
namespace {

using corvane::test::query_column;
using corvane::test::query_one;
using test::backup_line;
using test::CatalogWorld;
using test::kDay;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> job_ids(const CatalogWorld& world) {
  Connection catalog = open_catalog(world.path, Connection::Access::kRead);
  return query_column(catalog.handle(), "SELECT job_id FROM backups ORDER BY job_id");
}

TEST(CatalogLoader, LoadsGoodLinesAndNamesBadOnes) {
  CatalogWorld world;
  const auto complaints =
      world.load({backup_line(1, kDay, 1), "garbage", "", "{}", backup_line(2, kDay + 1, 1)});
  EXPECT_THAT(complaints, ElementsAre(::testing::StartsWith("lines:2: not JSON: "),
                                      "lines:4: 'jobId' is missing"));
  EXPECT_THAT(job_ids(world), ElementsAre("1", "2"));
}

TEST(CatalogLoader, TheSameJobAgainReplacesIt) {
  CatalogWorld world;
  EXPECT_THAT(world.load({backup_line(1, kDay, 1, ",\"kbytes\":1")}), IsEmpty());
  EXPECT_THAT(world.load({backup_line(1, kDay, 1, ",\"kbytes\":2")}), IsEmpty());
  Connection catalog = open_catalog(world.path, Connection::Access::kRead);
  EXPECT_THAT(query_column(catalog.handle(), "SELECT kbytes FROM backups"), ElementsAre("2"));
}

TEST(CatalogLoader, AnotherJobsBackupIdIsRefused) {
  CatalogWorld world;
  EXPECT_THAT(world.load({backup_line(1, kDay, 1), backup_line(2, kDay, 1)}),
              ElementsAre("lines:2: another job already has this 'backupId'"));
  EXPECT_THAT(job_ids(world), ElementsAre("1"));
}

TEST(CatalogLoader, JobsWithoutImagesMayBeMany) {
  CatalogWorld world;
  std::string first = backup_line(1, kDay, 1);
  std::string second = backup_line(2, kDay, 1);
  for (std::string* line : {&first, &second}) {
    line->replace(line->find("web01_"), std::string("web01_1769817600").size(), "");
  }
  EXPECT_THAT(world.load({first, second}), IsEmpty());
  EXPECT_THAT(job_ids(world), ElementsAre("1", "2"));
}

TEST(CatalogLoader, ALineThatIsTooLongLosesNothingElse) {
  CatalogWorld world;
  EXPECT_THAT(world.load({backup_line(1, kDay, 1), std::string(1'000'000, ' '),
                          std::string(64 * 1024 + 1, 'x'), backup_line(2, kDay + 1, 1)}),
              ElementsAre("lines:2: the line is too long", "lines:3: the line is too long"));
  EXPECT_THAT(job_ids(world), ElementsAre("1", "2"));
}

TEST(CatalogLoader, TheLongestLinesAreRead) {
  CatalogWorld world;
  std::vector<std::string> lines;
  for (const std::size_t length : {65534, 65535, 65536}) {
    const int number = static_cast<int>(lines.size()) + 1;
    lines.push_back(backup_line(number, kDay + number, 1));
    lines.back().resize(length, ' ');
  }
  EXPECT_THAT(world.load(lines), IsEmpty());
  EXPECT_THAT(job_ids(world), ElementsAre("1", "2", "3"));
}

TEST(CatalogLoader, ALastLineWithoutItsEndIsRead) {
  CatalogWorld world;
  Connection catalog = open_catalog(world.path, Connection::Access::kCreate);
  const std::string line = backup_line(2, kDay + 1, 1);
  std::istringstream in(backup_line(1, kDay, 1) + "\r\n" + line);
  EXPECT_EQ(load_backups(catalog, in, "lines", [](const std::string&) {}).loaded, 2);

  std::istringstream cut(backup_line(3, kDay + 2, 1) + "\n" + line.substr(0, line.size() / 2));
  const LoadResult result = load_backups(catalog, cut, "lines", [](const std::string&) {});
  EXPECT_EQ(result.loaded, 1);
  EXPECT_EQ(result.rejected, 1);
}

TEST(CatalogLoader, ManyLinesTakeSeveralTransactions) {
  CatalogWorld world;
  std::vector<std::string> lines;
  for (int i = 1; i <= 10'001; ++i) lines.push_back(backup_line(i, kDay + i, 1));
  EXPECT_THAT(world.load(lines), IsEmpty());
  Connection catalog = open_catalog(world.path, Connection::Access::kRead);
  EXPECT_EQ(query_one(catalog.handle(), "SELECT count(*) FROM backups"), "10001");
}

// Empty: all of it fitted.
std::string error_of_loading(Connection& catalog, std::istream& in) {
  return corvane::test::error_of<LoadFailure>(
      [&] { load_backups(catalog, in, "lines", [](const std::string&) {}); });
}

TEST(CatalogLoader, AFullCatalogSaysWhatItHolds) {
  CatalogWorld world;
  Connection catalog = open_catalog(world.path, Connection::Access::kCreate);
  catalog.execute("PRAGMA max_page_count=400");
  std::string text;
  for (int i = 1; i <= 12'000; ++i) text += backup_line(i, kDay + i, 1) + "\n";
  std::istringstream in(text);
  EXPECT_EQ(error_of_loading(catalog, in),
            "cannot write the catalog: database or disk is full; 5000 backups are in the catalog")
      << "so many lines are a transaction";
  EXPECT_EQ(query_one(catalog.handle(), "SELECT count(*) FROM backups"), "5000");
}

TEST(CatalogLoader, AFullCatalogMayHoldNothing) {
  CatalogWorld world;
  Connection catalog = open_catalog(world.path, Connection::Access::kCreate);
  catalog.execute("PRAGMA max_page_count=20");
  std::string text;
  for (int i = 1; i <= 1000; ++i) text += backup_line(i, kDay + i, 1) + "\n";
  std::istringstream in(text);
  EXPECT_EQ(error_of_loading(catalog, in),
            "cannot write the catalog: database or disk is full; 0 backups are in the catalog");
}

TEST(CatalogLoader, AFolderIsNoInput) {
  CatalogWorld world;
  Connection catalog = open_catalog(world.path, Connection::Access::kCreate);
  std::ifstream folder(world.dir());
  EXPECT_THROW(load_backups(catalog, folder, "folder", [](const std::string&) {}), LoadFailure);
}

}  // namespace
}  // namespace corvane::host
