// What the detection and the alerts have yet to do, and the health of the alerts.
#include "tests/unit/health/health_world.h"

namespace corvane::health {
namespace {

TEST_F(HealthTest, TheBacklogIsWhatWaits) {
  const Backlog none = health().backlog;
  EXPECT_EQ(none.unjudged + none.oldest_unprocessed + none.oldest_critical + none.criticals, 0);
  insert("DATA_TO_PROCESS", {.time = kNow - 50, .mark = 0});
  const auto add = [&](const char* client, std::int64_t time, int severity) {
    anomaly({.client = client, .time = time}, severity, {.client = client, .time = time});
  };
  add("a", kNow - 500, 2);
  add("b", kNow - 400, 3);
  add("c", kNow - 300, 3);
  add("d", kNow - 900, 3);
  sql("UPDATE ANOMALY_DATA SET PROCESSED = 1 WHERE CLIENT = 'd'");
  const Backlog backlog = health().backlog;
  EXPECT_EQ(backlog.unjudged, 1);
  EXPECT_EQ(backlog.oldest_unprocessed, kNow - 440);
  EXPECT_EQ(backlog.oldest_critical, kNow - 340);
  EXPECT_EQ(backlog.criticals, 2);
  sql("INSERT INTO ANOMALY_DATA_FEEDBACK SELECT ANOMALY_UNIQUE_ID, 0, 1 FROM ANOMALY_DATA WHERE "
      "CLIENT = 'b'");  // somebody has reviewed it
  EXPECT_EQ(health().backlog.oldest_critical, kNow - 240);
  EXPECT_EQ(health().backlog.criticals, 1);
  EXPECT_EQ(health().backlog.oldest_unprocessed, kNow - 440);
}

TEST_F(HealthTest, OfTheBacklogATimeInTheFutureCountsFirst) {
  const auto detected = [&](const char* client, std::int64_t time) {
    const TestBackup backup{.client = client, .time = time - 60};
    anomaly(backup, 3, backup);
  };
  detected("a", kNow - 500);
  detected("skew", kNow + 60);
  EXPECT_EQ(health().backlog.oldest_critical, kNow - 500);
  EXPECT_EQ(health().backlog.oldest_unprocessed, kNow - 500);
  detected("b", kNow + 62);
  detected("c", kNow + 61);
  detected("d", kNow - 900);
  EXPECT_EQ(health().backlog.oldest_critical, kNow + 61);
  EXPECT_EQ(health().backlog.oldest_unprocessed, kNow + 61);
  EXPECT_EQ(health().backlog.criticals, 5);
}

// What the alerts know of the anomalies that are not processed.
class BacklogOfAlerts : public HealthTest {
 protected:
  BacklogOfAlerts() : alerts_(directory_("CV_Anomaly_Alerts.db")) {}
  // Detected then, in the incident 1, with this delivery by mail of the message 1.
  void detected(std::int64_t time, alert::DeliveryState state, std::int64_t held) {
    const TestBackup backup{.time = time - 60};
    anomaly(backup, 3, backup);
    const std::string id = quoted("anomaly_" + key_of(backup));
    run("INSERT INTO record (anomaly_id, pending, incident) VALUES (" + id + ", 2, 1)");
    run("INSERT INTO message VALUES (1, 1, " + id + ", 3, 1, '', '', '')");
    run("INSERT INTO delivery VALUES (1, 'mail', 1, 1, 3, " +
        std::to_string(static_cast<int>(state)) + ", 1, " + std::to_string(held) +
        ", 0, 0, 0, '', 0)");
  }
  void run(const std::string& statement) { alerts_.execute(statement.c_str()); }

  alert::StateDatabase alerts_;
};

TEST_F(BacklogOfAlerts, WhatAChannelHasDeliveredSomebodyKnows) {
  detected(kNow - 500, alert::DeliveryState::kDelivered, 0);
  EXPECT_EQ(health().backlog.criticals, 0);
  EXPECT_EQ(health().backlog.oldest_critical, 0);
  EXPECT_EQ(health().backlog.oldest_unprocessed, kNow - 500);  // another channel has not
}

TEST_F(BacklogOfAlerts, WhatNoChannelHasDeliveredNobodyKnows) {
  detected(kNow - 500, alert::DeliveryState::kGivenUp, 0);
  EXPECT_EQ(health().backlog.criticals, 1);
  EXPECT_EQ(health().backlog.oldest_critical, kNow - 500);
}

TEST_F(BacklogOfAlerts, QuietHoursMakeNothingLate) {
  const auto oldest_with = [&](std::int64_t held) {
    run("UPDATE delivery SET held = " + std::to_string(held));
    return health().backlog.oldest_unprocessed;
  };
  detected(kNow - 500, alert::DeliveryState::kWaiting, 0);
  EXPECT_EQ(oldest_with(0), kNow - 500);
  EXPECT_EQ(oldest_with(kNow + 1), 0);
  EXPECT_EQ(oldest_with(kNow), kNow);
  EXPECT_EQ(oldest_with(kNow - 400), kNow - 400);
  EXPECT_EQ(oldest_with(kNow - 501), kNow - 500);
  EXPECT_EQ(oldest_with(kNow + kDay), 0);
  EXPECT_EQ(oldest_with(kNow + kDay + 1), kNow - 500);  // of a wrong clock
}

TEST_F(HealthTest, AlertsWithoutADatabaseAreUnknown) {
  const AlertHealth alerts = health().alerts;
  EXPECT_FALSE(alerts.is_known);
  EXPECT_EQ(alerts.trouble, "");
  EXPECT_TRUE(alerts.channels.empty());
}

TEST_F(HealthTest, AlertsHaveChannels) {
  {
    alert::StateDatabase state(directory_("CV_Anomaly_Alerts.db"));
    state.execute("INSERT INTO channel VALUES ('mail', 2, 3, 4, 'refused', 5, 6)");
  }
  const AlertHealth alerts = health().alerts;
  EXPECT_TRUE(alerts.is_known);
  EXPECT_EQ(alerts.trouble, "");
  ASSERT_EQ(alerts.channels.size(), 1U);
  EXPECT_EQ(alerts.channels[0].name, "mail");
  EXPECT_EQ(alerts.channels[0].taken, 6);
}

TEST_F(HealthTest, AlertsThatCannotBeReadSayWhy) {
  const std::string path = directory_("CV_Anomaly_Alerts.db");
  test::write_file(path, std::string(100000, 'x'));
  const AlertHealth alerts = health().alerts;
  EXPECT_TRUE(alerts.is_known);
  EXPECT_EQ(alerts.trouble, path + " is damaged or is not a database.");
}

TEST(AlertHealthOf, SumsItsChannels) {
  const auto channel = [](std::int64_t waiting, std::int64_t oldest, std::int64_t given_up,
                          std::int64_t due) {
    alert::ChannelStatus status;
    status.waiting = waiting;
    status.oldest = oldest;
    status.given_up = given_up;
    status.due = due;
    return status;
  };
  AlertHealth health;
  EXPECT_EQ(health.waiting() + health.given_up() + health.oldest() + health.due(), 0);
  // The second has nothing pending, of the last nobody knows since when.
  health.channels = {channel(3, 50, 1, 90), channel(0, 10, 4, 20), channel(2, 40, 0, 95),
                     channel(1, 60, 0, 80), channel(5, 0, 0, 0)};
  EXPECT_EQ(health.waiting(), 11);
  EXPECT_EQ(health.given_up(), 5);
  EXPECT_EQ(health.oldest(), 40);
  EXPECT_EQ(health.due(), 80);
}

}  // namespace
}  // namespace corvane::health
