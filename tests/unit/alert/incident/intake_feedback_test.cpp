// What people say of records, how incidents end and open again, and what is forgotten.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "companions/alert/incident/incident_book.h"
#include "companions/alert/incident/intake.h"
#include "tests/unit/alert/alert_world.h"

namespace corvane::alert {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class IntakeFeedbackTest : public AlertWorld {
 protected:
  void record(int number, const std::string& more = "", int severity = 2) {
    std::string details = details_of("c", "incident_1", severity, kFirst + (number - 1) * kDay);
    details.insert(details.size() - 1, more);
    anomaly("anomaly_" + std::to_string(number), details, kFirst + number);
  }
  // Three records of one incident, which everybody has heard of.
  void three_records() {
    for (int i = 1; i <= 3; ++i) record(i);
    pass();
    take_all();
    ASSERT_EQ(pass().processed, 3U);
  }
  KnownIncident incident() {
    return IncidentBook(*state_).find_incident("incident_1").value_or(KnownIncident{});
  }
};

class OneOfThreeRecords : public IntakeFeedbackTest, public ::testing::WithParamInterface<int> {
 protected:
  std::string said_of_ = "anomaly_" + std::to_string(GetParam());
};

TEST_P(OneOfThreeRecords, ClosesTheIncidentAndWithdrawnOpensItAgain) {
  three_records();
  feedback(said_of_, 1);
  EXPECT_EQ(pass(kFirst + 7).ended, 0U);
  EXPECT_EQ(incident().end, IncidentEnd::kFalsePositive);
  EXPECT_EQ(incident().until, kFirst + 7);
  EXPECT_EQ(fake::log_lines(4).back().text, "Anomaly [anomaly_1] was marked as a false positive");
  pass(kFirst + 8);
  EXPECT_EQ(incident().until, kFirst + 7);
  feedback(said_of_, 0);
  pass(kFirst + 9);
  EXPECT_TRUE(incident().is_open());
  EXPECT_EQ(incident().until, 0);
  EXPECT_EQ(fake::log_lines(4).back().text,
            "Anomaly [anomaly_1] is no longer marked as a false positive");
  EXPECT_EQ(fake::log_lines(4).size(), 2U);
  EXPECT_THAT(take(kMail), IsEmpty());
  EXPECT_THAT(take(kWeb), IsEmpty());
}

TEST_P(OneOfThreeRecords, WithdrawnAfterAUsualBackupEndsItAsUsualAndTellsPeopleOnce) {
  three_records();
  feedback(said_of_, 1);
  pass();
  usual_backup("c", kFirst + 5 * kDay);
  EXPECT_EQ(pass().ended, 0U);  // looks at the history, with nothing to end
  restart();
  feedback(said_of_, 0);
  EXPECT_EQ(pass().ended, 1U);
  EXPECT_EQ(incident().end, IncidentEnd::kUsualBackup);
  EXPECT_EQ(incident().until, kFirst + 5 * kDay);
  EXPECT_THAT(take(kMail), ElementsAre("end c 2"));
  EXPECT_EQ(taken_.back().until, kFirst + 5 * kDay);
  EXPECT_THAT(take(kWeb), ElementsAre("end c 2"));
  EXPECT_EQ(pass().ended, 0U);
  EXPECT_THAT(take(kMail), IsEmpty());
}

TEST_P(OneOfThreeRecords, CountsWhenTheRecordWasPurged) {
  three_records();
  sql("DELETE FROM ANOMALY_DATA WHERE ANOMALY_UNIQUE_ID = '" + said_of_ + "'");
  feedback(said_of_, 1);
  pass();
  EXPECT_EQ(incident().end, IncidentEnd::kFalsePositive);
}

// Of a whole incident that comes at once, as after a standstill.
TEST_P(OneOfThreeRecords, NobodyHearsOfItWhenPeopleHaveSaidSoBefore) {
  for (int i = 1; i <= 3; ++i) record(i);
  feedback(said_of_, 1);
  pass(kFirst + 7);
  EXPECT_EQ(incident().end, IncidentEnd::kFalsePositive);
  EXPECT_EQ(incident().until, kFirst + 7);
  EXPECT_EQ(fake::log_lines(4).size(), 1U);
  EXPECT_THAT(take(kMail), IsEmpty());
  EXPECT_EQ(take(kWeb).size(), 3U);
  EXPECT_EQ(taken_.back().until, kFirst + 7);
  EXPECT_EQ(pass().processed, 3U);
}

INSTANTIATE_TEST_SUITE_P(EachOf, OneOfThreeRecords, ::testing::Values(1, 2, 3));

TEST_F(IntakeFeedbackTest, NobodyHearsOfARecordThatComesWithThatFeedback) {
  record(1, "", 1);
  pass();
  take_all();
  feedback("anomaly_1", 1);
  record(2, "", 3);
  pass();
  EXPECT_THAT(take(kMail), IsEmpty());
  EXPECT_THAT(take(kWeb), ElementsAre("report c 3"));
}

TEST_F(IntakeFeedbackTest, OtherFeedbackIsNoEnd) {
  three_records();
  feedback("anomaly_2", 0);
  feedback("anomaly_unknown", 1);
  feedback("foreign", 1);
  pass();
  EXPECT_TRUE(incident().is_open());
}

TEST_F(IntakeFeedbackTest, WhatUsualBackupsHadEndedStaysSo) {
  three_records();
  usual_backup("c", kFirst + 5 * kDay);
  pass();
  take_all();
  feedback("anomaly_2", 1);
  pass();
  feedback("anomaly_2", 0);
  EXPECT_EQ(pass().ended, 0U);
  EXPECT_EQ(incident().end, IncidentEnd::kUsualBackup);
  EXPECT_THAT(take(kMail), IsEmpty());
}

// A pass may be stopped, or the process die, behind the feedback.
TEST_F(IntakeFeedbackTest, AWithdrawalBeforeAStopIsNotForgotten) {
  three_records();
  feedback("anomaly_1", 1);
  usual_backup("c", kFirst + 5 * kDay);
  pass();
  feedback("anomaly_1", 0);
  stop_ = [] { return true; };
  pass();
  EXPECT_TRUE(incident().is_open());
  stop_ = nullptr;
  restart();
  EXPECT_EQ(pass().ended, 1U);
  EXPECT_THAT(take(kMail), ElementsAre("end c 2"));
}

TEST_F(IntakeFeedbackTest, ARecordThatWasJudgedLateTellsItsBeginAndItsEnd) {
  const std::int64_t usual = kFirst + kDay / 2;
  usual_backup("c", usual);
  pass();  // the history was looked at before the record was there
  record(1, R"(,"usual_since":)" + std::to_string(usual));
  EXPECT_EQ(pass().ended, 1U);
  EXPECT_EQ(incident().end, IncidentEnd::kUsualBackup);
  EXPECT_EQ(incident().until, usual);
  EXPECT_THAT(take(kMail), ElementsAre("begin c 2", "end c 2"));
  EXPECT_EQ(taken_.back().until, usual);
  EXPECT_THAT(take(kWeb), ElementsAre("report c 2", "end c 2"));
  // Called a false positive and not, it is resolved as before, whatever of the history is left.
  sql("DELETE FROM HIST_DATA");
  feedback("anomaly_1", 1);
  pass();
  feedback("anomaly_1", 0);
  pass();
  EXPECT_EQ(incident().end, IncidentEnd::kUsualBackup);
  EXPECT_EQ(incident().until, usual);
  EXPECT_THAT(take(kMail), IsEmpty());
}

TEST_F(IntakeFeedbackTest, WhatIsKnownOfALateRecordOutlivesAWithdrawal) {
  const std::int64_t usual = kFirst + kDay / 2;
  record(1, R"(,"usual_since":)" + std::to_string(usual));
  feedback("anomaly_1", 1);
  pass();
  EXPECT_EQ(incident().end, IncidentEnd::kFalsePositive);
  feedback("anomaly_1", 0);
  EXPECT_EQ(pass().ended, 1U);
  EXPECT_EQ(incident().until, usual);
}

TEST_F(IntakeFeedbackTest, ARecordAfterTheUsualBackupOpensItAgain) {
  record(1);
  usual_backup("c", kFirst + 100);
  EXPECT_EQ(pass().ended, 1U);
  take_all();
  record(2);
  EXPECT_EQ(pass().ended, 0U);
  EXPECT_TRUE(incident().is_open());
  EXPECT_THAT(take(kMail), ElementsAre("begin c 2"));
  EXPECT_EQ(taken_.back().until, 0);
}

TEST_F(IntakeFeedbackTest, AnAdoptedChangeIsResolvedWhateverCameLast) {
  three_records();
  std::string adopted = details_of("c", "incident_1", 2, kFirst);
  adopted.insert(adopted.size() - 1,
                 R"(,"adopted":{"backup_id":"x","time":)" + std::to_string(kFirst + 5) + "}");
  set_details(*detection_, "anomaly_1", adopted);
  usual_backup("c", kFirst + 5);  // judged late: before the last record
  EXPECT_EQ(pass().ended, 1U);
  EXPECT_EQ(incident().end, IncidentEnd::kAdopted);
  EXPECT_EQ(incident().until, kFirst + 5);
  EXPECT_THAT(take(kMail), ElementsAre("end c 2"));
  EXPECT_THAT(taken_.back().body, HasSubstr("now part of the baseline"));
}

TEST_F(IntakeFeedbackTest, AMarkThatWasLostIsMadeAgainAndNobodyIsTold) {
  three_records();
  sql("UPDATE ANOMALY_DATA SET PROCESSED = 0 WHERE ANOMALY_UNIQUE_ID <> 'anomaly_2'");
  restart();
  const PassCounts counts = pass();
  EXPECT_EQ(counts.records, 0U);
  EXPECT_EQ(counts.processed, 2U);
  EXPECT_EQ(unprocessed(), "0");
  EXPECT_EQ(incident().records, 3);
  for (const char* channel : {kWeb, kMail}) EXPECT_THAT(take(channel), IsEmpty());
}

// The service purges feedback that the master server has forgotten.
TEST_F(IntakeFeedbackTest, FeedbackThatIsPurgedIsNotTakenBack) {
  three_records();
  feedback("anomaly_2", 1);
  pass(kFirst + 7);
  sql("DELETE FROM ANOMALY_DATA_FEEDBACK");
  pass(kFirst + 8);
  EXPECT_EQ(incident().end, IncidentEnd::kFalsePositive);
  EXPECT_EQ(incident().until, kFirst + 7);
}

TEST_F(IntakeFeedbackTest, ARecordThatIsJudgedLateIsNotTheLatest) {
  record(3);
  pass();
  record(1);
  pass();
  EXPECT_EQ(incident().records, 2);
  EXPECT_EQ(incident().last_anomaly, "anomaly_3");
}

TEST_F(IntakeFeedbackTest, AnOpenIncidentIsForgottenWithItsLatestRecordOnly) {
  three_records();
  const std::int64_t late = kFirst + 400 * kDay;
  sql("DELETE FROM ANOMALY_DATA WHERE ANOMALY_UNIQUE_ID <> 'anomaly_3'");
  intake_->prune(late);
  EXPECT_TRUE(incident().is_open());
  EXPECT_EQ(state_count("message"), "0");
  EXPECT_EQ(state_count("told"), "1");
  EXPECT_EQ(state_count("record"), "3");
  sql("DELETE FROM ANOMALY_DATA");
  intake_->prune(kFirst + 90 * kDay);  // something happened since
  EXPECT_EQ(state_count("incident"), "1");
  intake_->prune(late);
  for (const char* table : {"incident", "record", "told"}) EXPECT_EQ(state_count(table), "0");
}

TEST_F(IntakeFeedbackTest, WhatWasNotTakenOutlivesItsRecords) {
  record(1);
  pass();
  take(kWeb);
  sql("DELETE FROM ANOMALY_DATA");
  intake_->prune(kFirst + 400 * kDay);
  EXPECT_THAT(take(kMail), ElementsAre("begin c 2"));
  intake_->prune(kFirst + 400 * kDay);
  EXPECT_EQ(state_count("incident"), "0");
}

// Nobody can deliver them, and nobody can have them sent again.
TEST_F(IntakeFeedbackTest, DeadLettersOfAChannelThatWasRemovedAreDroppedAfterAWeek) {
  const auto state = [&](const std::string& set) {
    test::query(state_->handle(), typed_sql("UPDATE delivery SET " + set));
  };
  const auto left = [&](std::int64_t now) {
    intake_->prune(now);
    return test::query_one(state_->handle(),
                           "SELECT count(*) FROM delivery WHERE channel = 'mail'") +
           " " + std::to_string(pass(now).processed);
  };
  const std::int64_t removed = kFirst + 30 * kDay;
  const std::int64_t week = removed + 7 * kDay;
  record(1);
  pass();
  state("state = {given_up} WHERE channel = 'mail' AND kind = {begin}");
  record(2, "", 3);  // a rise, which the begin's dead letter stands for
  pass();
  take(kWeb);
  state(
      "state = {folded}, summary = (SELECT message FROM delivery WHERE channel = 'mail' AND "
      "kind = {begin}) WHERE channel = 'mail' AND kind = {rise}");
  const std::string mail = settings_.mail_to;
  EXPECT_EQ(left(removed - 9 * kDay), "2 0");  // it is configured
  settings_.mail_to.clear();
  pass();
  EXPECT_EQ(left(removed - 8 * kDay), "2 0");
  settings_.mail_to = mail;  // it was a mistake
  pass();
  EXPECT_EQ(left(removed - kDay), "2 0");
  settings_.mail_to.clear();
  pass();
  EXPECT_EQ(left(removed + 1), "2 0");
  EXPECT_EQ(left(removed), "2 0");  // the clock was set back
  EXPECT_EQ(left(removed + 2), "2 0");
  restart();
  pass();
  EXPECT_EQ(left(week - 1), "2 0");
  EXPECT_EQ(fake::log_lines(4).size(), 0U);
  ASSERT_EQ(left(week), "0 2");
  EXPECT_EQ(fake::log_lines(4).back().text,
            "Channel mail is not configured any more: 2 dead letters dropped");
  EXPECT_EQ(unprocessed(), "0");
  EXPECT_EQ(left(week + kDay), "0 0");
  EXPECT_EQ(fake::log_lines(4).size(), 1U);
}

TEST_F(IntakeFeedbackTest, OfAChannelThatWasRemovedWhatIsStillTriedStays) {
  record(1);
  pass();
  test::query(state_->handle(), typed_sql("UPDATE delivery SET state = {given_up} WHERE channel = "
                                          "'web'"));
  settings_.mail_to.clear();
  pass();
  intake_->prune(kFirst + 30 * kDay);
  intake_->prune(kFirst + 60 * kDay);
  EXPECT_EQ(state_count("delivery"), "2");  // the web service is always configured
}

// To the day and the second.
TEST_F(IntakeFeedbackTest, APurgedIncidentIsForgottenAfter90Days) {
  three_records();
  sql("DELETE FROM ANOMALY_DATA");
  intake_->prune(kFirst + 9 * kDay);
  intake_->prune(kFirst + 90 * kDay);
  EXPECT_EQ(state_count("incident"), "1");
  intake_->prune(kFirst + 90 * kDay + 1);
  EXPECT_EQ(state_count("incident"), "0");
}

TEST_F(IntakeFeedbackTest, WhatIsKnownOfARecordThatWasDoneBeforeIsAskedOnce) {
  record(1);
  sql("UPDATE ANOMALY_DATA SET PROCESSED = 1");  // nothing in the book
  feedback("anomaly_1", 1);
  pass();
  EXPECT_EQ(incident().id, 0);
  EXPECT_TRUE(fake::log_lines(4).empty());
  record(2);
  pass(kFirst + 7);
  EXPECT_EQ(incident().end, IncidentEnd::kFalsePositive);
  EXPECT_EQ(incident().anomaly_id, "anomaly_1");
  EXPECT_EQ(fake::log_lines(4).size(), 1U);
}

// The feedback is withdrawn on one record while it stays on another.
TEST_F(IntakeFeedbackTest, OneFalsePositiveIsEnough) {
  three_records();
  feedback("anomaly_1", 1);
  feedback("anomaly_2", 1);
  pass(kFirst + 7);
  feedback("anomaly_1", 0);
  pass(kFirst + 8);
  EXPECT_EQ(incident().end, IncidentEnd::kFalsePositive);
  EXPECT_EQ(incident().until, kFirst + 7);
  EXPECT_EQ(fake::log_lines(4).size(), 1U);
}

TEST_F(IntakeFeedbackTest, WithdrawalKeepsAUsualBackupOnlyWhenItIsLater) {
  const std::int64_t last = kFirst + 2 * kDay;
  for (const std::int64_t since : {last, last + 1}) {
    sql("DELETE FROM ANOMALY_DATA_FEEDBACK");
    record(1);
    const std::string id = "anomaly_" + std::to_string(since);
    std::string details = details_of("c", "incident_1", 2, last);
    details.insert(details.size() - 1, ",\"usual_since\":" + std::to_string(since));
    anomaly(id, details, kFirst + 9);
    feedback("anomaly_1", 1);
    pass();
    feedback("anomaly_1", 0);
    EXPECT_EQ(pass().ended, since > last ? 1U : 0U) << since - last;
  }
}

}  // namespace
}  // namespace corvane::alert
