#include "embedded_host/code_tables.h"

#include <gtest/gtest.h>

using corvane::host::policy_type_code;
using corvane::host::schedule_type_code;

TEST(CodeTables, PolicyTypesHaveTheProductsCodes) {
  EXPECT_EQ(policy_type_code("STANDARD"), 0);
  EXPECT_EQ(policy_type_code("NAS_DATA_PROTECTION"), 6);
  EXPECT_EQ(policy_type_code("CLOUD"), 9);
  EXPECT_EQ(policy_type_code("CLOUD_VOLUME"), 10);
  EXPECT_EQ(policy_type_code("POSTGRESQL"), 19);
  EXPECT_EQ(policy_type_code("MYSQL"), 20);
  EXPECT_EQ(policy_type_code("CLICKHOUSE"), 29);
  EXPECT_EQ(policy_type_code("INFLUXDB"), 30);
  EXPECT_EQ(policy_type_code("MAIL_SERVER"), 36);
  EXPECT_EQ(policy_type_code("SOURCE_REPOSITORY"), 40);
  EXPECT_EQ(policy_type_code("GENERIC_STREAM"), 49);
  EXPECT_EQ(policy_type_code("UNKNOWN_50"), 50);
}

TEST(CodeTables, ScheduleTypesHaveTheProductsCodes) {
  EXPECT_EQ(schedule_type_code("FULL"), 0);
  EXPECT_EQ(schedule_type_code("DIFFERENTIAL_INCREMENTAL"), 1);
  EXPECT_EQ(schedule_type_code("USER_BACKUP"), 2);
  EXPECT_EQ(schedule_type_code("USER_ARCHIVE"), 3);
  EXPECT_EQ(schedule_type_code("CUMULATIVE_INCREMENTAL"), 4);
}

TEST(CodeTables, NamesAreTakenExactly) {
  EXPECT_FALSE(policy_type_code("Standard"));
  EXPECT_FALSE(policy_type_code(""));
  EXPECT_FALSE(schedule_type_code("full"));
  EXPECT_FALSE(schedule_type_code(""));
}
