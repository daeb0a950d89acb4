// What the outbox reads and writes, row by row.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "companions/alert/delivery/delivery_queue.h"
#include "companions/alert/delivery/outbox.h"
#include "companions/alert/incident/incident_book.h"
#include "tests/unit/alert/delivery/outbox_world.h"

namespace corvane::alert {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Deliveries that a test makes itself, each of an incident of its own.
class OutboxRowsTest : public OutboxWorld {
 protected:
  std::int64_t add(const std::string& channel = kMail, std::int64_t incident = 0,
                   Kind kind = Kind::kBegin, std::int64_t held = 0) {
    const std::string number = std::to_string(++rows_);
    DeliveryQueue queue(*state_);
    const std::int64_t message = queue.add_message(incident, "record " + number, Severity::kMajor,
                                                   kFirst, {"subject " + number, "b\n"}, "{}");
    queue.add_delivery({message, channel, kind, incident, Severity::kMajor, kFirst, held});
    IncidentBook(*state_).add_record("record " + number, incident, 1);
    return message;
  }
  Delivery of(std::int64_t message, const std::string& channel = kMail) {
    Delivery delivery;
    delivery.message = message;
    delivery.channel = channel;
    delivery.attempts = 1;
    return delivery;
  }
  void set(std::int64_t message, const std::string& what) {
    sql_state(
        typed_sql("UPDATE delivery SET " + what + " WHERE message = " + std::to_string(message))
            .c_str());
  }
  std::vector<std::string> column(const std::string& what) {
    return test::query_column(state_->handle(),
                              "SELECT " + what + " FROM delivery ORDER BY message, channel");
  }
  std::vector<std::string> pending() {
    return test::query_column(state_->handle(), "SELECT pending FROM record ORDER BY anomaly_id");
  }
  void pause(const std::string& channel, std::int64_t until) {
    sql_state(("INSERT INTO channel VALUES ('" + channel + "', 1, " + std::to_string(until) +
               ", 0, '', 0, 0)")
                  .c_str());
  }
  std::int64_t next(const std::string& channel = kMail, std::int64_t now = kFirst) {
    const auto delivery = outbox().begin(channel, now);
    return delivery ? delivery->message : 0;
  }

