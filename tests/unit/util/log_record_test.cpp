#include "util/log_record.h"

#include <gtest/gtest.h>

#include <string>

namespace corvane {
namespace {

TEST(LogRecord, OfADaemon) {
  const std::string line = "2026-01-31T04:05:06.789Z 4711d 16 cvanomalymgmt: It failed: no disk";
  const std::optional<LogRecord> record = read_log_record(line);
  ASSERT_TRUE(record);
  EXPECT_EQ(record->time, 1769832306);
  EXPECT_EQ(record->process, 4711);
  EXPECT_TRUE(record->is_daemon);
  EXPECT_EQ(record->level, 16);
  EXPECT_EQ(record->text, "cvanomalymgmt: It failed: no disk");
}

TEST(LogRecord, OfAnotherProgram) {
  const std::optional<LogRecord> record = read_log_record("1970-01-01T00:00:01.000Z 1 2 ");
  ASSERT_TRUE(record);
  EXPECT_EQ(record->time, 1);
  EXPECT_FALSE(record->is_daemon);
  EXPECT_EQ(record->text, "");
}

TEST(LogRecord, NoOtherLineIsOne) {
  for (const std::string line :
       {"", "\tthe rest of a text", "26-01-31T04:05:06.789Z 1 2 x",
        "2026-02-30T04:05:06.789Z 1 2 x", "2026-01-31 04:05:06.789Z 1 2 x",
        "2026-01-31T04:05:06.789 1 2 x", "2026-01-31T04:05:06.789Z x 2 y",
        "2026-01-31T04:05:06.789Z 12 x", "2026-01-31T04:05:06.789Z 1 2",
        "2026-01-31T04:05:06.789Z 1x 2 y", "2026-01-31T04:05:06.789Z 1 x y",
        "2026--1-31T04:05:06.789Z 1 2 y", "2026-01-31T10000:05:06.789Z 1 2 y"}) {
    EXPECT_FALSE(read_log_record(line)) << line;
  }
}

TEST(LogRecord, BeginningsAndNumbersAreTaken) {
  std::string_view text = "from -12 to";
  EXPECT_FALSE(take(text, "to"));
  EXPECT_EQ(take_number(text), std::nullopt);
  EXPECT_TRUE(take(text, "from "));
  EXPECT_EQ(take_number(text), -12);
  EXPECT_EQ(text, " to");
  text = "99999999999999999999";
  EXPECT_EQ(take_number(text), std::nullopt);
}

}  // namespace
}  // namespace corvane
