#include "finding/incident.h"

#include <gtest/gtest.h>

#include <set>

namespace corvane {
namespace {

constexpr std::int64_t kFirst = 1'700'000'000;
constexpr std::int64_t kNight = 86'400;

TEST(ContinuesIncident, UnlessABackupBetweenWasAcceptedOrPeopleSaidFalsePositive) {
  EXPECT_TRUE(continues_incident(kFirst, std::nullopt, false));
  EXPECT_TRUE(continues_incident(kFirst, kFirst - 1, false));
  EXPECT_TRUE(continues_incident(kFirst, kFirst, false)) << "at the same time is not after it";
  EXPECT_FALSE(continues_incident(kFirst, kFirst + 1, false));
  EXPECT_FALSE(continues_incident(kFirst, std::nullopt, true));
}

TEST(EndOf, IsTheFirstReasonThatHolds) {
  IncidentFacts facts{.last = kFirst};
  EXPECT_EQ(end_of(facts), IncidentEnd::kNone);
  facts.last_accepted = kFirst;
  EXPECT_EQ(end_of(facts), IncidentEnd::kNone) << "at the same time is not after it";
  facts.last_accepted = kFirst + 1;
  EXPECT_EQ(end_of(facts), IncidentEnd::kUsualBackup);
  facts.is_adopted = true;
  EXPECT_EQ(end_of(facts), IncidentEnd::kAdopted);
  facts.has_false_positive = true;
  EXPECT_EQ(end_of(facts), IncidentEnd::kFalsePositive);
}

// The anomalies of a database, and what else it knows.
class IncidentsOf : public testing::Test {
 protected:
  Anomaly& add(const std::string& key, const std::string& incident, int night) {
    Anomaly& anomaly = anomalies_.emplace_back();
    anomaly.row.id = anomaly_id(key);
    anomaly.row.detection_key = "stream";
    anomaly.incident = incident;
    anomaly.finding.time = kFirst + night * kNight;
    anomaly.finding.severity = Severity::kMajor;
    anomaly.finding.summary = "of " + key;
    return anomaly;
  }
  std::vector<Incident> all() const {
    return incidents_of(anomalies_,
                        {[&](const std::string& key) { return key == "stream" ? accepted_ : 0; },
                         [&](const std::string& id) { return false_positives_.contains(id); }});
  }
  IncidentEnd end() const { return all().front().end; }

  std::vector<Anomaly> anomalies_;
  std::int64_t accepted_ = 0;
  std::set<std::string> false_positives_;
};

TEST_F(IncidentsOf, GathersTheRecordsOfAName) {
  add("b", "incident_a", 1).finding.severity = Severity::kCritical;
  add("a", "incident_a", 0).finding.causes = {cause(CauseKind::kEncryption)};
  add("c", "incident_a", 2).finding.causes = {cause(CauseKind::kPacked)};
  add("d", "incident_d", 3);
  const std::vector<Incident> found = all();
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].name, "incident_d") << "the latest first";
  const Incident& incident = found[1];
  EXPECT_EQ(incident.records, 3);
  EXPECT_EQ(incident.first, kFirst);
  EXPECT_EQ(incident.last, kFirst + 2 * kNight);
  EXPECT_EQ(incident.severity, Severity::kCritical) << "the highest";
  EXPECT_EQ(incident.cause, CauseKind::kPacked) << "of the latest";
  EXPECT_EQ(incident.summary, "of c");
  EXPECT_EQ(incident.latest, "anomaly_c");
  EXPECT_EQ(incident.first_record, "anomaly_a");
  EXPECT_FALSE(incident.is_resolved());
}

TEST_F(IncidentsOf, TheLatestRecordIsTheOneOfTheLatestBackup) {
  for (const char* key : {"b", "a", "c"}) {
    Anomaly& anomaly = add(key, "incident_a", 1);
    anomaly.finding.stream.client = key;
    anomaly.row.detection_key = std::string("stream of ") + key;
  }
  add("d", "incident_a", 0);
  const Incident incident = all().front();
  EXPECT_EQ(incident.latest, "anomaly_a") << "of several at one time the first by id";
  EXPECT_EQ(incident.summary, "of a");
  EXPECT_EQ(incident.stream.client, "a");
  EXPECT_EQ(incident.detection_key, "stream of a");
  EXPECT_EQ(incident.records, 4);
  EXPECT_EQ(incident.first, kFirst);
  EXPECT_EQ(incident.last, kFirst + kNight);
}