  int rows_ = 0;
};

TEST_F(OutboxRowsTest, AMessageHasEverythingOfItsIncident) {
  KnownIncident incident;
  incident.name = "incident_a";
  incident.anomaly_id = "anomaly_a";
  incident.stream = {"client", "policy", "", "", "schedule", "", ""};
  incident.cause = CauseKind::kPacked;
  incident.first_time = 12;
  incident.until = 34;
  incident.records = 56;
  IncidentBook(*state_).put_incident(incident, kFirst);
  DeliveryQueue queue(*state_);
  const std::int64_t message = queue.add_message(incident.id, "", Severity::kCritical, 78,
                                                 {"subject", "body\n"}, "{\"a\":1}");
  queue.add_delivery({message, kMail, Kind::kRise, incident.id, Severity::kWarning, 90, 0});
  const Delivery delivery = begun(kMail, kFirst);
  EXPECT_EQ(delivery.message, message);
  EXPECT_EQ(delivery.channel, kMail);
  EXPECT_EQ(delivery.attempts, 1);
  const Message& content = delivery.content;
  EXPECT_EQ(content.kind, Kind::kRise);
  EXPECT_EQ(content.severity, Severity::kCritical);
  EXPECT_EQ(content.created, 78);
  EXPECT_EQ(content.subject, "subject");
  EXPECT_EQ(content.body, "body\n");
  EXPECT_EQ(content.details, "{\"a\":1}");
  EXPECT_EQ(content.anomaly_id, "anomaly_a");
  EXPECT_EQ(content.incident, "incident_a");
  EXPECT_EQ(content.client, "client");
  EXPECT_EQ(content.policy, "policy");
  EXPECT_EQ(content.schedule, "schedule");
  EXPECT_EQ(content.cause, "packed");
  EXPECT_EQ(content.since, 12);
  EXPECT_EQ(content.until, 34);
  EXPECT_EQ(content.records, 56);
  EXPECT_EQ(content.alert, state_->tag() + "-78-" + std::to_string(message));
}

TEST_F(OutboxRowsTest, ASummaryHasTheSeverityOfItsDelivery) {
  set(add(), "state = {delivered}");
  const std::int64_t summary = add(kMail, 0, Kind::kSummary);
  set(summary, "severity = 3");
  const std::int64_t folded = add();
  set(folded, "state = {folded}, summary = " + std::to_string(summary));
  const Message content = begun(kMail, kFirst).content;
  EXPECT_EQ(content.severity, Severity::kCritical);
  EXPECT_EQ(content.subject, "Many alerts at once: 1 new incident, on 0 clients");
  EXPECT_EQ(content.created, kFirst);
}

TEST_F(OutboxRowsTest, BeginsWithTheFewestAttemptsAndThenTheOldest) {
  const std::int64_t first = add();
  const std::int64_t second = add();
  const std::int64_t third = add();
  add(kSyslog);
  set(first, "attempts = 2");
  EXPECT_EQ(next(), second);
  EXPECT_EQ(next(), third);
  EXPECT_EQ(next(), second) << "it has one attempt now";
  EXPECT_THAT(column("attempts"), ElementsAre("2", "2", "1", "0"));
}

TEST_F(OutboxRowsTest, BeginsOnlyWhatIsPendingAndDue) {
  const std::int64_t message = add();
  set(message, "not_before = " + std::to_string(kFirst + 1));
  EXPECT_EQ(next(), 0);
  EXPECT_EQ(next(kMail, kFirst + 1), message);
  for (const char* state : {"{folded}", "{delivered}", "{given_up}", "{replaced}"}) {
    set(message, std::string("state = ") + state);
    EXPECT_EQ(next(kMail, kFirst + 1), 0) << state;
  }
  EXPECT_THAT(column("attempts"), ElementsAre("1"));
}

TEST_F(OutboxRowsTest, AMessageWaitsForAnEarlierOneOfItsIncidentOnItsChannel) {
  const std::int64_t early = add(kMail, 7);
  const std::int64_t late = add(kMail, 7);
  set(early, "not_before = " + std::to_string(kFirst + 100));
  EXPECT_EQ(next(), 0);
  EXPECT_EQ(outbox().seconds_to_next(kMail, kFirst, 500), 100);
  set(early, "state = {folded}");
  EXPECT_EQ(next(), 0);
  for (const char* state : {"{delivered}", "{given_up}", "{replaced}"}) {
    set(early, std::string("state = ") + state);
    EXPECT_EQ(next(), late) << state;
  }
  set(early, "state = {waiting}, channel = 'syslog'");
  EXPECT_EQ(next(), late);
  set(early, "channel = 'mail', incident = 8");
  EXPECT_EQ(next(), late);
  sql_state("UPDATE delivery SET incident = 0");
  EXPECT_EQ(next(), late) << "messages without an incident do not belong together";
}

TEST_F(OutboxRowsTest, APauseHoldsUntilItsEnd) {
  const std::int64_t message = add();
  pause(kMail, kFirst + 900);
  EXPECT_EQ(next(kMail, kFirst), 0);
  EXPECT_EQ(next(kMail, kFirst + 899), 0);
  EXPECT_EQ(next(kMail, kFirst + 900), message);
  EXPECT_EQ(next(kMail, kFirst - 1), message) << "no pause is longer than 900 seconds";
}

TEST_F(OutboxRowsTest, ADeliveryIsNotedForItsMessageItsRecordAndItsChannel) {
  const std::int64_t message = add();
  const std::int64_t other = add();
  outbox().taken(of(message), kFirst + 5);
  EXPECT_THAT(column("state"), ElementsAre("2", "0"));
  EXPECT_THAT(pending(), ElementsAre("0", "1"));
  outbox().taken(of(message), kFirst + 6);
  EXPECT_THAT(pending(), ElementsAre("0", "1")) << "counted once";
  outbox().taken(of(other, kSyslog), kFirst + 7);
  EXPECT_THAT(column("state"), ElementsAre("2", "0")) << "of the other channel";
  EXPECT_EQ(
      test::query(state_->handle(), "SELECT * FROM channel ORDER BY name"),
      (std::vector<test::SqlRow>{{"mail", "0", "0", "0", "", std::to_string(kFirst + 6), "2"},
                                 {"syslog", "0", "0", "0", "", std::to_string(kFirst + 7), "1"}}));
}

TEST_F(OutboxRowsTest, ASummaryIsDeliveredWithItsParts) {
  const std::int64_t summary = add(kMail, 0, Kind::kSummary);
  const std::string in_it = "state = {folded}, summary = " + std::to_string(summary);
  const std::int64_t part = add();
  const std::int64_t given_up = add();
  const std::int64_t elsewhere = add(kSyslog);
  const std::int64_t another = add();
  set(part, in_it);
  set(given_up, "state = {given_up}, summary = " + std::to_string(summary));
  set(elsewhere, in_it);
  set(another, "state = {folded}, summary = " + std::to_string(summary + 100));
  outbox().taken(of(summary), kFirst);
  EXPECT_THAT(column("state"), ElementsAre("2", "2", "3", "1", "1"));
  EXPECT_THAT(pending(), ElementsAre("0", "0", "1", "1", "1"));
}

TEST_F(OutboxRowsTest, AFailureIsNotedForMessageAndChannel) {
  const std::int64_t message = add();
  outbox().failed(of(message), "first reason", kFirst);
  set(message, "not_before = 0");
  Delivery again = of(message);
  again.attempts = 9;  // a pause of 128 to 384 seconds
  outbox().failed(again, "second reason", kFirst + 10);
  const ChannelStatus status = outbox().status().at(0);
  EXPECT_EQ(status.failures, 2);
  EXPECT_EQ(status.failing_since, kFirst);
  EXPECT_EQ(status.last_error, "second reason");
  EXPECT_GE(status.paused_until, kFirst + 10 + 1);
  EXPECT_LE(status.paused_until, kFirst + 10 + 3);
  EXPECT_EQ(status.taken, 0);
  EXPECT_EQ(status.last_success, 0);
  EXPECT_THAT(column("reason"), ElementsAre("second reason"));
  EXPECT_THAT(column("failing_since"), ElementsAre(std::to_string(kFirst)));
  EXPECT_THAT(column("not_before BETWEEN 1700000010 + 128 AND 1700000010 + 384"), ElementsAre("1"));
}

TEST_F(OutboxRowsTest, APauseGrowsWithTheFailuresOfItsChannelOnly) {
  sql_state("INSERT INTO channel VALUES ('another', 0, 0, 0, '', 0, 0)");
  const std::int64_t message = add();
  for (int i = 0; i < 6; ++i) outbox().failed(of(message), "no route", kFirst);
  const ChannelStatus status = outbox().status().at(1);
  EXPECT_EQ(status.name, kMail);
  EXPECT_GE(status.paused_until, kFirst + 16);
  EXPECT_LE(status.paused_until, kFirst + 48);
}

TEST_F(OutboxRowsTest, AFailureMakesLateWhatIsDueByTheNextAttempt) {
  const std::int64_t failed = add();
  const std::int64_t due = add();
  const std::int64_t later = add();
  const std::int64_t folded = add();
  add(kSyslog);
  set(due, "not_before = " + std::to_string(kFirst + 1));
  set(later, "not_before = " + std::to_string(kFirst + 3));
  set(folded, "state = {folded}");
  outbox().failed(of(failed), "why", kFirst);  // again after 1 or 2 seconds
  EXPECT_THAT(column("failing_since > 0"), ElementsAre("1", "1", "0", "0", "0"));
}

TEST_F(OutboxRowsTest, ADeliveryStartsTheDayOfThoseThatWereNotTriedAnew) {
  const std::int64_t tried = add();
  add();
  const std::int64_t given_up = add();
  add(kSyslog);
  sql_state("UPDATE delivery SET failing_since = 5");
  set(tried, "attempts = 1");
  set(given_up, "state = {given_up}");
  const std::int64_t message = add();
  outbox().taken(of(message), kFirst);
  EXPECT_THAT(column("failing_since"), ElementsAre("5", "5", "5", "5", "0"))
      << "the channel was not failing";
  sql_state("UPDATE channel SET failing_since = 1");
  outbox().taken(of(message), kFirst);
  EXPECT_THAT(column("failing_since"), ElementsAre("5", "0", "5", "5", "0"));
  EXPECT_EQ(outbox().status().at(0).failing_since, 0);
  EXPECT_EQ(outbox().status().at(0).failures, 0);
}

TEST_F(OutboxRowsTest, OverdueIsWhatFailedForADayTheOldestFirst) {
  const std::int64_t first = add();
  const std::int64_t second = add(kMail, 0, Kind::kEnd);
  const std::int64_t never = add();
  const std::int64_t delivered = add();
  add(kSyslog);
  sql_state("UPDATE delivery SET failing_since = 1700000000, attempts = 4, reason = 'why'");
  set(first, "attempts = 3");
  set(never, "failing_since = 0");
  set(delivered, "state = {delivered}");
  EXPECT_THAT(outbox().overdue(kMail, kFirst + kDay - 1, 9), IsEmpty());
  const std::vector<Delivery> overdue = outbox().overdue(kMail, kFirst + kDay, 9);
  ASSERT_EQ(overdue.size(), 2U);
  EXPECT_EQ(overdue[0].message, first);
  EXPECT_EQ(overdue[0].channel, kMail);
  EXPECT_EQ(overdue[0].attempts, 3);
  EXPECT_EQ(overdue[0].reason, "why");
  EXPECT_EQ(overdue[0].content.subject, "subject 1");
  EXPECT_EQ(overdue[0].content.kind, Kind::kBegin);
  EXPECT_EQ(overdue[1].message, second);
  EXPECT_EQ(overdue[1].content.kind, Kind::kEnd);
  EXPECT_EQ(outbox().overdue(kMail, kFirst + kDay, 1).size(), 1U);
}

TEST_F(OutboxRowsTest, GivesUpWhatIsPendingOnThatChannelAndRevivesIt) {
  const std::int64_t message = add();
  const std::int64_t delivered = add();
  const std::int64_t elsewhere = add(kSyslog);
  const std::int64_t other = add();
  set(delivered, "state = {delivered}");
  outbox().give_up({of(message), of(delivered), of(elsewhere)});
  EXPECT_THAT(column("state"), ElementsAre("3", "2", "0", "0"));
  EXPECT_EQ(outbox().status().at(0).given_up, 1);
  sql_state("UPDATE delivery SET not_before = 5, failing_since = 6, reason = 'why'");
  EXPECT_EQ(outbox().revive(), 1);
  EXPECT_THAT(column("state || not_before || failing_since || reason"),
              ElementsAre("000", "256why", "056why", "056why"));
  EXPECT_EQ(outbox().revive(), 0);
  EXPECT_GT(other, message);
}

TEST_F(OutboxRowsTest, KnowsWhenTheNextIsDue) {
  EXPECT_EQ(outbox().seconds_to_next(kMail, kFirst, 60), 60);
  const std::int64_t first = add();
  const std::int64_t second = add();
  EXPECT_EQ(outbox().seconds_to_next(kMail, kFirst, 60), 0);
  set(first, "not_before = " + std::to_string(kFirst + 30));
  set(second, "not_before = " + std::to_string(kFirst + 20));
  EXPECT_EQ(outbox().seconds_to_next(kMail, kFirst, 60), 20);
  EXPECT_EQ(outbox().seconds_to_next(kMail, kFirst, 19), 19);
  EXPECT_EQ(outbox().seconds_to_next(kMail, kFirst + 50, 60), 0);
  pause(kMail, kFirst + 40);
  EXPECT_EQ(outbox().seconds_to_next(kMail, kFirst, 60), 40);
  EXPECT_EQ(outbox().seconds_to_next(kSyslog, kFirst, 60), 60);
  sql_state(typed_sql("UPDATE delivery SET state = {delivered}").c_str());
  EXPECT_EQ(outbox().seconds_to_next(kMail, kFirst, 60), 60);
}

TEST_F(OutboxRowsTest, EndsPausesButNotQuietHours) {
  add(kMail, 0, Kind::kBegin, kFirst + 500);
  const std::int64_t pending = add();
  const std::int64_t delivered = add();
  set(pending, "not_before = 99");
  set(delivered, "not_before = 99, state = {delivered}");
  pause(kMail, kFirst + 40);
  outbox().end_pauses();
  EXPECT_THAT(column("not_before"), ElementsAre(std::to_string(kFirst + 500), "0", "99"));
  EXPECT_EQ(outbox().status().at(0).paused_until, 0);
}

TEST_F(OutboxRowsTest, TheStatusOfAChannel) {
  sql_state("INSERT INTO channel VALUES ('mail', 2, 3, 4, 'why', 6, 7)");
  const std::int64_t old = add();
  set(old, "created = 100, held = 150");
  set(add(), "created = 120, state = {folded}");
  set(add(kMail, 0, Kind::kSummary), "created = 121");
  set(add(), "created = 10, state = {given_up}");
  for (int i = 0; i < 2; ++i) set(add(), "created = 11, state = {delivered}");
  add(kWeb);
  const std::vector<ChannelStatus> all = outbox().status();
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0].name, "mail");
  EXPECT_EQ(all[0].waiting, 2) << "a summary is none of its parts";
  EXPECT_EQ(all[0].oldest, 100);
  EXPECT_EQ(all[0].given_up, 1);
  EXPECT_EQ(all[0].taken, 7);
  EXPECT_EQ(all[0].failures, 2);
  EXPECT_EQ(all[0].paused_until, 3);
  EXPECT_EQ(all[0].failing_since, 4);
  EXPECT_EQ(all[0].last_success, 6);
  EXPECT_EQ(all[0].last_error, "why");
  EXPECT_EQ(all[0].due, 120);
  EXPECT_EQ(all[1].name, "web");
  EXPECT_EQ(all[1].waiting, 1);
  EXPECT_EQ(all[1].taken, 0);
}

