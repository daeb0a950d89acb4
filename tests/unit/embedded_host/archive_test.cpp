#include "embedded_host/archive.h"

#include <gtest/gtest.h>

#include "tests/unit/embedded_host/catalog_world.h"

namespace corvane::host {
namespace {

namespace fs = std::filesystem;
using corvane::test::read_file;
using test::backup_line;
using test::kDay;

class Archive : public ::testing::Test {
 protected:
  Archive() { world_.load({backup_line(1, kDay, 10), backup_line(2, kDay + 10, 1)}); }

  std::string write(const ArchiveRequest& request) {
    Connection catalog = open_catalog(world_.path, Connection::Access::kRead);
    return write_archive(catalog, request, kDay * 2);
  }

  std::size_t entries() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(root_), fs::directory_iterator()));
  }

  test::CatalogWorld world_;
  std::string root_ = world_.dir("var/global/incremental/");
};

TEST_F(Archive, HoldsItsThreeFiles) {
  const std::string path = write({kDay, kDay + 5, "master01", root_});
  EXPECT_EQ(path, root_ + "master01-1769817600-1769817605");
  EXPECT_EQ(read_file(path + "/master.txt"), "master01");
  EXPECT_EQ(read_file(path + "/gather_options.json"),
            "{\"start\":1769817600,\"end\":1769817605}\n");
  const std::string images = read_file(path + "/qpimagelist.out");
  EXPECT_NE(images.find("\"job_id\":1,"), std::string::npos);
  EXPECT_EQ(images.find("\"job_id\":2,"), std::string::npos);
  EXPECT_EQ(entries(), 1U) << "nothing half-made is left";
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0755));
}

TEST_F(Archive, AnEmptyWindowIsAnArchiveToo) {
  EXPECT_EQ(read_file(write({1, 2, "master01", root_}) + "/qpimagelist.out"),
            "no entity was found\n");
}

TEST_F(Archive, IsNotWrittenTwice) {
  const std::string path = write({kDay, kDay + 5, "master01", root_});
  corvane::test::write_file(path + "/qpimagelist.out", "as it was");
  EXPECT_THROW(write({kDay, kDay + 5, "master01", root_}), std::runtime_error);
  EXPECT_EQ(read_file(path + "/qpimagelist.out"), "as it was");
  EXPECT_EQ(entries(), 1U);
}

TEST_F(Archive, AFailureLeavesNothing) {
  Connection catalog = open_catalog(world_.path, Connection::Access::kWrite);
  catalog.execute("DROP TABLE backups");
  EXPECT_THROW(write_archive(catalog, {kDay, kDay + 5, "master01", root_}, kDay * 2), QueryError);
  EXPECT_EQ(entries(), 0U);
}

TEST_F(Archive, BadNamesAndRootsAreRefused) {
  EXPECT_THROW(write({1, 2, "", root_}), std::runtime_error);
  EXPECT_THROW(write({1, 2, "../../evil", root_}), std::runtime_error);
  EXPECT_THROW(write({1, 2, "master01", world_.path}), std::system_error);
}

}  // namespace
}  // namespace corvane::host