TEST_F(IncidentsOf, ARecordBeforeTheEpochsFirstSecondIsStillTheFirst) {
  add("a", "incident_a", 0).finding.time = 0;
  anomalies_.back().row.detection_time = -5;
  const Incident incident = all().front();
  EXPECT_EQ(incident.first, -5);
  EXPECT_EQ(incident.last, -5);
  EXPECT_EQ(incident.latest, "anomaly_a");
}

TEST_F(IncidentsOf, AreSortedByTheLatestRecordAndThenByName) {
  add("a", "incident_b", 1);
  add("b", "incident_a", 1);
  add("c", "incident_c", 2);
  std::vector<std::string> names;
  for (const Incident& incident : all()) names.push_back(incident.name);
  EXPECT_EQ(names, (std::vector<std::string>{"incident_c", "incident_a", "incident_b"}));
}

TEST_F(IncidentsOf, TheLatestAcceptedBackupOfAllThatIsKnownCounts) {
  add("a", "incident_a", 0).finding.usual_since = kFirst + kNight;
  add("b", "incident_a", 2).finding.usual_since = kFirst + 3 * kNight;
  add("c", "incident_a", 1);
  EXPECT_EQ(all().front().facts.last_accepted, kFirst + 3 * kNight);
  EXPECT_EQ(end(), IncidentEnd::kUsualBackup);
  accepted_ = kFirst + 4 * kNight;
  EXPECT_EQ(all().front().facts.last_accepted, accepted_);
  EXPECT_EQ(all().front().facts.last, kFirst + 2 * kNight);
}

TEST_F(IncidentsOf, FeedbackOnAnyRecordIsFeedbackOnTheIncident) {
  for (const char* key : {"a", "b", "c"}) {
    anomalies_.clear();
    for (int night = 0; night < 3; ++night) {
      const std::string record(1, static_cast<char>('a' + night));
      Anomaly& anomaly = add(record, "incident_a", night);
      if (record == key) anomaly.row.feedback = Feedback::kFalsePositive;
    }
    EXPECT_EQ(end(), IncidentEnd::kFalsePositive) << key;
  }
  anomalies_.back().row.feedback = Feedback::kNoFalsePositive;
  EXPECT_EQ(end(), IncidentEnd::kNone) << "withdrawn";
}

TEST_F(IncidentsOf, FeedbackOnAPurgedFirstRecordCounts) {
  add("b", "incident_a", 1);
  false_positives_.insert("anomaly_a");
  EXPECT_EQ(end(), IncidentEnd::kFalsePositive);
  EXPECT_TRUE(all().front().facts.has_false_positive);
}

TEST_F(IncidentsOf, AUsualBackupAfterTheLastRecordEndsIt) {
  add("a", "incident_a", 0);
  add("b", "incident_a", 2);
  accepted_ = kFirst + kNight;
  EXPECT_EQ(end(), IncidentEnd::kNone);
  accepted_ = kFirst + 3 * kNight;
  EXPECT_EQ(end(), IncidentEnd::kUsualBackup);
}

TEST_F(IncidentsOf, OneThatWasJudgedLateMayBeResolvedFromItsBegin) {
  add("a", "incident_a", 0).finding.usual_since = kFirst + kNight;
  EXPECT_EQ(end(), IncidentEnd::kUsualBackup);
}

TEST_F(IncidentsOf, AnAdoptedChangeIsResolvedAlsoWhenTheHistoryIsPurged) {
  add("a", "incident_a", 0).finding.adopted = BackupReference{"x", kFirst + kNight};
  add("b", "incident_a", 1);
  EXPECT_TRUE(all().front().facts.is_adopted);
  EXPECT_EQ(end(), IncidentEnd::kAdopted);
  EXPECT_TRUE(all().front().is_resolved());
}

TEST_F(IncidentsOf, TwoIncidentsOfOneStreamEndEachByItself) {
  add("a", "incident_a", 0);
  add("b", "incident_b", 4);
  accepted_ = kFirst + 2 * kNight;
  const std::vector<Incident> found = all();
  EXPECT_FALSE(found[0].is_resolved());
  EXPECT_TRUE(found[1].is_resolved());
}

}  // namespace
}  // namespace corvane