TEST_F(OutboxRowsTest, ChannelsThatSomethingIsPendingFor) {
  add(kWeb);
  add(kWeb);
  set(add(kMail), "state = {folded}");
  set(add(kSyslog), "state = {delivered}");
  set(add(kCommand), "state = {given_up}");
  EXPECT_THAT(outbox().channels_waited_for(), ::testing::UnorderedElementsAre(kMail, kWeb));
}

TEST_F(OutboxRowsTest, WhatBecameOfAnIncident) {
  KnownIncident incident;
  incident.name = "incident_a";
  IncidentBook(*state_).put_incident(incident, kFirst);
  const std::int64_t begin = add(kWeb, incident.id, Kind::kReport);
  DeliveryQueue(*state_).add_delivery(
      {begin, kMail, Kind::kBegin, incident.id, Severity::kMajor, 17, 0});
  set(add(kMail, incident.id, Kind::kEnd), "state = {given_up}, reason = 'why'");
  add(kMail, incident.id + 1);
  const std::vector<ToldMessage> told = outbox().told_of("incident_a");
  ASSERT_EQ(told.size(), 3U);
  EXPECT_EQ(told[0].channel, "mail");
  EXPECT_EQ(told[0].kind, Kind::kBegin);
  EXPECT_EQ(told[0].state, DeliveryState::kWaiting);
  EXPECT_EQ(told[0].created, 17);
  EXPECT_EQ(told[1].channel, "web");
  EXPECT_EQ(told[1].created, kFirst);
  EXPECT_EQ(told[2].kind, Kind::kEnd);
  EXPECT_EQ(told[2].state, DeliveryState::kGivenUp);
  EXPECT_EQ(told[2].reason, "why");
  EXPECT_THAT(outbox().told_of("incident_b"), IsEmpty());
}

