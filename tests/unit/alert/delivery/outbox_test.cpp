#include "companions/alert/delivery/outbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "companions/alert/delivery/delivery_queue.h"
#include "companions/alert/incident/incident_book.h"
#include "tests/unit/alert/alert_world.h"

namespace corvane::alert {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class OutboxTest : public AlertWorld {
 protected:
  // So many incidents a0, a1, ... for the mail channel.
  void fill(int count, std::int64_t now = kFirst) {
    for (int i = 0; i < count; ++i) {
      const std::string name = "a" + std::to_string(i);
      anomaly(name, details_of(name, name, 3, kFirst));
    }
    pass(now);
  }
  Delivery begun(const char* channel, std::int64_t now) {
    const auto delivery = outbox().begin(channel, now);
    EXPECT_TRUE(delivery) << channel << " at " << now - kFirst;
    return delivery.value_or(Delivery{});
  }
  Outbox outbox() { return Outbox(*state_); }
  void sql_state(const char* statement) { test::query(state_->handle(), statement); }
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

// Deliveries that a test makes itself, each of an incident of its own.
class OutboxRows : public OutboxTest {
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

TEST_F(OutboxRows, AMessageHasEverythingOfItsIncident) {
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

TEST_F(OutboxRows, ASummaryHasTheSeverityOfItsDelivery) {
  const std::int64_t summary = add(kMail, 0, Kind::kSummary);
  set(summary, "severity = 3");
  const std::int64_t folded = add();
  set(folded, "state = {folded}, summary = " + std::to_string(summary));
  const Message content = begun(kMail, kFirst).content;
  EXPECT_EQ(content.severity, Severity::kCritical);
  EXPECT_EQ(content.subject, "Many alerts at once: 1 new incident, 0 clients");
  EXPECT_EQ(content.created, kFirst);
}

TEST_F(OutboxRows, BeginsWithTheFewestAttemptsAndThenTheOldest) {
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

TEST_F(OutboxRows, BeginsOnlyWhatIsPendingAndDue) {
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

TEST_F(OutboxRows, AMessageWaitsForAnEarlierOneOfItsIncidentOnItsChannel) {
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

TEST_F(OutboxRows, APauseHoldsUntilItsEnd) {
  const std::int64_t message = add();
  pause(kMail, kFirst + 900);
  EXPECT_EQ(next(kMail, kFirst), 0);
  EXPECT_EQ(next(kMail, kFirst + 899), 0);
  EXPECT_EQ(next(kMail, kFirst + 900), message);
  EXPECT_EQ(next(kMail, kFirst - 1), message) << "no pause is longer than 900 seconds";
}

TEST_F(OutboxRows, ADeliveryIsNotedForItsMessageItsRecordAndItsChannel) {
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

TEST_F(OutboxRows, ASummaryIsDeliveredWithItsParts) {
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

TEST_F(OutboxRows, AFailureIsNotedForMessageAndChannel) {
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

TEST_F(OutboxRows, AFailureMakesLateWhatIsDueByTheNextAttempt) {
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

TEST_F(OutboxRows, ADeliveryStartsTheDayOfThoseThatWereNotTriedAnew) {
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

TEST_F(OutboxRows, OverdueIsWhatFailedForADayTheOldestFirst) {
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

TEST_F(OutboxRows, GivesUpWhatIsPendingOnThatChannelAndRevivesIt) {
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

TEST_F(OutboxRows, KnowsWhenTheNextIsDue) {
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

TEST_F(OutboxRows, EndsPausesButNotQuietHours) {
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

TEST_F(OutboxRows, TheStatusOfAChannel) {
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

TEST_F(OutboxRows, ChannelsThatSomethingIsPendingFor) {
  add(kWeb);
  add(kWeb);
  set(add(kMail), "state = {folded}");
  set(add(kSyslog), "state = {delivered}");
  set(add(kCommand), "state = {given_up}");
  EXPECT_THAT(outbox().channels_waited_for(), ::testing::UnorderedElementsAre(kMail, kWeb));
}

TEST_F(OutboxRows, WhatBecameOfAnIncident) {
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

TEST(DeliveryStateTest, IsSaidInTheWordsOfTheGlossary) {
  EXPECT_STREQ(words_for(DeliveryState::kWaiting), "pending");
  EXPECT_STREQ(words_for(DeliveryState::kFolded), "part of a summary");
  EXPECT_STREQ(words_for(DeliveryState::kDelivered), "delivered");
  EXPECT_STREQ(words_for(DeliveryState::kGivenUp), "dead letter");
  EXPECT_STREQ(words_for(DeliveryState::kReplaced), "replaced");
}

}  // namespace
}  // namespace corvane::alert
