#include "embedded_host/backup.h"

#include <gtest/gtest.h>

#include "tests/unit/embedded_host/catalog_world.h"

namespace corvane::host {
namespace {

using test::backup_line;
using test::full_line;
using test::kDay;

FieldValue value(const Backup& backup, std::string_view attribute) {
  for (std::size_t i = 0; i < backup.size(); ++i) {
    if (backup_fields()[i].attribute == attribute) return backup[i];
  }
  throw std::out_of_range(std::string(attribute));
}

std::string complaint(const std::string& line) {
  try {
    parse_backup(line);
    return "read";
  } catch (const BadBackup& error) {
    return error.what();
  }
}

// The least line with a member replaced; an empty value leaves it out.
std::string with(const std::string& member, const std::string& json) {
  const JsonPtr line = test::parse(backup_line(1, kDay, 60));
  if (json.empty()) {
    json_object_del(line.get(), member.c_str());
  } else {
    json_object_set_new(line.get(), member.c_str(),
                        json_loads(json.c_str(), JSON_DECODE_ANY, nullptr));
  }
  const std::unique_ptr<char, decltype(&free)> text(json_dumps(line.get(), 0), free);
  return text.get();
}

TEST(Backup, ReadsEveryMember) {
  const Backup backup = parse_backup(full_line());
  EXPECT_EQ(value(backup, "jobId"), FieldValue(42L));
  EXPECT_EQ(value(backup, "parentJobId"), FieldValue(41L));
  EXPECT_EQ(value(backup, "status"), FieldValue(1L));
  EXPECT_EQ(value(backup, "startTime"), FieldValue(kDay));
  EXPECT_EQ(value(backup, "endTime"), FieldValue(kDay + 60));
  EXPECT_EQ(value(backup, "backupTime"), FieldValue(kDay - 3600));
  EXPECT_EQ(value(backup, "kbytes"), FieldValue(2048L));
  EXPECT_EQ(value(backup, "kilobytesTransferred"), FieldValue(1000L));
  EXPECT_EQ(value(backup, "numFiles"), FieldValue(300L));
  EXPECT_EQ(value(backup, "numberOfFiles"), FieldValue(301L));
  EXPECT_EQ(value(backup, "dedupRatio"), FieldValue(2.5));
  EXPECT_EQ(value(backup, "streamNumber"), FieldValue(7L));
  EXPECT_EQ(value(backup, "destinationStorageUnitName"), FieldValue("disk"));
  EXPECT_EQ(value(backup, "applicationType"), FieldValue("FILES"));
  EXPECT_EQ(value(backup, "providerGeneratedId"), FieldValue("asset-1"));
}

TEST(Backup, MembersThatMayBeAbsentHaveDefaults) {
  const Backup backup = parse_backup(backup_line(7, kDay, 60, ",\"numFiles\":5"));
  EXPECT_EQ(value(backup, "parentJobId"), FieldValue(7L));
  EXPECT_EQ(value(backup, "state"), FieldValue("DONE"));
  EXPECT_EQ(value(backup, "status"), FieldValue(0L));
  EXPECT_EQ(value(backup, "backupTime"), FieldValue(kDay));
  EXPECT_EQ(value(backup, "numberOfFiles"), FieldValue(5L));
  EXPECT_EQ(value(backup, "dedupRatio"), FieldValue(1.0));
  EXPECT_EQ(value(parse_backup(with("backupId", "")), "backupId"), FieldValue(""));
}

TEST(Backup, WhatIsMissingIsNamed) {
  for (const char* member : {"jobId", "jobType", "clientName", "policyName", "policyType",
                             "scheduleName", "scheduleType", "startTime", "endTime"}) {
    EXPECT_EQ(complaint(with(member, "")), "'" + std::string(member) + "' is missing");
  }
}

TEST(Backup, WrongMembersAreNamed) {
  EXPECT_EQ(complaint(with("jobId", "\"1\"")), "'jobId' is not a whole number");
  EXPECT_EQ(complaint(with("jobId", "1.0")), "'jobId' is not a whole number");
  EXPECT_EQ(complaint(with("jobId", "0")), "'jobId' is 0");
  EXPECT_EQ(complaint(with("jobId", "-1")), "'jobId' is negative");
  EXPECT_EQ(complaint(with("jobId", "2147483648")), "'jobId' is above 2147483647");
  EXPECT_EQ(complaint(with("kbytes", "-1")), "'kbytes' is negative");
  EXPECT_EQ(complaint(with("kbytes", "null")), "'kbytes' is not a whole number");
  EXPECT_EQ(complaint(with("kbytes", "1000000000000000")), "read");
  EXPECT_EQ(complaint(with("kbytes", "1000000000000001")), "'kbytes' is above 10^15");
  EXPECT_EQ(complaint(with("dedupRatio", "\"2\"")), "'dedupRatio' is not a number");
  EXPECT_EQ(complaint(with("dedupRatio", "2")), "read");
  EXPECT_EQ(complaint(with("clientName", "7")), "'clientName' is not a text");
  EXPECT_EQ(complaint(with("clientName", "\"\"")), "'clientName' is empty");
  EXPECT_EQ(complaint(with("clientName", "\"" + std::string(1025, 'x') + "\"")),
            "'clientName' is too long");
  EXPECT_EQ(complaint(with("policyType", "\"Standard\"")),
            "'policyType' is not one of the product's types: 'Standard'");
  EXPECT_EQ(complaint(with("scheduleType", "\"DAILY\"")),
            "'scheduleType' is not one of the product's types: 'DAILY'");
  EXPECT_EQ(complaint(with("backupId", "\"a/b\"")), "'backupId' contains the character '/'");
  EXPECT_EQ(complaint(with("label", "\"normal\"")), "unknown member 'label'");
}

TEST(Backup, BoundsAreStillGood) {
  EXPECT_EQ(complaint(with("jobId", "2147483647")), "read");
  EXPECT_EQ(complaint(with("status", "0")), "read");
  EXPECT_EQ(complaint(with("clientName", "\"" + std::string(1024, 'x') + "\"")), "read");
  EXPECT_EQ(complaint(with("backupId", "\"09AZaz._-:\"")), "read");
  EXPECT_EQ(complaint(with("startTime", "\"1970-01-01T00:00:00.000Z\"")), "read");
  EXPECT_EQ(complaint(with("endTime", "\"2038-01-19T03:14:07.000Z\"")), "read");
  EXPECT_EQ(complaint(with("endTime", "\"2026-01-31T00:00:00.000Z\"")), "read");
  EXPECT_EQ(complaint(with("backupTime", "\"2026-01-31T00:01:00.000Z\"")), "read");
}

TEST(Backup, WrongTimesAreNamed) {
  EXPECT_EQ(complaint(with("startTime", "1769817600")), "'startTime' is not a text");
  EXPECT_EQ(complaint(with("startTime", "\"2026-02-30T00:00:00.000Z\"")),
            "'startTime' is not a time in whole seconds such as 2026-01-31T04:05:06.000Z: "
            "'2026-02-30T00:00:00.000Z'");
  EXPECT_EQ(complaint(with("startTime", "\"2026-01-31T00:00:00.500Z\"")),
            "'startTime' is not a time in whole seconds such as 2026-01-31T04:05:06.000Z: "
            "'2026-01-31T00:00:00.500Z'");
  EXPECT_EQ(complaint(with("startTime", "\"1969-12-31T23:59:59.000Z\"")),
            "'startTime' is not within the years 1970 to 2038");
  EXPECT_EQ(complaint(with("endTime", "\"2038-01-19T03:14:08.000Z\"")),
            "'endTime' is not within the years 1970 to 2038");
  EXPECT_EQ(complaint(with("endTime", "\"2026-01-30T00:00:00.000Z\"")),
            "'endTime' is before 'startTime'");
  EXPECT_EQ(complaint(with("backupTime", "\"2026-02-01T00:00:00.000Z\"")),
            "'backupTime' is after 'endTime'");
}

TEST(Backup, WhatIsNoJsonObjectIsRefused) {
  EXPECT_TRUE(complaint("{\"jobId\":1").starts_with("not JSON: "));
  EXPECT_TRUE(complaint("garbage \xff").starts_with("not JSON: "));
  EXPECT_TRUE(complaint(std::string("{}\0", 3)).starts_with("not JSON: "));
  EXPECT_TRUE(complaint(R"({"jobId":1,"jobId":2})").starts_with("not JSON: duplicate"));
  EXPECT_TRUE(complaint(backup_line(1, kDay, 60) + "{}").starts_with("not JSON: "));
  EXPECT_EQ(complaint("[]"), "not a JSON object");
}

}  // namespace
}  // namespace corvane::host