// The state of the record of a message of incident 7: "told", "not told", with "held until N".
class StateOfARecord : public OutboxRowsTest {
 protected:
  std::string state_of(const std::string& record = "record 1") {
    const std::optional<RecordState> state = outbox().state_of(record, Severity::kMajor);
    if (!state) return "unknown";
    return (state->is_told ? "told" : "not told") +
           (state->held == 0 ? std::string() : " held until " + std::to_string(state->held));
  }
  // One more delivery of the first message.
  void add_other(const char* channel, std::int64_t held) {
    DeliveryQueue(*state_).add_delivery({1, channel, Kind::kBegin, 7, Severity::kMajor, 1, held});
  }
  void set_told(Severity severity) { IncidentBook(*state_).set_told(7, kMail, severity); }
};

TEST_F(StateOfARecord, IsToldOnceAChannelHasDelivered) {
  EXPECT_EQ(state_of(), "unknown");
  add(kMail, 7);
  for (const auto& [state, said] : {std::pair("{waiting}", "not told"),
                                    {"{folded}", "not told"},
                                    {"{given_up}", "not told"},
                                    {"{replaced}", "not told"},
                                    {"{delivered}", "told"}}) {
    set(1, std::string("state = ") + state);
    EXPECT_EQ(state_of(), said) << state;
  }
  add_other(kWeb, 0);
  EXPECT_EQ(state_of(), "told");
  add(kMail, 7);
  EXPECT_EQ(state_of("record 2"), "not told");
  EXPECT_EQ(state_of("record 3"), "unknown");
}

