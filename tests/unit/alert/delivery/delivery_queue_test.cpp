#include "companions/alert/delivery/delivery_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "companions/alert/incident/incident_book.h"
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

TEST_F(DeliveryQueueTest, ReplacesTheMessageByItsNumber) {
  for (int other = 2; other <= 5; ++other) told(Kind::kBegin, other);
  told(Kind::kBegin, 1);
  EXPECT_TRUE(queue().replace_untold(1, kMail));
  EXPECT_THAT(states(), ElementsAre("0", "0", "0", "0", "4"));
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

TEST_F(DeliveryQueueTest, StoresAMessageAndItsDeliveries) {
  told(Kind::kBegin, 1);
  const std::int64_t message = queue().add_message(12, "anomaly_1", Severity::kCritical, 34,
                                                   {"subject", "body\n"}, "{\"a\":1}");
  EXPECT_EQ(test::query(state_->handle(), "SELECT * FROM message WHERE incident = 12"),
            (std::vector<test::SqlRow>{{number(message), "12", "anomaly_1", "3", "34", "subject",
                                        "body\n", "{\"a\":1}"}}));
  queue().add_delivery({message, kMail, Kind::kRise, 12, Severity::kMajor, 56, 78});
  EXPECT_EQ(test::query(state_->handle(),
                        "SELECT message, channel, kind, incident, severity, state, created, held, "
                        "not_before, attempts, failing_since, reason, summary FROM delivery WHERE "
                        "incident = 12"),
            (std::vector<test::SqlRow>{{number(message), "mail", "2", "12", "2", "0", "56", "78",
                                        "78", "0", "0", "", "0"}}));
}

TEST_F(DeliveryQueueTest, WhatIsReplacedIsDoneForItsRecord) {
  IncidentBook book(*state_);
  for (const char* record : {"r1", "r2", "r3"}) book.add_record(record, 1, 2);
  told(Kind::kBegin, 1);
  told(Kind::kRise, 1);
  told(Kind::kBegin, 2);
  EXPECT_TRUE(queue().replace_untold(1, kMail)) << "the begin is not the last of them";
  EXPECT_THAT(
      test::query_column(state_->handle(), "SELECT pending FROM record ORDER BY anomaly_id"),
      ElementsAre("1", "1", "2"));
}

TEST_F(DeliveryQueueTest, ReplacesOnlyWhatIsPending) {
  const std::int64_t delivered = told(Kind::kBegin, 1);
  const std::int64_t given_up = told(Kind::kRise, 1);
  set_state(delivered, "{delivered}");
  set_state(given_up, "{given_up}");
  EXPECT_FALSE(queue().replace_untold(1, kMail));
  EXPECT_THAT(states(), ElementsAre("2", "3"));
}

TEST_F(DeliveryQueueTest, PruneTakesWhatBelongsToNobody) {
  queue().add_message(1, "", Severity::kWarning, kFirst, {}, "{}");
  queue().prune(kFirst + 2 * kDay);
  EXPECT_EQ(messages().size(), 1U);
  queue().prune(kFirst + 2 * kDay + 1);
  EXPECT_THAT(messages(), IsEmpty());
}

// What storms are, with a rule of 2 messages in 100 seconds that settle for 10, at most 30.
class FoldStorm : public DeliveryQueueTest {
 protected:
  static constexpr StormRule kRule{.limit = 2, .window = 100, .settle = 10, .longest_settle = 30};

  // Adds a delivery and folds it; the id of its message.
  std::int64_t add(std::int64_t at, std::int64_t held = 0, Severity severity = Severity::kWarning,
                   Kind kind = Kind::kBegin, const std::string& channel = kMail) {
    const std::int64_t incident = ++incidents_;
    const NewDelivery delivery{queue().add_message(incident, "", severity, kFirst + at, {}, "{}"),
                               channel,
                               kind,
                               incident,
                               severity,
                               kFirst + at,
                               held == 0 ? 0 : kFirst + held};
    queue().add_delivery(delivery);
    queue().fold_storm(delivery, kRule);
    return delivery.message;
  }
  // The summaries: "severity, created, held, not_before", times since kFirst.
  std::vector<std::string> summaries() {
    return test::query_column(
        state_->handle(),
        typed_sql("SELECT severity || ', ' || (created - 1700000000) || ', ' || iif(held, held - "
                  "1700000000, 0) || ', ' || (not_before - 1700000000) FROM delivery WHERE kind = "
                  "{summary} ORDER BY message"));
  }
  // How many messages are in each summary.
  std::vector<std::string> folded() {
    return test::query_column(state_->handle(),
                              typed_sql("SELECT count(*) FROM delivery WHERE state = {folded} "
                                        "GROUP BY summary ORDER BY summary"));
  }

  std::int64_t incidents_ = 0;
};

TEST_F(FoldStorm, IsMoreThanTheLimitInAWindow) {
  for (const int at : {0, 50}) add(at);
  EXPECT_THAT(summaries(), IsEmpty());
  add(99);
  EXPECT_THAT(summaries(), ElementsAre("1, 99, 0, 109"));
  EXPECT_THAT(folded(), ElementsAre("3"));
  EXPECT_EQ(test::query(state_->handle(),
                        typed_sql("SELECT d.incident, m.incident, m.record FROM delivery d JOIN "
                                  "message m ON m.id = d.message WHERE d.kind = {summary}")),
            (std::vector<test::SqlRow>{{"0", "0", ""}}))
      << "a summary belongs to no incident";
}

TEST_F(FoldStorm, TheWindowIsOpenAtItsBegin) {
  for (const int at : {0, 50, 100}) add(at);
  EXPECT_THAT(summaries(), IsEmpty());
  add(149);
  EXPECT_THAT(folded(), ElementsAre("3"));
  EXPECT_THAT(states(), ElementsAre("0", "1", "1", "1", "0")) << "the first one is too old";
}

TEST_F(FoldStorm, IsOfOneKindAndOneChannel) {
  for (const int at : {0, 1}) add(at);
  add(2, 0, Severity::kWarning, Kind::kEnd);
  add(3, 0, Severity::kWarning, Kind::kBegin, kSyslog);
  EXPECT_THAT(summaries(), IsEmpty());
  add(4);
  EXPECT_THAT(folded(), ElementsAre("3"));
  EXPECT_THAT(states(), ElementsAre("1", "1", "0", "0", "1", "0"));
}

TEST_F(FoldStorm, WhatWasReplacedDoesNotCount) {
  set_state(add(0), "{replaced}");
  add(1);
  add(2);
  EXPECT_THAT(summaries(), IsEmpty());
}

TEST_F(FoldStorm, WhatWasDeliveredCountsAndStays) {
  set_state(add(0), "{delivered}");
  add(1);
  add(2);
  EXPECT_THAT(folded(), ElementsAre("2"));
  EXPECT_THAT(states(), ElementsAre("2", "1", "1", "0"));
}

TEST_F(FoldStorm, ASummaryHasTheHighestSeverity) {
  for (const int at : {0, 1}) add(at);
  add(2, 0, Severity::kMajor);
  EXPECT_THAT(summaries(), ElementsAre("2, 2, 0, 12"));
  add(3, 0, Severity::kCritical);
  add(4, 0, Severity::kWarning);
  EXPECT_THAT(summaries(), ElementsAre("3, 2, 0, 14"));
  EXPECT_THAT(folded(), ElementsAre("5"));
}

TEST_F(FoldStorm, ASummaryWaitsForMoreButNotForever) {
  for (const int at : {0, 0, 0}) add(at);
  EXPECT_THAT(summaries(), ElementsAre("1, 0, 0, 10"));
  add(20);
  EXPECT_THAT(summaries(), ElementsAre("1, 0, 0, 30"));
  add(25);
  EXPECT_THAT(summaries(), ElementsAre("1, 0, 0, 30"));
}

TEST_F(FoldStorm, ASummaryWaitsAWindowAfterTheLast) {
  for (const int at : {0, 0, 0}) add(at);
  test::query(state_->handle(),
              typed_sql("UPDATE delivery SET state = {delivered} WHERE kind = {summary}"));
  for (const int at : {60, 61}) add(at);
  EXPECT_THAT(summaries(), ElementsAre("1, 0, 0, 10", "1, 60, 0, 100"));
  EXPECT_THAT(folded(), ElementsAre("3", "2"));
}

TEST_F(FoldStorm, ASummaryWaitsAWindowAfterOneOfTheSameSecond) {
  for (const int at : {0, 0, 0}) add(at);
  test::query(state_->handle(),
              typed_sql("UPDATE delivery SET state = {delivered} WHERE kind = {summary}"));
  add(0);
  EXPECT_THAT(summaries(), ElementsAre("1, 0, 0, 10", "1, 0, 0, 100"));
}

TEST_F(FoldStorm, ASummaryThatIsBeingSentTakesNoMore) {
  for (const int at : {0, 0, 0}) add(at);
  ASSERT_TRUE(Outbox(*state_).begin(kMail, kFirst + 10));
  add(11);
  EXPECT_THAT(folded(), ElementsAre("3", "1"));
}

TEST_F(FoldStorm, AClockThatWasSetBackHoldsUpNoSummary) {
  for (const int at : {1000, 1000, 1000}) add(at);
  set_state(queue().add_message(0, "", Severity::kWarning, kFirst, {}, ""), "{delivered}");
  test::query(state_->handle(),
              typed_sql("UPDATE delivery SET state = {delivered} WHERE kind = {summary}"));
  for (const int at : {0, 0, 0}) add(at);
  EXPECT_THAT(summaries(), ElementsAre("1, 1000, 0, 1010", "1, 0, 0, 10"));
}

TEST_F(FoldStorm, WhatQuietHoursHoldBackIsOneStormHoweverSlow) {
  for (const int at : {0, 200}) add(at, 900);
  add(300);
  add(350, 901);
  EXPECT_THAT(summaries(), IsEmpty()) << "two are held until 900";
  add(400, 900, Severity::kMajor);
  EXPECT_THAT(summaries(), ElementsAre("2, 400, 900, 900"));
  EXPECT_THAT(folded(), ElementsAre("3"));
  add(895, 900);
  EXPECT_THAT(summaries(), ElementsAre("2, 400, 900, 900"));
  EXPECT_THAT(folded(), ElementsAre("4"));
}

TEST_F(FoldStorm, ASummaryOfQuietHoursDelaysNoOther) {
  for (const int at : {0, 1, 2}) add(at, 50);
  for (const int at : {3, 4, 5}) add(at);
  EXPECT_THAT(summaries(), ElementsAre("1, 2, 50, 50", "1, 5, 0, 15"));
}

}  // namespace
}  // namespace corvane::alert
