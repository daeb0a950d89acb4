#include "companions/alert/incident/intake.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "companions/alert/incident/incident_book.h"
#include "tests/unit/alert/alert_world.h"

namespace corvane::alert {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class IntakeTest : public AlertWorld {
 protected:
  // What quiet hours hold back: channel, incident and for how many seconds from kFirst on.
  std::string held_back() {
    std::string text;
    for (const test::SqlRow& row :
         test::query(state_->handle(),
                     "SELECT d.channel, i.name, held - 1700000000 FROM delivery d JOIN incident i "
                     "ON i.id = d.incident WHERE held <> 0")) {
      for (const std::string& value : row) text += value + " ";
    }
    return text;
  }
};

TEST_F(IntakeTest, TellsEachConfiguredChannelAndTheWebService) {
  settings_.syslog = settings_.syslog_severity = 1;
  anomaly("a", details_of("c", "incident_a", 3, kFirst));
  const PassCounts counts = pass();
  EXPECT_EQ(counts.records, 1U);
  EXPECT_EQ(counts.incidents, 1U);
  EXPECT_THAT(take(kWeb), ElementsAre("report c 3"));
  EXPECT_EQ(taken_.back().anomaly_id, "a");
  EXPECT_EQ(taken_.back().records, 1);
  EXPECT_EQ(taken_.back().since, kFirst);
  EXPECT_THAT(take(kSyslog), ElementsAre("begin c 3"));
  EXPECT_EQ(pass().processed, 0U);  // one has not taken it
  EXPECT_EQ(unprocessed(), "1");
  EXPECT_THAT(take(kMail), ElementsAre("begin c 3"));
  EXPECT_THAT(take(kCommand), IsEmpty());
  EXPECT_EQ(pass().processed, 1U);
  EXPECT_EQ(unprocessed(), "0");
}

TEST_F(IntakeTest, ARecordIsTakenInOnce) {
  anomaly("a", details_of("c", "a", 3, kFirst));
  EXPECT_EQ(pass().records, 1U);
  EXPECT_EQ(pass().records, 0U);
  restart();
  EXPECT_EQ(pass().records, 0U);
  take_all();
  EXPECT_EQ(pass().processed, 1U);
  EXPECT_THAT(take(kMail), IsEmpty());
}

TEST_F(IntakeTest, ARecordThatWasDoneButNotMarkedIsMarkedAfterARestart) {
  anomaly("a", details_of("c", "a", 3, kFirst));
  pass();
  take_all();
  restart();
  EXPECT_EQ(pass().processed, 1U);
  EXPECT_EQ(unprocessed(), "0");
  EXPECT_EQ(pass().processed, 0U);
}

TEST_F(IntakeTest, TakesTheOldestDetectionFirst) {
  anomaly("b", details_of("b", "b", 2, kFirst), kFirst + 5);
  anomaly("a", details_of("a", "a", 1, kFirst), kFirst + 1);
  pass();
  EXPECT_THAT(take(kWeb), ElementsAre("report a 1", "report b 2"));
}

TEST_F(IntakeTest, HasNewsWhenSomebodyElseHasWritten) {
  EXPECT_TRUE(intake_->has_news());
  pass();
  EXPECT_FALSE(intake_->has_news());
  anomaly("a", details_of("c", "a", 3, kFirst));
  EXPECT_TRUE(intake_->has_news());
  pass();
  take_all();
  pass();
  EXPECT_FALSE(intake_->has_news());
}

TEST_F(IntakeTest, StopsBetweenRecordsAndGoesOnLater) {
  for (int i = 0; i < 100; ++i) {
    const std::string name = "a" + std::to_string(i);
    anomaly(name, details_of(name, name, 1, kFirst));
  }
  int asked = 0;
  stop_ = [&] { return ++asked > 50; };
  const std::size_t first = pass().records;
  EXPECT_GT(first, 0U);
  EXPECT_LT(first, 100U);
  EXPECT_TRUE(intake_->has_news());
  stop_ = nullptr;
  EXPECT_EQ(pass().records, 100U - first);
  EXPECT_EQ(take(kWeb).size(), 100U);
}

TEST_F(IntakeTest, LaterRecordsUpdateTheFirstAndPeopleHearOfMoreSeverity) {
  anomaly("anomaly_a", details_of("c", "incident_a", 1, kFirst));
  pass();
  EXPECT_THAT(take(kMail), ElementsAre("begin c 1"));
  EXPECT_THAT(take(kWeb), ElementsAre("report c 1"));

  anomaly("anomaly_b", details_of("c", "incident_a", 1, kFirst + kDay));
  EXPECT_EQ(pass().incidents, 0U);
  EXPECT_THAT(take(kMail), IsEmpty());
  EXPECT_THAT(take(kWeb), ElementsAre("report c 1"));
  EXPECT_EQ(taken_.back().anomaly_id, "anomaly_a");
  EXPECT_EQ(taken_.back().records, 2);
  EXPECT_EQ(taken_.back().since, kFirst);

  anomaly("anomaly_c", details_of("c", "incident_a", 2, kFirst + 2 * kDay));
  pass();
  EXPECT_THAT(take(kMail), ElementsAre("rise c 2"));
  EXPECT_THAT(headline(taken_.back()), HasSubstr("[major] Now worse: The daily backup"));
  anomaly("anomaly_d", details_of("c", "incident_a", 1, kFirst + 3 * kDay));
  pass();
  EXPECT_THAT(take(kMail), IsEmpty());
  EXPECT_THAT(take(kWeb), ElementsAre("report c 2", "report c 2"));  // it was as bad as that
}

TEST_F(IntakeTest, AnIncidentKeepsItsIdWhereItsFirstRecordIsForgotten) {
  anomaly("anomaly_later", details_of("c", "incident_first", 1, kFirst));
  pass();
  take(kWeb);
  EXPECT_EQ(taken_.back().anomaly_id, "anomaly_first");
}

TEST_F(IntakeTest, EachChannelHasItsLeastSeverity) {
  settings_.mail_severity = 2;
  settings_.syslog = settings_.syslog_severity = 1;
  anomaly("a", details_of("c", "a", 1, kFirst));
  pass();
  EXPECT_THAT(take(kMail), IsEmpty());
  EXPECT_THAT(take(kSyslog), ElementsAre("begin c 1"));
  take(kWeb);
  EXPECT_EQ(pass().processed, 1U);
  anomaly("b", details_of("c", "a", 3, kFirst + kDay));
  pass();
  EXPECT_THAT(take(kMail), ElementsAre("begin c 3"));
  EXPECT_THAT(take(kSyslog), ElementsAre("rise c 3"));
}

TEST_F(IntakeTest, WhatNobodyHasHeardYetIsToldOnceAtItsWorst) {
  anomaly("a", details_of("c", "i", 1, kFirst));
  pass();
  anomaly("b", details_of("c", "i", 3, kFirst + 1));
  pass();
  EXPECT_THAT(take(kMail), ElementsAre("begin c 3"));
  EXPECT_THAT(take(kWeb), ElementsAre("report c 1", "report c 3"));
  EXPECT_EQ(pass().processed, 2U);
}

TEST_F(IntakeTest, AUsualBackupOfTheStreamEndsIt) {
  anomaly("a", details_of("c", "i", 2, kFirst));
  pass();
  take_all();
  usual_backup("other", kFirst + kDay);
  usual_backup("c", kFirst);
  EXPECT_EQ(pass().ended, 0U);
  usual_backup("c", kFirst + 3 * kDay);
  usual_backup("c", kFirst + 2 * kDay);
  EXPECT_EQ(pass().ended, 1U);
  EXPECT_THAT(take(kMail), ElementsAre("end c 2"));
  EXPECT_EQ(taken_.back().until, kFirst + 2 * kDay);
  EXPECT_THAT(take(kWeb), ElementsAre("end c 2"));
  EXPECT_EQ(taken_.back().until, kFirst + 2 * kDay);
  EXPECT_THAT(taken_.back().details, HasSubstr("features"));  // still says what it was
  usual_backup("c", kFirst + 4 * kDay);
  EXPECT_EQ(pass().ended, 0U);
}

TEST_F(IntakeTest, AnEndThatCameWhileNobodyLookedIsSeen) {
  pass();
  anomaly("a", details_of("c", "i", 2, kFirst));
  usual_backup("c", kFirst + kDay);
  restart();
  EXPECT_EQ(pass().ended, 1U);
  EXPECT_THAT(take(kMail), ElementsAre("begin c 2", "end c 2"));
}

TEST_F(IntakeTest, FindsAHistoryWhoseNumbersBeginAnew) {
  for (int i = 0; i < 10; ++i) usual_backup("x", kFirst);
  pass();
  sql("DELETE FROM HIST_DATA");
  anomaly("a", details_of("c", "i", 2, kFirst));
  usual_backup("c", kFirst + kDay);
  EXPECT_EQ(pass().ended, 1U);
}

TEST_F(IntakeTest, WhatPeopleMadeUsualIsNoEnd) {
  anomaly("a", details_of("c", "i", 2, kFirst));
  usual_backup("c", kFirst + kDay, 5);
  EXPECT_EQ(pass().ended, 0U);
}

TEST_F(IntakeTest, OneThatNobodyWasToldOfEndsSilently) {
  settings_.mail_severity = 3;
  anomaly("a", details_of("c", "i", 2, kFirst));
  usual_backup("c", kFirst + kDay);
  EXPECT_EQ(pass().ended, 1U);
  EXPECT_THAT(take(kMail), IsEmpty());
  EXPECT_THAT(take(kWeb), ElementsAre("report c 2", "end c 2"));
}

TEST_F(IntakeTest, TheEndSaysWhetherTheChangeIsTheNewNormal) {
  std::string adopted = details_of("c", "incident_a", 2, kFirst);
  anomaly("anomaly_a", adopted);
  pass();
  take_all();
  adopted.insert(adopted.size() - 1, R"(,"adopted":{"backup_id":"x","time":5})");
  sql("UPDATE ANOMALY_DATA SET ANOMALY_DETAILS = '" + adopted + "'");
  usual_backup("c", kFirst + kDay);
  pass();
  take(kMail);
  ASSERT_EQ(taken_.size(), 1U);
  EXPECT_THAT(taken_.back().body, HasSubstr("now part of the baseline"));
}

TEST_F(IntakeTest, AFalsePositiveIsClosedAndStaysSilent) {
  anomaly("anomaly_a", details_of("c", "incident_a", 1, kFirst));
  pass();
  take_all();
  feedback("anomaly_a", 1);
  usual_backup("c", kFirst + kDay);
  EXPECT_EQ(pass().ended, 0U);
  EXPECT_EQ(fake::log_lines(4).at(0).text, "Anomaly [anomaly_a] was marked as a false positive");
  anomaly("anomaly_b", details_of("c", "incident_a", 3, kFirst + 2 * kDay));
  pass();
  EXPECT_THAT(take(kMail), IsEmpty());
  EXPECT_THAT(take(kWeb), ElementsAre("report c 3"));
  EXPECT_EQ(pass().processed, 1U);
  feedback("anomaly_a", 0);
  anomaly("anomaly_c", details_of("c", "incident_a", 3, kFirst + 3 * kDay));
  pass();
  EXPECT_THAT(take(kMail), ElementsAre("rise c 3"));  // they have heard of 1
}

TEST_F(IntakeTest, AnEndIsToldAtTheSeverityThatTheChannelKnows) {
  settings_.syslog = settings_.syslog_severity = 1;
  settings_.mail_severity = 2;
  anomaly("a", details_of("c", "i", 1, kFirst));
  anomaly("b", details_of("c", "i", 2, kFirst + 1));
  pass();
  take_all();
  usual_backup("c", kFirst + kDay);
  EXPECT_EQ(pass(kFirst + 77).ended, 1U);
  EXPECT_THAT(take(kMail), ElementsAre("end c 2"));
  EXPECT_THAT(take(kSyslog), ElementsAre("end c 2"));
  EXPECT_EQ(taken_.back().created, kFirst + 77);
  EXPECT_EQ(taken_.back().records, 2);
  EXPECT_EQ(taken_.back().since, kFirst);
  EXPECT_EQ(
      taken_.back().body,
      "The daily backup of client c (policy nightly) has been back to normal since 2023-11-15 "
      "22:13 UTC. It had been unusual since 2023-11-14 22:13 UTC (2 backups).\n");
  EXPECT_EQ(state_count("told"), "0");
}

TEST_F(IntakeTest, QuietHoursHoldBackTheEndOfAWarningOnly) {
  setenv("TZ", "UTC", 1);
  tzset();
  ASSERT_TRUE(parse_quiet_hours("22:00-07:00", settings_.quiet));
  anomaly("a", details_of("a", "a", 1, kFirst - 12 * 3600));
  anomaly("b", details_of("b", "b", 2, kFirst - 12 * 3600));
  pass(kFirst - 12 * 3600);
  EXPECT_EQ(take(kMail).size(), 2U);
  for (const char* client : {"a", "b"}) usual_backup(client, kFirst);
  EXPECT_EQ(pass().ended, 2U);  // 22:13
  EXPECT_EQ(held_back(), "mail a 31600 ") << "until 07:00";
  EXPECT_THAT(take(kMail), ElementsAre("end b 2"));
  EXPECT_THAT(take(kWeb), ElementsAre("report a 1", "report b 2", "end a 1", "end b 2"));
  EXPECT_THAT(take(kMail, kFirst + 9 * 3600), ElementsAre("end a 1"));
}

TEST_F(IntakeTest, AnIncidentIsOfItsLatestRecord) {
  anomaly("anomaly_a", details_of("c", "incident_a", 3, kFirst));
  std::string later = details_of("d", "incident_a", 1, kFirst + kDay);
  later.replace(later.find("encryption"), 10, "packed");
  anomaly("anomaly_b", later);
  anomaly("anomaly_0", details_of("e", "incident_a", 1, kFirst - kDay));
  pass();
  const KnownIncident incident = IncidentBook(*state_).find_incident("incident_a").value();
  EXPECT_EQ(incident.stream.client, "d");
  EXPECT_EQ(incident.cause, CauseKind::kPacked);
  EXPECT_EQ(incident.last_anomaly, "anomaly_b");
  EXPECT_TRUE(incident.has_stream);
  EXPECT_EQ(incident.first_time, kFirst - kDay);
  EXPECT_EQ(incident.last_time, kFirst + kDay);
  EXPECT_EQ(incident.severity, Severity::kCritical);
  EXPECT_EQ(incident.records, 3);
}

TEST_F(IntakeTest, OfTwoRecordsAtOneTimeTheSecondIsTheLatest) {
  anomaly("anomaly_a", details_of("c", "incident_a", 3, kFirst));
  anomaly("anomaly_b", details_of("d", "incident_a", 3, kFirst));
  pass();
  EXPECT_EQ(IncidentBook(*state_).find_incident("incident_a")->last_anomaly, "anomaly_b");
}

// The change was adopted with a backup whose time is not known.
TEST_F(IntakeTest, AnAdoptionWithoutATimeEndsItNow) {
  std::string adopted = details_of("c", "incident_a", 2, kFirst);
  adopted.insert(adopted.size() - 1, R"(,"adopted":{"backup_id":"x","time":0})");
  anomaly("anomaly_a", adopted);
  EXPECT_EQ(pass(kFirst + 77).ended, 1U);
  take(kMail);
  EXPECT_EQ(taken_.back().until, kFirst + 77);
}

TEST_F(IntakeTest, AnAdoptionIsLookedForOnlyWithSomethingNew) {
  anomaly("anomaly_a", details_of("c", "incident_a", 2, kFirst));
  pass();
  std::string adopted = details_of("c", "incident_a", 2, kFirst);
  adopted.insert(adopted.size() - 1, R"(,"adopted":{"backup_id":"x","time":1})");
  set_details(*detection_, "anomaly_a", adopted);
  EXPECT_EQ(pass().ended, 0U);
  usual_backup("x", kFirst);
  EXPECT_EQ(pass().ended, 1U);
  EXPECT_EQ(IncidentBook(*state_).find_incident("incident_a")->until, 1);
}

TEST_F(IntakeTest, MarksMoreRecordsThanOneTransactionTakes) {
  settings_.mail_severity = 0;
  settings_.mail_to.clear();
  Transaction transaction(*detection_);
  for (int i = 0; i < 501; ++i) {
    anomaly("anomaly_" + std::to_string(i), details_of("c", "incident_a", 1, kFirst));
  }
  transaction.commit();
  pass();
  take(kWeb);
  EXPECT_EQ(pass().processed, 501U);
  EXPECT_EQ(unprocessed(), "0");
  EXPECT_EQ(pass().processed, 0U);
}

TEST_F(IntakeTest, APassThatIsStoppedEndsNothing) {
  anomaly("a", details_of("c", "i", 2, kFirst));
  pass();
  usual_backup("c", kFirst + kDay);
  stop_ = [] { return true; };
  EXPECT_EQ(pass().ended, 0U);
  EXPECT_TRUE(intake_->has_news());
  stop_ = nullptr;
  EXPECT_EQ(pass().ended, 1U);
}

TEST_F(IntakeTest, ReadsTheHistoryOnlyFromWhereItStopped) {
  for (int i = 0; i < 3; ++i) usual_backup("c", kFirst + i);
  pass();
  EXPECT_EQ(state_->number_of("history"), 3);
  anomaly("a", details_of("c", "i", 2, kFirst - 1));
  EXPECT_EQ(pass().ended, 0U) << "these were there before";
  usual_backup("c", kFirst + 3);
  EXPECT_EQ(pass().ended, 1U);
  EXPECT_EQ(state_->number_of("history"), 4);
}

TEST_F(IntakeTest, ForeignDetailsAreAnIncidentOfTheirOwn) {
  anomaly("a", "no json");
  anomaly("b", "");
  EXPECT_EQ(pass().incidents, 2U);
  EXPECT_THAT(take(kMail), ElementsAre("begin client 2", "begin client 2"));
}

TEST_F(IntakeTest, ReceiversGetDetailsThatAreJsonWithoutNul) {
  anomaly("a", std::string("\0\xFFx", 3));
  anomaly("b", R"({"a":"\u0000"})");
  anomaly("c", "{\"a\":\"" + std::string(300 << 10, 'x') + "\"}");
  pass();
  take(kWeb);
  ASSERT_EQ(taken_.size(), 3U);
  EXPECT_EQ(taken_[0].details, "{\"unreadable\":\"\\ufffd\xEF\xBF\xBDx\"}");
  EXPECT_EQ(taken_[1].details, R"({"a":"\ufffd"})");
  EXPECT_LT(taken_[2].details.size(), 5000U);
}

TEST_F(IntakeTest, QuietHoursHoldBackWhatIsNotUrgent) {
  setenv("TZ", "UTC", 1);
  tzset();
  ASSERT_TRUE(parse_quiet_hours("22:00-07:00", settings_.quiet));
  anomaly("a", details_of("a", "a", 1, kFirst));
  anomaly("b", details_of("b", "b", 2, kFirst));
  pass();  // 22:13
  EXPECT_EQ(held_back(), "mail a 31600 ") << "until 07:00";
  EXPECT_THAT(take(kMail), ElementsAre("begin b 2"));
  EXPECT_THAT(take(kWeb), ElementsAre("report a 1", "report b 2"));
  EXPECT_THAT(take(kMail, kFirst + 8 * 3600), IsEmpty());
  const auto channels = Outbox(*state_).status();
  const auto mail =
      std::find_if(channels.begin(), channels.end(),
                   [](const ChannelStatus& channel) { return channel.name == kMail; });
  ASSERT_NE(mail, channels.end());
  EXPECT_GT(mail->due - mail->oldest, 8 * 3600);  // due at 07:00
  EXPECT_THAT(take(kMail, kFirst + 9 * 3600), ElementsAre("begin a 1"));
}

TEST_F(IntakeTest, TenThousandAreOneSummaryAndAllOfThemReports) {
  Transaction transaction(*detection_);
  for (int i = 0; i < 10000; ++i) {
    const std::string name = "a" + std::to_string(i);
    anomaly(name, details_of(name, name, 1, kFirst));
  }
  transaction.commit();
  EXPECT_EQ(pass().records, 10000U);
  EXPECT_THAT(take(kMail, kFirst + 60), ElementsAre("summary  1"));
  EXPECT_THAT(taken_.back().subject, HasSubstr("10,000 new incidents, on 10,000 clients"));
  EXPECT_LT(taken_.back().details.size(), std::size_t{1} << 20);
  EXPECT_EQ(take(kWeb).size(), 10000U);
  EXPECT_EQ(pass().processed, 10000U);
  EXPECT_EQ(unprocessed(), "0");
}

}  // namespace
}  // namespace corvane::alert
