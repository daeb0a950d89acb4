#include "companions/alert/delivery/delivery_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/alert/alert_world.h"

namespace corvane::alert {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DeliveryQueueTest : public AlertWorld {
 protected:
  // A message for the mail channel and, on, for others.
  std::int64_t told(Kind kind, std::int64_t incident, std::int64_t created = kFirst) {
    const std::int64_t message =
        queue().add_message(incident, "r" + std::to_string(++records_), Severity::kWarning, created,
                            {"s", "b\n"}, "{}");
    queue().add_delivery({message, kMail, kind, incident, Severity::kWarning, created, 0});
    return message;
  }
  DeliveryQueue queue() { return DeliveryQueue(*state_); }
  std::vector<std::string> states() {
    return test::query_column(state_->handle(), "SELECT state FROM delivery ORDER BY message");
  }
  std::vector<std::string> messages() {
    return test::query_column(state_->handle(), "SELECT id FROM message ORDER BY id");
  }
  void set_state(std::int64_t message, const char* state) {
    test::query(state_->handle(), "UPDATE delivery SET state = " + typed_sql(state) +
                                      " WHERE message = " + std::to_string(message));
  }
  static std::string number(std::int64_t id) { return std::to_string(id); }

  int records_ = 0;
};

TEST_F(DeliveryQueueTest, PruneKeepsWhatWaitsWasGivenUpOrIsFolded) {
  const std::int64_t waiting = told(Kind::kBegin, 1);
  const std::int64_t folded = told(Kind::kBegin, 2);
  const std::int64_t delivered = told(Kind::kBegin, 3);
  const std::int64_t given_up = told(Kind::kBegin, 4);
  const std::int64_t replaced = told(Kind::kBegin, 5);
  set_state(folded, "{folded}");
  set_state(delivered, "{delivered}");
  set_state(given_up, "{given_up}");
  set_state(replaced, "{replaced}");
  queue().prune(kFirst + 2 * kDay);
  EXPECT_EQ(messages().size(), 5U);
  queue().prune(kFirst + 2 * kDay + 1);
  EXPECT_THAT(messages(), ElementsAre(number(waiting), number(folded), number(given_up)));
  EXPECT_THAT(states(), ElementsAre("0", "1", "3"));
}

TEST_F(DeliveryQueueTest, PruneKeepsAMessageForTheLastOfItsChannels) {
  const std::int64_t message = told(Kind::kBegin, 1);
  queue().add_delivery({message, kSyslog, Kind::kBegin, 1, Severity::kWarning, kFirst, 0});
  test::query(state_->handle(), typed_sql("UPDATE delivery SET state = {delivered} WHERE channel "
                                          "= 'mail'"));
  queue().prune(kFirst + 30 * kDay);
  EXPECT_EQ(states().size(), 2U);
  set_state(message, "{delivered}");
  queue().prune(kFirst + 30 * kDay);
  EXPECT_THAT(states(), IsEmpty());
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(DeliveryQueueTest, ReplacesWhatWasNotSentYetAndSaysWhetherThatWasTheBegin) {
  EXPECT_FALSE(queue().replace_untold(1, kMail));
  told(Kind::kRise, 1);
  EXPECT_FALSE(queue().replace_untold(1, kMail));
  told(Kind::kBegin, 1);
  told(Kind::kBegin, 2);
  told(Kind::kEnd, 1);
  EXPECT_FALSE(queue().replace_untold(1, kSyslog));
  EXPECT_TRUE(queue().replace_untold(1, kMail));
  EXPECT_FALSE(queue().replace_untold(1, kMail));
  EXPECT_THAT(states(), ElementsAre("4", "4", "0", "0"));
}

TEST_F(DeliveryQueueTest, DoesNotReplaceWhatIsBeingSent) {
  told(Kind::kBegin, 1);
  ASSERT_TRUE(Outbox(*state_).begin(kMail, kFirst));
  EXPECT_FALSE(queue().replace_untold(1, kMail));
  EXPECT_THAT(states(), ElementsAre("0"));
}

TEST_F(DeliveryQueueTest, WhatIsHeldWaitsUntilThen) {
  const std::int64_t message =
      queue().add_message(1, "r", Severity::kWarning, kFirst, {"s", "b\n"}, "{}");
  queue().add_delivery({message, kMail, Kind::kBegin, 1, Severity::kWarning, kFirst, kFirst + 100});
  EXPECT_THAT(take(kMail, kFirst + 99), IsEmpty());
  EXPECT_EQ(take(kMail, kFirst + 100).size(), 1U);
}

}  // namespace
}  // namespace corvane::alert
