#include "embedded_host/image_list.h"

#include <gtest/gtest.h>

#include "tests/unit/embedded_host/catalog_world.h"

namespace corvane::host {
namespace {

using test::backup_line;
using test::full_line;
using test::kDay;

class ImageList : public ::testing::Test {
 protected:
  std::string list(std::int64_t start, std::int64_t end, std::int64_t now) {
    Connection catalog = open_catalog(world_.path, Connection::Access::kRead);
    return test::written([&](std::FILE* out) { write_image_list(catalog, start, end, now, out); });
  }

  test::CatalogWorld world_;
};

TEST_F(ImageList, ALineHasEveryMember) {
  world_.load({full_line()});
  EXPECT_EQ(list(0, kDay * 2, kDay * 2),
            R"({"client_name":"web01","policy_name":"web","backupid":"web01_1769817600",)"
            R"("client_type":0,"backup_time":1769814000,"sched_type":0,"sched_label":"daily",)"
            R"("num_files":300,"kbytes":2048,"job_id":42,"stream_number":7,)"
            R"("provider_generated_id":"asset-1","elapsed_time":60,"expiration":2147483647,)"
            R"("copies":1,"frags":[{"copy":1,"number":1,"kbytes":2048,"storage_unit":"disk"}]})"
            "\n");
}

TEST_F(ImageList, CodesStandForNames) {
  std::string line = backup_line(1, kDay, 1);
  line.replace(line.find("STANDARD"), 8, "NAS_DATA_PROTECTION");
  line.replace(line.find("FULL"), 4, "DIFFERENTIAL_INCREMENTAL");
  world_.load({line});
  const JsonPtr image = test::parse(list(0, kDay * 2, kDay * 2));
  EXPECT_EQ(json_integer_value(json_object_get(image.get(), "client_type")), 6);
  EXPECT_EQ(json_integer_value(json_object_get(image.get(), "sched_type")), 1);

  Connection(world_.path, Connection::Access::kWrite)
      .execute("UPDATE backups SET policy_type = 'X', schedule_type = 'Y'");
  const JsonPtr unknown = test::parse(list(0, kDay * 2, kDay * 2));
  EXPECT_EQ(json_integer_value(json_object_get(unknown.get(), "client_type")), -1);
  EXPECT_EQ(json_integer_value(json_object_get(unknown.get(), "sched_type")), -1);
}

TEST_F(ImageList, BothEndsAreIncludedAndTimeOrders) {
  world_.load({backup_line(1, kDay + 20, 1), backup_line(2, kDay + 10, 1),
               backup_line(3, kDay + 30, 1), backup_line(4, kDay + 31, 1)});
  const std::string text = list(kDay + 10, kDay + 30, kDay * 2);
  const auto second = text.find("\"job_id\":2");
  const auto first = text.find("\"job_id\":1");
  const auto third = text.find("\"job_id\":3");
  EXPECT_LT(second, first);
  EXPECT_LT(first, third);
  EXPECT_NE(third, std::string::npos);
  EXPECT_EQ(text.find("\"job_id\":4"), std::string::npos);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
}

TEST_F(ImageList, NothingFoundIsALine) {
  world_.load({backup_line(1, kDay, 10)});
  EXPECT_EQ(list(0, kDay - 1, kDay * 2), "no entity was found\n");
  EXPECT_EQ(list(kDay + 5, kDay, kDay * 2), "no entity was found\n");
  EXPECT_EQ(list(0, kDay * 2, kDay + 9), "no entity was found\n") << "the job is still running";
  EXPECT_NE(list(0, kDay * 2, kDay + 10), "no entity was found\n");
}

TEST_F(ImageList, AFullDiskIsAnError) {
  std::vector<std::string> lines;
  for (int i = 1; i < 100; ++i) lines.push_back(backup_line(i, kDay + i, 1));
  world_.load(lines);
  Connection catalog = open_catalog(world_.path, Connection::Access::kRead);
  const FilePtr full(std::fopen("/dev/full", "we"));
  EXPECT_THROW(write_image_list(catalog, 0, kDay * 2, kDay * 2, full.get()), std::system_error);
}

}  // namespace
}  // namespace corvane::host
