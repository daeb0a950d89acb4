#include "anomaly_database/backup_types.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(BackupTypes, FoldsTheSpellingsOfBothGathers) {
  EXPECT_EQ(fold_policy_type("NAS-Data-Protection"), fold_policy_type("NAS_DATA_PROTECTION"));
  EXPECT_EQ(fold_policy_type("Standard"), "STANDARD");
  EXPECT_NE(fold_policy_type("Cloud"), fold_policy_type("Cloud-Volume"));
  EXPECT_EQ(fold_schedule_type("0"), "FULL");
  EXPECT_EQ(fold_schedule_type("1"), "DIFFERENTIAL_INCREMENTAL");
  EXPECT_EQ(fold_schedule_type("4"), fold_schedule_type("Cumulative-Incremental"));
  EXPECT_EQ(fold_schedule_type("2"), "USER_BACKUP");
  EXPECT_EQ(fold_schedule_type("3"), "USER_ARCHIVE");
  EXPECT_EQ(fold_schedule_type("4"), "CUMULATIVE_INCREMENTAL");
  for (const char* none : {"5", "/", ":", "", "00", "10"}) {
    EXPECT_EQ(fold_schedule_type(none), none);
  }
  EXPECT_EQ(fold_policy_type("@AZ[`az{-_ 09"), "@AZ[`AZ{___09");
}

TEST(BackupTypes, SomeNamesStandForNoName) {
  EXPECT_FALSE(is_known_application("NONE"));
  EXPECT_FALSE(is_known_application(""));
  EXPECT_TRUE(is_known_application("NA"));
  EXPECT_FALSE(is_known_destination("NA"));
  EXPECT_FALSE(is_known_destination(""));
  EXPECT_TRUE(is_known_destination("disk-pool01"));
}

}  // namespace
}  // namespace corvane
