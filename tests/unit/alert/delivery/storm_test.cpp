#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/alert/alert_world.h"

namespace corvane::alert {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// Settling takes 5 seconds, a window 900.
class Storm : public AlertWorld {
 protected:
  void anomalies(const std::string& prefix, int count, int severity = 2) {
    for (int i = 0; i < count; ++i) {
      const std::string name = prefix + std::to_string(i);
      anomaly("anomaly_" + name, details_of(name, "incident_" + name, severity, kFirst));
    }
  }
};

TEST_F(Storm, AsManyAsTheLimitAreToldOneByOne) {
  anomalies("c", 10);
  pass();
  EXPECT_EQ(take(kMail).size(), 10U);
}

TEST_F(Storm, OneMoreBecomesOneSummaryAndNothingIsDropped) {
  anomalies("c", 11);
  pass();
  EXPECT_THAT(take(kMail), IsEmpty());
  EXPECT_THAT(take(kMail, kFirst + 5), ElementsAre("summary  2"));
  EXPECT_THAT(taken_.back().subject, HasSubstr("11 new incidents, on 11 clients"));
  EXPECT_EQ(taken_.back().records, 11);
  EXPECT_THAT(taken_.back().body,
              AllOf(HasSubstr("By severity: major (11).\n"), HasSubstr("encryption (11)"),
                    HasSubstr("client c10 "),
                    HasSubstr("At 2023-11-14 22:13 UTC: 11 new incidents, on 11 clients.\n")));
  EXPECT_THAT(taken_.back().details, HasSubstr("anomaly_c10"));
  EXPECT_EQ(take(kWeb).size(), 11U);
  EXPECT_EQ(pass().processed, 11U);
}

TEST_F(Storm, EachChannelHasItsOwn) {
  settings_.syslog = 1;
  settings_.syslog_severity = 3;
  anomalies("c", 11);
  anomalies("d", 2, 3);
  pass();
  EXPECT_THAT(take(kMail, kFirst + 5), ElementsAre("summary  3"));
  EXPECT_THAT(take(kSyslog), ElementsAre("begin d0 3", "begin d1 3"));
}

TEST_F(Storm, WhatWasBegunToBeSentIsNotFolded) {
  anomalies("a", 8);
  pass();
  const auto begun = Outbox(*state_).begin(kMail, kFirst);
  ASSERT_TRUE(begun);
  anomalies("b", 7);
  pass();
  EXPECT_THAT(take(kMail, kFirst + 5), ElementsAre("summary  2", "begin a0 2"));
  EXPECT_THAT(taken_.front().subject, HasSubstr("14 new incidents"));
}

TEST_F(Storm, ASummaryWaitsForMoreButNotForever) {
  anomalies("a", 11);
  pass();
  for (int i = 1; i < 15; ++i) {
    anomalies("more" + std::to_string(i), 1);
    pass(kFirst + 4 * i);
    EXPECT_THAT(take(kMail, kFirst + 4 * i), IsEmpty()) << i;
  }
  anomalies("last", 1);
  pass(kFirst + 60);
  EXPECT_THAT(take(kMail, kFirst + 60), ElementsAre("summary  2"));
  EXPECT_EQ(taken_.back().records, 26);
}

TEST_F(Storm, OneSummaryForAWindow) {
  anomalies("a", 11);
  pass();
  EXPECT_EQ(take(kMail, kFirst + 5).size(), 1U);
  anomalies("b", 5);
  pass(kFirst + 10);
  EXPECT_THAT(take(kMail, kFirst + 70), IsEmpty());
  EXPECT_THAT(take(kMail, kFirst + 899), IsEmpty());
  EXPECT_THAT(take(kMail, kFirst + 900), ElementsAre("summary  2"));
  EXPECT_THAT(taken_.back().subject, HasSubstr("5 new incidents"));
  anomalies("d", 1);
  pass(kFirst + 2000);  // long after the storm
  EXPECT_THAT(take(kMail, kFirst + 2010), ElementsAre("begin d0 2"));
}

TEST_F(Storm, TheEndsOfAStormAreOneSummaryToo) {
  anomalies("c", 30, 1);
  pass();
  take(kMail, kFirst + 5);
  for (int i = 0; i < 30; ++i) usual_backup("c" + std::to_string(i), kFirst + kDay);
  EXPECT_EQ(pass(kFirst + kDay).ended, 30U);
  EXPECT_THAT(take(kMail, kFirst + kDay + 10), ElementsAre("summary  1"));
  EXPECT_THAT(taken_.back().subject, HasSubstr("30 back to normal"));
}

TEST_F(Storm, AnEndDoesNotOvertakeTheSummaryThatItsBeginIsIn) {
  anomalies("c", 11);
  pass();
  usual_backup("c3", kFirst + kDay);
  pass();
  EXPECT_THAT(take(kMail), IsEmpty());
  EXPECT_THAT(take(kMail, kFirst + 5), ElementsAre("summary  2", "end c3 2"));
}

TEST_F(Storm, NothingIsHeldBackOutsideQuietHours) {
  anomalies("c", 1);
  pass();
  take_all();
  usual_backup("c0", kFirst + kDay);
  EXPECT_EQ(pass(kFirst + kDay).ended, 1U);
  EXPECT_EQ(test::query(state_->handle(), "SELECT held, count(*) FROM delivery GROUP BY held"),
            (std::vector<test::SqlRow>{{"0", "4"}}));
}

TEST_F(Storm, WhatQuietHoursHeldBackComesAsOneToo) {
  setenv("TZ", "UTC", 1);
  tzset();
  ASSERT_TRUE(parse_quiet_hours("22:00-07:00", settings_.quiet));
  for (int i = 0; i < 12; ++i) {
    anomalies("c" + std::to_string(i) + "_", 1, 1);
    pass(kFirst + i * 1200);  // not many at any time
  }
  EXPECT_THAT(take(kMail, kFirst + 8 * 3600), IsEmpty());
  EXPECT_THAT(take(kMail, kFirst + 9 * 3600), ElementsAre("summary  1"));
  EXPECT_THAT(taken_.back().subject, HasSubstr("12 new incidents"));
}

}  // namespace
}  // namespace corvane::alert
