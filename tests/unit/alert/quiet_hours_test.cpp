#include "companions/alert/quiet_hours.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace corvane::alert {
namespace {

TEST(QuietHours, AreMinutesOfTheDay) {
  struct Case {
    const char* text;
    QuietHours quiet;
  };
  for (const Case& one : {Case{"", {0, 0}},
                          {"22:00-07:00", {1320, 420}},
                          {"1:2-3:4", {62, 184}},
                          {"00:00-23:59", {0, 1439}},
                          {"24:00-07:01", {0, 421}},
                          {"07:59-24:00", {479, 0}},
                          {"05:00-05:00", {300, 300}}}) {
    QuietHours quiet{7, 8};
    EXPECT_TRUE(parse_quiet_hours(one.text, quiet)) << one.text;
    EXPECT_EQ(quiet, one.quiet) << one.text;
  }
}

TEST(QuietHours, RefuseNonsense) {
  for (const char* text :
       {"x", "22:00", "22:00-", "25:00-07:00", "22:60-07:00", "07:00-25:00", "07:00-22:60",
        "22:00-07:00 ", "-1:00-07:00", "24:01-07:00", "07:00-24:01", " 2:00-07:00", "22:00-07:001",
        "122:00-07:00", "22:00-:00"}) {
    QuietHours quiet{1, 2};
    EXPECT_FALSE(parse_quiet_hours(text, quiet)) << text;
    EXPECT_EQ(quiet, (QuietHours{1, 2}));
  }
}

class EndOfQuiet : public ::testing::Test {
 protected:
  EndOfQuiet() { set_zone("UTC"); }
  ~EndOfQuiet() override { set_zone("UTC"); }

  static void set_zone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }
  static std::int64_t end_of(const char* hours, std::int64_t now) {
    QuietHours quiet;
    EXPECT_TRUE(parse_quiet_hours(hours, quiet)) << hours;
    return end_of_quiet(quiet, now);
  }
  static constexpr std::int64_t kMidnight = 1'699'920'000;
  static constexpr std::int64_t at(int hour, int minute, int second = 0) {
    return kMidnight + hour * 3600 + minute * 60 + second;
  }
};

TEST_F(EndOfQuiet, OnOneDay) {
  EXPECT_EQ(end_of("12:30-14:45", at(12, 29, 59)), 0);
  EXPECT_EQ(end_of("12:30-14:45", at(12, 30)), at(14, 45));
  EXPECT_EQ(end_of("12:30-14:45", at(13, 59, 59)), at(14, 45));
  EXPECT_EQ(end_of("12:30-14:45", at(14, 44, 59)), at(14, 45));
  EXPECT_EQ(end_of("12:30-14:45", at(14, 45)), 0);
}

TEST_F(EndOfQuiet, OverMidnight) {
  EXPECT_EQ(end_of("22:15-07:05", at(22, 14, 59)), 0);
  EXPECT_EQ(end_of("22:15-07:05", at(22, 15)), at(24 + 7, 5));
  EXPECT_EQ(end_of("22:15-07:05", at(23, 59, 59)), at(24 + 7, 5));
  EXPECT_EQ(end_of("22:15-07:05", at(0, 0)), at(7, 5));
  EXPECT_EQ(end_of("22:15-07:05", at(7, 4, 59)), at(7, 5));
  EXPECT_EQ(end_of("22:15-07:05", at(7, 5)), 0);
  EXPECT_EQ(end_of("22:15-07:05", at(12, 0)), 0);
}

TEST_F(EndOfQuiet, ThereIsNoneWithoutQuietHours) {
  EXPECT_EQ(end_of("", at(0, 0)), 0);
  EXPECT_EQ(end_of("05:00-05:00", at(5, 0)), 0);
  EXPECT_EQ(end_of("00:00-24:00", at(5, 0)), 0);
}

TEST_F(EndOfQuiet, GoesByTheCalendarWhenTheClocksChange) {
  set_zone("Europe/Berlin");
  // 2023-10-28 23:00 CEST: this night has 25 hours. 2024-03-30 23:00 CET: this one has 23.
  EXPECT_EQ(end_of("22:00-07:00", 1'698'526'800), 1'698'526'800 + 9 * 3600);
  EXPECT_EQ(end_of("22:00-07:00", 1'711'836'000), 1'711'836'000 + 7 * 3600);
}

TEST_F(EndOfQuiet, LiesAheadWhenTheClocksAreSetBack) {
  set_zone("Europe/Berlin");
  // 2023-10-29 02:30 CET, the second 02:30 of that night.
  const std::int64_t now = 1'698'543'000;
  EXPECT_GT(end_of("01:00-02:45", now), now);
}

TEST_F(EndOfQuiet, IsByTheLocalTime) {
  set_zone("UTC-5");  // five hours ahead
  EXPECT_EQ(end_of("12:30-14:45", at(7, 30)), at(9, 45));
}

}  // namespace
}  // namespace corvane::alert
