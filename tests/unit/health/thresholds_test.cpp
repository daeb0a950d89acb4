// Problems whose limits the command line may set, and their order.
#include <gtest/gtest.h>

#include "tests/unit/health/healthy.h"

namespace corvane::health {
namespace {

// After so many seconds of something, with these thresholds and this interval of gathers.
struct Case {
  std::int64_t seconds = 0;
  std::string said;
  Thresholds thresholds;
  int interval_minutes = 15;
};

alert::ChannelStatus pending(std::int64_t due) {
  alert::ChannelStatus channel;
  channel.name = "mail";
  channel.waiting = 2;
  channel.oldest = kNow - 8 * kHour;  // held back by quiet hours
  channel.due = due;
  return channel;
}

TEST(Problems, AProgramThatIsDown) {
  for (int i = 0; i < 3; ++i) {
    Health health = good();
    Daemon& daemon = health.daemons.at(static_cast<std::size_t>(i));
    daemon.process = 0;
    EXPECT_EQ(said_of(health), "CRITICAL; " + daemon.name + " is not running");
    daemon.is_wanted = false;
    EXPECT_EQ(said_of(health), "OK");
    daemon.process = 12;
    EXPECT_EQ(said_of(health), "OK");
  }
}

TEST(Problems, ALateGather) {
  const Thresholds own{.gather_warning = 5, .gather_critical = 6};
  for (const Case& one : std::vector<Case>{
           {45 * kMinute - 1, "OK", {}},
           {45 * kMinute, "WARNING; last gather 45 min ago", {}},
           {180 * kMinute - 1, "WARNING; last gather 2 h 59 min ago", {}},
           {180 * kMinute, "CRITICAL; last gather 3 h ago", {}},
           {180 * kMinute - 1, "OK", {}, 60},
           {180 * kMinute, "WARNING; last gather 3 h ago", {}, 60},
           {720 * kMinute - 1, "WARNING; last gather 11 h 59 min ago", {}, 60},
           {720 * kMinute, "CRITICAL; last gather 12 h ago", {}, 60},
           {299, "OK", own},
           {300, "WARNING; last gather 5 min ago", own},
           {359, "WARNING; last gather 5 min ago", own},
           {360, "CRITICAL; last gather 6 min ago", own},
           {0, "WARNING; last gather 0 s ago", {.gather_warning = 0}},
           {0, "CRITICAL; last gather 0 s ago", {.gather_critical = 0}},
           {60, "CRITICAL; last gather 60 s ago", {.gather_warning = 1, .gather_critical = 1}}}) {
    Health health = good();
    health.gather.last = kNow - one.seconds;
    health.configured.interval_minutes = one.interval_minutes;
    EXPECT_EQ(said_of(health, one.thresholds), one.said) << one.seconds;
  }
}

// It reads an edited interval after its next gather.
TEST(Problems, AGatherIsLateByTheIntervalThatTheServiceSaid) {
  for (const Case& one :
       std::vector<Case>{{60 * kMinute - 1, "OK", {}},
                         {60 * kMinute, "WARNING; last gather 60 min ago", {}},
                         {240 * kMinute - 1, "WARNING; last gather 3 h 59 min ago", {}},
                         {240 * kMinute, "CRITICAL; last gather 4 h ago", {}}}) {
    for (const int edited : {15, 1440}) {
      Health health = good();
      health.gather.last = kNow - one.seconds;
      health.configured.interval_minutes = edited;
      health.ledger.interval_minutes = 20;
      EXPECT_EQ(said_of(health, one.thresholds), one.said) << one.seconds;
    }
  }
}

TEST(Problems, AHistoryThatIsNeverGathered) {
  Health health = good();
  health.gather.last = 0;
  health.daemons[0].since = kNow - 180 * kMinute + 1;
  EXPECT_EQ(said_of(health), "OK");
  health.daemons[0].since = kNow - 180 * kMinute;
  EXPECT_EQ(said_of(health), "WARNING; the history has not been gathered yet");
  health.daemons[0].process = 0;
  EXPECT_EQ(said_of(health), "CRITICAL; cvanomalymgmt is not running");
}

TEST(Problems, MessagesThatStayPending) {
  const std::string warning = "WARNING; 2 messages pending, the oldest for ";
  const std::string critical = "CRITICAL; 2 messages pending, the oldest for ";
  const Thresholds own{.alerts_warning = 3, .alerts_critical = 4};
  const Thresholds none{.alerts_warning = 0};
  for (const Case& one : std::vector<Case>{{-3600, "OK", {}},
                                           {30 * kMinute - 1, "OK", {}},
                                           {30 * kMinute, warning + "30 min", {}},
                                           {240 * kMinute - 1, warning + "3 h 59 min", {}},
                                           {240 * kMinute, critical + "4 h", {}},
                                           {179, "OK", own},
                                           {180, warning + "3 min", own},
                                           {239, warning + "3 min", own},
                                           {240, critical + "4 min", own},
                                           {-1, "OK", none},
                                           {0, warning + "0 s", none},
                                           {kNow, "OK", none},  // not due at all
                                           {kNow - 1, critical + span_text(kNow - 1), none}}) {
    Health health = good();
    health.alerts.channels = {pending(kNow - one.seconds)};
    EXPECT_EQ(said_of(health, one.thresholds), one.said) << one.seconds;
  }
  Health health = good();
  health.alerts.channels = {pending(kNow - 1800)};
  health.alerts.channels[0].waiting = 1;
  EXPECT_EQ(said_of(health), "WARNING; 1 message pending, the oldest for 30 min");
}

TEST(Problems, NobodySendsTheMessagesOfAServiceThatIsOff) {
  Health health = good();
  health.alerts.channels = {pending(kNow - kDay)};
  health.configured.service = health.configured.detection = health.configured.alerts = false;
  EXPECT_EQ(problems_of(health)[0].level, Level::kCritical);  // it is still running
  health.daemons[0] = {kManagementProgram, false};
  EXPECT_EQ(said_of(health),
            "WARNING; backup anomaly detection is disabled in the configuration; 2 messages "
            "pending, the oldest for 24 h");
}

TEST(Problems, DeadLetters) {
  Health health = good();
  health.alerts.channels.resize(1);
  health.alerts.channels[0].given_up = 1;
  EXPECT_EQ(said_of(health), "CRITICAL; 1 dead letter");
  health.alerts.channels[0].given_up = 3;
  EXPECT_EQ(said_of(health), "CRITICAL; 3 dead letters");
}

TEST(Problems, AnAlertDatabaseThatCannotBeRead) {
  Health health = good();
  health.alerts.trouble = "It is damaged.";
  EXPECT_EQ(said_of(health), "CRITICAL; It is damaged");
  health.alerts.trouble = "It is damaged";
  EXPECT_EQ(said_of(health), "CRITICAL; It is damaged");
}

TEST(Problems, ADiskThatIsNearlyFull) {
  struct DiskCase {
    DiskSpace disk;
    std::string said;
    Thresholds thresholds;
  };
  const std::string free = "% free on the database's disk";
  const Thresholds own{.disk_warning = 60, .disk_critical = 50};
  for (const auto& [disk, said, thresholds] :
       std::vector<DiskCase>{{{1000, 101}, "OK", {}},
                             {{1000, 100}, "WARNING; 10.0" + free, {}},
                             {{1000, 31}, "WARNING; 3.1" + free, {}},
                             {{1000, 30}, "CRITICAL; 3.0" + free, {}},
                             {{1000, 601}, "OK", own},
                             {{1000, 600}, "WARNING; 60.0" + free, own},
                             {{1000, 501}, "WARNING; 50.1" + free, own},
                             {{1000, 500}, "CRITICAL; 50.0" + free, own},
                             {{1, 0}, "CRITICAL; 0.0" + free, {}},
                             {{0, 0}, "OK", {.disk_warning = 100, .disk_critical = 100}}}) {
    Health health = good();
    health.disk = disk;
    EXPECT_EQ(said_of(health, thresholds), said);
  }
}

TEST(Problems, TheWorstFirstAndEqualOnesInTheirOrder) {
  Health health = good();
  health.gather.last = kNow - 46 * kMinute;
  health.daemons[0].process = 0;
  health.daemons[1].process = 0;
  health.alerts.trouble = "It is damaged.";
  health.disk = {1000, 20};
  EXPECT_EQ(
      said_of(health),
      "CRITICAL; cvanomalymgmt is not running; cvanomalydetect is not running; It is damaged; "
      "2.0% free on the database's disk; last gather 46 min ago");
}

}  // namespace
}  // namespace corvane::health