TEST_F(StateOfARecord, IsToldWhenItsIncidentWasAtItsSeverity) {
  add(kWeb, 7);
  set_told(Severity::kWarning);
  EXPECT_EQ(state_of(), "not told");
  set_told(Severity::kMajor);
  EXPECT_EQ(state_of(), "told");
  const std::int64_t begin = add(kMail, 7);
  for (const char* state : {"{waiting}", "{folded}", "{given_up}"}) {
    set(begin, std::string("state = ") + state);
    EXPECT_EQ(state_of(), "not told") << state;
  }
  for (const char* state : {"{replaced}", "{delivered}"}) {
    set(begin, std::string("state = ") + state);
    EXPECT_EQ(state_of(), "told") << state;
  }
  set(begin, "state = {waiting}, severity = 1");  // of less than this record has
  EXPECT_EQ(state_of(), "told");
  set(begin, "state = {waiting}, severity = 2, incident = 8");
  EXPECT_EQ(state_of(), "told");
  add(kMail, 8);
  EXPECT_EQ(state_of("record 3"), "not told");
}

TEST_F(StateOfARecord, IsHeldWhenQuietHoursHoldAllThatIsPending) {
  add(kMail, 7, Kind::kBegin, 50);
  EXPECT_EQ(state_of(), "not told held until 50");
  set(1, "state = {folded}");
  EXPECT_EQ(state_of(), "not told held until 50");
  add_other(kCommand, 60);
  EXPECT_EQ(state_of(), "not told held until 60");
  add_other(kWeb, 0);
  EXPECT_EQ(state_of(), "not told");
  for (const auto& [state, said] : {std::pair("{given_up}", "not told"),
                                    {"{folded}", "not told"},
                                    {"{delivered}", "told held until 60"},
                                    {"{replaced}", "not told held until 60"}}) {
    sql_state(
        typed_sql(std::string("UPDATE delivery SET state = ") + state + " WHERE channel = 'web'")
            .c_str());
    EXPECT_EQ(state_of(), said) << state;
  }
  set(1, "state = {delivered}");
  EXPECT_EQ(state_of(), "told");
}

}  // namespace
}  // namespace corvane::alert
