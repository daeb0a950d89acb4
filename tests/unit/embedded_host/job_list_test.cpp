#include "embedded_host/job_list.h"

#include <gtest/gtest.h>

#include "tests/unit/embedded_host/catalog_world.h"

namespace corvane::host {
namespace {

using test::backup_line;
using test::full_line;
using test::kDay;

class JobList : public ::testing::Test {
 protected:
  std::string list(const std::vector<std::int64_t>& ids, std::int64_t now) {
    Connection catalog = open_catalog(world_.path, Connection::Access::kRead);
    return test::written([&](std::FILE* out) { write_job_list(catalog, ids, now, out); });
  }

  // The job ids of the answer, in order.
  std::vector<std::int64_t> found(const std::vector<std::int64_t>& ids, std::int64_t now) {
    const JsonPtr jobs = test::parse(list(ids, now));
    std::vector<std::int64_t> numbers;
    for (std::size_t i = 0; i < json_array_size(jobs.get()); ++i) {
      numbers.push_back(
          json_integer_value(json_object_get(json_array_get(jobs.get(), i), "JobId")));
    }
    return numbers;
  }

  test::CatalogWorld world_;
};

TEST_F(JobList, AJobHasEveryMember) {
  world_.load({full_line()});
  EXPECT_EQ(list({42}, kDay + 60),
            R"([{"JobId":42,"ParentJobId":41,"JobType":"BACKUP","State":"DONE","Status":1,)"
            R"("Client":"web01","Policy":"web","Schedule":"daily","StartTime":1769817600,)"
            R"("EndTime":1769817660,"KilobytesTransferred":1000,"Files":301,"StreamNumber":7,)"
            R"("DestinationStorageUnitName":"disk","DedupRatio":2.5}])"
            "\n");
}

TEST_F(JobList, ARunningJobHasNoEnd) {
  world_.load({full_line()});
  EXPECT_EQ(list({42}, kDay + 30),
            R"([{"JobId":42,"ParentJobId":41,"JobType":"BACKUP","State":"ACTIVE","Status":0,)"
            R"("Client":"web01","Policy":"web","Schedule":"daily","StartTime":1769817600,)"
            R"("EndTime":0,"KilobytesTransferred":500,"Files":150,"StreamNumber":7,)"
            R"("DestinationStorageUnitName":"disk","DedupRatio":2.5}])"
            "\n");
  EXPECT_NE(list({42}, kDay + 59).find("\"KilobytesTransferred\":980,\"Files\":294,"),
            std::string::npos);
  EXPECT_EQ(list({42}, kDay - 1), "[]\n");
  EXPECT_EQ(found({42}, kDay), std::vector<std::int64_t>{42}) << "it has just begun";
}

TEST_F(JobList, JobsComeInTheOrderAskedEachOnce) {
  world_.load({backup_line(1, kDay, 1), backup_line(2, kDay + 1, 1), backup_line(3, kDay + 2, 1)});
  EXPECT_EQ(found({3, 1, 3, 99, 0, -1, 2}, kDay + 100), (std::vector<std::int64_t>{3, 1, 2}));
  EXPECT_EQ(list({99}, kDay + 100), "[]\n");
}

}  // namespace
}  // namespace corvane::host
