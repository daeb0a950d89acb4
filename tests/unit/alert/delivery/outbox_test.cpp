#include "companions/alert/delivery/outbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/alert/delivery/outbox_world.h"

namespace corvane::alert {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class OutboxTest : public OutboxWorld {
 protected:
  // So many incidents a0, a1, ... for the mail channel.
  void fill(int count, std::int64_t now = kFirst) {
    for (int i = 0; i < count; ++i) {
      const std::string name = "a" + std::to_string(i);
      anomaly(name, details_of(name, name, 3, kFirst));
    }
    pass(now);
  }
};

TEST_F(OutboxTest, AFailingChannelPausesLongerEachTimeAndNoOtherDoes) {
  settings_.syslog = settings_.syslog_severity = 1;
  fill(1);
  std::int64_t at = kFirst;
  std::vector<std::int64_t> pauses;
  for (int i = 0; i < 14; ++i) {
    const Delivery delivery = begun(kMail, at);
    EXPECT_EQ(delivery.attempts, i + 1);
    outbox().failed(delivery, "refused", at);
    const std::int64_t pause = outbox().seconds_to_next(kMail, at, 2000);
    EXPECT_FALSE(outbox().begin(kMail, at + pause - 1));
    pauses.push_back(pause);
    at += pause;
  }
  EXPECT_LE(pauses.front(), 2);
  EXPECT_GE(pauses.back(), 450);
  EXPECT_LE(pauses.back(), 900);
  EXPECT_THAT(take(kSyslog), ElementsAre("begin a0 3"));
  EXPECT_THAT(take(kMail, at), ElementsAre("begin a0 3"));
}

TEST_F(OutboxTest, AMessageThatIsRefusedDoesNotHoldUpTheOthers) {
  fill(3);
  for (int i = 0; i < 8; ++i) {
    const Delivery delivery = begun(kMail, kFirst + 1000 * i);
    if (delivery.content.client != "a0") {
      outbox().taken(delivery, kFirst + 1000 * i);
    } else {
      outbox().failed(delivery, "why", kFirst + 1000 * i);
    }
  }
  EXPECT_EQ(outbox().status().at(0).waiting, 1);
  EXPECT_EQ(outbox().status().at(0).taken, 2);
}

TEST_F(OutboxTest, MessagesOfOneIncidentKeepTheirOrder) {
  anomaly("a", details_of("c", "i", 1, kFirst));
  pass();
  const Delivery begin = begun(kMail, kFirst);
  anomaly("b", details_of("c", "i", 3, kFirst));
  anomaly("x", details_of("x", "x", 2, kFirst));
  usual_backup("c", kFirst + 5);
  pass();
  outbox().failed(begin, "why", kFirst);
  EXPECT_THAT(take(kMail, kFirst + 10),
              ElementsAre("begin x 2", "begin c 1", "rise c 3", "end c 3"));
}

TEST_F(OutboxTest, AClockThatIsSetBackEndsNoPauseLate) {
  fill(1);
  outbox().failed(begun(kMail, kFirst), "why", kFirst);
  sql_state("UPDATE channel SET paused_until = paused_until + 1000000");
  EXPECT_TRUE(outbox().begin(kMail, kFirst + 10));
}

TEST_F(OutboxTest, IsGivenUpADayAfterTheFirstFailure) {
  fill(2);
  outbox().failed(begun(kMail, kFirst), "why", kFirst);
  EXPECT_THAT(outbox().overdue(kMail, kFirst + kDay - 1, 10), IsEmpty());
  const std::vector<Delivery> overdue = outbox().overdue(kMail, kFirst + kDay, 10);
  ASSERT_EQ(overdue.size(), 2U);  // the second has waited behind the first
  EXPECT_EQ(overdue[0].reason, "why");
  EXPECT_EQ(overdue[1].content.client, "a1");
  outbox().give_up(overdue);
  EXPECT_THAT(take(kMail, kFirst + 2 * kDay), IsEmpty());
  take(kWeb);
  EXPECT_EQ(pass().processed, 0U);  // it has not been taken
  EXPECT_EQ(outbox().revive(), 2);
  EXPECT_THAT(outbox().overdue(kMail, kFirst + 9 * kDay, 10), IsEmpty());
  EXPECT_EQ(take(kMail, kFirst + 9 * kDay).size(), 2U);
  EXPECT_EQ(pass().processed, 2U);
}

TEST_F(OutboxTest, TheDayBeginsAnewWhenTheChannelWorkedInBetween) {
  fill(3);
  outbox().failed(begun(kMail, kFirst), "why", kFirst);
  outbox().taken(begun(kMail, kFirst + 1000), kFirst + 1000);
  const std::vector<Delivery> overdue = outbox().overdue(kMail, kFirst + kDay, 10);
  ASSERT_EQ(overdue.size(), 1U);  // not the third, which only waited
  EXPECT_EQ(overdue[0].content.client, "a0");
}

TEST_F(OutboxTest, ALostOutcomeIsSentAgainUnderTheSameName) {
  fill(1);
  const std::string name = begun(kMail, kFirst).content.alert;
  restart();
  const Delivery again = begun(kMail, kFirst);
  EXPECT_EQ(again.content.alert, name);
  EXPECT_EQ(again.attempts, 2);
}

TEST_F(OutboxTest, KnowsWhenSomethingIsDue) {
  EXPECT_EQ(outbox().seconds_to_next(kMail, kFirst, 60), 60);
  fill(11);
  EXPECT_EQ(outbox().seconds_to_next(kMail, kFirst, 60), 5);  // a summary
  EXPECT_EQ(outbox().seconds_to_next(kMail, kFirst + 9, 60), 0);
  EXPECT_EQ(outbox().seconds_to_next(kWeb, kFirst, 60), 0);
}

TEST_F(OutboxTest, TellsHowTheChannelsFare) {
  settings_.syslog = settings_.syslog_severity = 1;
  fill(1);
  outbox().failed(begun(kMail, kFirst), "no such host", kFirst);
  take(kSyslog, kFirst + 1);
  const std::vector<ChannelStatus> status = outbox().status();
  ASSERT_EQ(status.size(), 3U);
  EXPECT_EQ(status[0].name, kMail);
  EXPECT_EQ(status[0].waiting, 1);
  EXPECT_EQ(status[0].failures, 1);
  EXPECT_EQ(status[0].last_error, "no such host");
  EXPECT_EQ(status[0].failing_since, kFirst);
  EXPECT_EQ(status[1].name, kSyslog);
  EXPECT_EQ(status[1].waiting, 0);
  EXPECT_EQ(status[1].taken, 1);
  EXPECT_EQ(status[1].last_success, kFirst + 1);
  EXPECT_EQ(status[2].waiting, 1);
  EXPECT_THAT(outbox().channels_waited_for(), ElementsAre(kMail, kWeb));
}

TEST(DeliveryStateTest, IsSaidInTheWordsOfTheGlossary) {
  EXPECT_STREQ(words_for(DeliveryState::kWaiting), "pending");
  EXPECT_STREQ(words_for(DeliveryState::kFolded), "part of a summary");
  EXPECT_STREQ(words_for(DeliveryState::kDelivered), "delivered");
  EXPECT_STREQ(words_for(DeliveryState::kGivenUp), "dead letter");
  EXPECT_STREQ(words_for(DeliveryState::kReplaced), "replaced");
}

}  // namespace
}  // namespace corvane::alert
