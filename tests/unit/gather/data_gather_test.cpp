#include "gather/data_gather.h"

#include <cstdlib>
#include <ctime>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>

#include "tests/unit/gather/gather_world.h"

namespace corvane {
namespace {

using test::GatherTest;

using DataGatherTest = GatherTest;

const std::vector<std::string> kPolicyTypeNames{"Standard",
                                                "Unix-Files",
                                                "Windows-Files",
                                                "Mac-Files",
                                                "Raw-Device",
                                                "Bare-Metal",
                                                "NAS-Data-Protection",
                                                "NAS-Dump",
                                                "Object-Store",
                                                "Cloud",
                                                "Cloud-Volume",
                                                "Cloud-Database",
                                                "Virtual-Machine-Image",
                                                "Hypervisor-KVM",
                                                "Hypervisor-Xen",
                                                "Container-Volume",
                                                "Kubernetes",
                                                "OpenStack",
                                                "Relational-Database",
                                                "PostgreSQL",
                                                "MySQL",
                                                "MariaDB",
                                                "SQLite",
                                                "Firebird",
                                                "MongoDB",
                                                "Cassandra",
                                                "CouchDB",
                                                "Redis",
                                                "Elasticsearch",
                                                "ClickHouse",
                                                "InfluxDB",
                                                "Hadoop",
                                                "HBase",
                                                "Ceph",
                                                "Gluster",
                                                "Lustre",
                                                "Mail-Server",
                                                "Directory-Service",
                                                "Collaboration-Site",
                                                "Message-Queue",
                                                "Source-Repository",
                                                "Snapshot",
                                                "Snapshot-Replica",
                                                "Continuous-Log",
                                                "Synthetic",
                                                "Catalog",
                                                "Vault",
                                                "Tape-Copy",
                                                "Application-Script",
                                                "Generic-Stream",
                                                "UNKNOWN-50"};

TEST_F(DataGatherTest, ConstructorKeepsItsArgumentsAndDerivesTheRest) {
  const DataGather made(&world.db(), "/some/where", "master02");
  EXPECT_EQ(made.db, &world.db());
  EXPECT_EQ(made.db_location, "/some/where");
  EXPECT_EQ(made.master_server, "master02");
  EXPECT_EQ(made.deployutil_dir, "/some/where/../incremental/");
  EXPECT_TRUE(made.detection_state);
}

TEST_F(DataGatherTest, DestructorLeavesTheDatabaseOpen) {
  std::make_unique<DataGather>(&world.db(), world.location, "").reset();
  EXPECT_EQ(test::query_one(db, "SELECT 1"), "1");
}

TEST_F(DataGatherTest, PolicyTypesAreThe51CodesAndNames) {
  ASSERT_EQ(kPolicyTypeNames.size(), 51U);
  ASSERT_EQ(gather.policy_types.size(), 51U);
  int code = 0;
  for (const std::string& name : kPolicyTypeNames) EXPECT_EQ(gather.policy_types.at(code++), name);
}

TEST_F(DataGatherTest, ScheduleTypesAreTheFiveCodesAndNames) {
  EXPECT_EQ(gather.schedule_types,
            (std::map<std::int32_t, std::string>{{0, "FULL"},
                                                 {1, "DIFFERENTIAL_INCREMENTAL"},
                                                 {2, "USER_BACKUP"},
                                                 {3, "USER_ARCHIVE"},
                                                 {4, "CUMULATIVE_INCREMENTAL"}}));
}

TEST_F(DataGatherTest, ScheduleTypeCode7HasTheEmptyNameAndTheTableThenSixEntries) {
  EXPECT_EQ(gather.schedule_type_name("7"), "");
  EXPECT_EQ(gather.schedule_types.size(), 6U);
  EXPECT_EQ(gather.schedule_type_name("7"), "");
  EXPECT_EQ(gather.schedule_types.size(), 6U);
}

TEST_F(DataGatherTest, UnknownPolicyTypeCodeHasTheEmptyNameAndStaysInTheTable) {
  EXPECT_EQ(gather.policy_type_name("99"), "");
  EXPECT_EQ(gather.policy_type_name("-1"), "");
  EXPECT_EQ(gather.policy_types.size(), 53U);
}

TEST_F(DataGatherTest, CodeThatIsNoNumberIsCodeZero) {
  EXPECT_EQ(gather.policy_type_name(""), "Standard");
  EXPECT_EQ(gather.schedule_type_name("none"), "FULL");
  EXPECT_EQ(gather.policy_type_name("50"), "UNKNOWN-50");
}

TEST_F(DataGatherTest, ImagesOfTwoPolicyTypesAreFetchedOneByOneInExactSpelling) {
  EXPECT_EQ(gather.slp_policy_types, (std::vector<std::string>{"CLOUD", "NAS_DATA_PROTECTION"}));
  EXPECT_TRUE(gather.validate_slp_policytype("CLOUD"));
  EXPECT_TRUE(gather.validate_slp_policytype("NAS_DATA_PROTECTION"));
  for (const char* other : {"Cloud", "cloud", "CLOUD ", "CLOU", "CLOUD_VOLUME", ""}) {
    EXPECT_FALSE(gather.validate_slp_policytype(other)) << other;
  }
}

TEST_F(DataGatherTest, DetectionStateIsTrueForAnythingButZero) {
  gather.set_detection_state(5);
  EXPECT_TRUE(gather.detection_state);
  gather.set_detection_state(0);
  EXPECT_FALSE(gather.detection_state);
  gather.set_detection_state(-1);
  EXPECT_TRUE(gather.detection_state);
}

TEST_F(DataGatherTest, OnlyDoneAndSuspendedJobsAreNotActive) {
  EXPECT_FALSE(gather.IsActiveJob("DONE"));
  EXPECT_FALSE(gather.IsActiveJob("SUSPENDED"));
  for (const char* state : {"ACTIVE", "QUEUED", "done", "DONE ", ""}) {
    EXPECT_TRUE(gather.IsActiveJob(state)) << state;
  }
}

constexpr int kMay2023 = 1682936430;  // 2023-05-01 10:20:30 UTC

TEST_F(DataGatherTest, TimeTextAndSecondsAreEachOthersInverse) {
  EXPECT_EQ(gather.str_to_time("2023-05-01T10:20:30.000Z"), kMay2023);
  EXPECT_EQ(gather.time_to_str(kMay2023), "2023-05-01T10:20:30.000Z");
  for (int seconds = -2'000'000'000; seconds < 2'000'000'000; seconds += 39'916'801) {
    EXPECT_EQ(gather.str_to_time(gather.time_to_str(seconds)), seconds);
  }
}

TEST_F(DataGatherTest, TimeTextOfSecondZeroIsTheEpoch) {
  EXPECT_EQ(gather.time_to_str(0), "1970-01-01T00:00:00.000Z");
}

TEST_F(DataGatherTest, TimeTextsOfTheLimits) {
  EXPECT_EQ(gather.time_to_str(-1), "1969-12-31T23:59:59.000Z");
  EXPECT_EQ(gather.time_to_str(std::numeric_limits<int>::max()), "2038-01-19T03:14:07.000Z");
  EXPECT_EQ(gather.time_to_str(std::numeric_limits<int>::min()), "1901-12-13T20:45:52.000Z");
}

TEST_F(DataGatherTest, TimesAreUtcWhateverTheTimeZone) {
  const char* set = std::getenv("TZ");
  const auto before = set == nullptr ? std::nullopt : std::optional<std::string>(set);
  setenv("TZ", "EST5EDT,M3.2.0,M11.1.0", 1);
  tzset();
  EXPECT_EQ(gather.str_to_time("2023-05-01T10:20:30.000Z"), kMay2023);
  EXPECT_EQ(gather.time_to_str(kMay2023), "2023-05-01T10:20:30.000Z");
  if (before) {
    setenv("TZ", before->c_str(), 1);
  } else {
    unsetenv("TZ");
  }
  tzset();
}

TEST_F(DataGatherTest, TimeTextWithoutFractionAndZoneIsTheSameTime) {
  EXPECT_EQ(gather.str_to_time("2023-05-01T10:20:30"), kMay2023);
}

TEST_F(DataGatherTest, TimeTextOf17CharactersHasNoSeconds) {
  EXPECT_EQ(gather.str_to_time("2023-05-01T10:20:"), kMay2023 - 30);
  EXPECT_EQ(gather.str_to_time("2023-05-01T10:20:3"), kMay2023 - 27);
}

TEST_F(DataGatherTest, EveryShorterTimeTextIsOutOfRange) {
  const std::string whole = "2023-05-01T10:20:";
  for (std::size_t length = 0; length < whole.size(); ++length) {
    try {
      gather.str_to_time(whole.substr(0, length));
      ADD_FAILURE() << "nothing thrown for " << length << " characters";
    } catch (const std::out_of_range& error) {
      EXPECT_STREQ(error.what(), "basic_string::substr");
    }
  }
}

TEST_F(DataGatherTest, TimeTextIsReadByPositionsAlone) {
  EXPECT_EQ(gather.str_to_time("2023/05/01 10.20.30 and more"), kMay2023);
  EXPECT_EQ(gather.str_to_time("2023x05x01x10x20x30"), kMay2023);
  EXPECT_EQ(gather.str_to_time("2023-05-01Txx:20:30.000Z"), kMay2023 - 10 * 3600);
  EXPECT_EQ(gather.str_to_time("2023-05-32T10:20:30.000Z"), kMay2023 + 31 * 86400);
}

}  // namespace
}  // namespace corvane
