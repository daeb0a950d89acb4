#include "companions/alert/incident/incident_book.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "companions/alert/delivery/delivery_queue.h"
#include "companions/alert/settings_file.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/sql.h"

namespace corvane::alert {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class IncidentBookTest : public ::testing::Test {
 protected:
  KnownIncident added(const std::string& name, std::int64_t now = 1000) {
    KnownIncident incident;
    incident.name = name;
    incident.anomaly_id = "first of " + name;
    incident.last_anomaly = "last of " + name;
    incident.stream = {"client", "policy", "type", "schedule", "daily", "app", "disk"};
    incident.has_stream = true;
    incident.first_time = 10;
    incident.last_time = 20;
    incident.severity = Severity::kMajor;
    incident.cause = CauseKind::kMassDeletion;
    incident.records = 3;
    book.put_incident(incident, now);
    return incident;
  }
  static std::vector<std::string> names(const std::vector<KnownIncident>& incidents) {
    std::vector<std::string> all;
    for (const KnownIncident& incident : incidents) all.push_back(incident.name);
    return all;
  }

  test::ScratchDir directory;
  StateDatabase state{directory("s.db")};
  IncidentBook book{state};
};

TEST_F(IncidentBookTest, GivesBackAnIncidentAsItWasPut) {
  EXPECT_FALSE(book.find_incident("i"));
  KnownIncident put = added("i");
  EXPECT_GT(put.id, 0);
  const KnownIncident got = book.find_incident("i").value();
  EXPECT_EQ(got.id, put.id);
  EXPECT_EQ(got.anomaly_id, "first of i");
  EXPECT_EQ(got.last_anomaly, "last of i");
  EXPECT_EQ(got.stream, put.stream);
  EXPECT_TRUE(got.has_stream);
  EXPECT_EQ(got.first_time, 10);
  EXPECT_EQ(got.last_time, 20);
  EXPECT_EQ(got.severity, Severity::kMajor);
  EXPECT_EQ(got.cause, CauseKind::kMassDeletion);
  EXPECT_EQ(got.records, 3);
  EXPECT_EQ(got.until, 0);
  EXPECT_TRUE(got.is_open());
  put.cause.reset();
  put.last_time = 30;
  put.end = IncidentEnd::kAdopted;
  put.until = 25;
  const std::int64_t id = put.id;
  book.put_incident(put, 2000);
  EXPECT_EQ(put.id, id);
  const KnownIncident again = book.find_incident("i").value();
  EXPECT_EQ(again.id, id);
  EXPECT_FALSE(again.cause);
  EXPECT_EQ(again.last_time, 30);
  EXPECT_EQ(again.end, IncidentEnd::kAdopted);
  EXPECT_EQ(again.until, 25);
  EXPECT_EQ(test::count(state.handle(), "incident"), "1");
}

TEST_F(IncidentBookTest, ListsWhatIsOpenAndWhatEndedHow) {
  const std::int64_t usual = added("usual").id;
  const std::int64_t people = added("people").id;
  added("open");
  book.set_end(usual, IncidentEnd::kUsualBackup, 50, 1000);
  book.set_end(people, IncidentEnd::kFalsePositive, 60, 1000);
  EXPECT_THAT(names(book.open_incidents()), ElementsAre("open"));
  EXPECT_THAT(names(book.ended_by(IncidentEnd::kUsualBackup)), ElementsAre("usual"));
  EXPECT_THAT(names(book.ended_by(IncidentEnd::kFalsePositive)), ElementsAre("people"));
  EXPECT_THAT(names(book.ended_by(IncidentEnd::kAdopted)), IsEmpty());
  EXPECT_EQ(book.find_incident("people")->until, 60);
  book.set_end(people, IncidentEnd::kNone, 0, 1000);
  EXPECT_THAT(names(book.open_incidents()), ElementsAre("people", "open"));
}

TEST_F(IncidentBookTest, KnowsWhenSomethingHappenedLast) {
  added("old", 1000);
  const std::int64_t id = added("new", 2000).id;
  EXPECT_THAT(names(book.unchanged_since(1000)), IsEmpty());
  EXPECT_THAT(names(book.unchanged_since(1001)), ElementsAre("old"));
  book.set_end(id, IncidentEnd::kUsualBackup, 50, 3000);
  EXPECT_THAT(names(book.unchanged_since(3000)), ElementsAre("old"));
}

TEST_F(IncidentBookTest, ARecordIsDoneWhenNothingOfItWaitsAndUntilItIsMarked) {
  const std::int64_t id = added("i").id;
  EXPECT_FALSE(book.knows_record("r"));
  EXPECT_EQ(book.incident_of_record("r"), "");
  book.add_record("r", id, 0);
  book.add_record("s", id, 1);
  book.add_record("t", id, 0);
  EXPECT_TRUE(book.knows_record("r"));
  EXPECT_EQ(book.incident_of_record("r"), "i");
  EXPECT_THAT(book.done_records(10), ElementsAre("r", "t"));
  EXPECT_THAT(book.done_records(1), ElementsAre("r"));
  book.set_marked("r", true);
  EXPECT_THAT(book.done_records(10), ElementsAre("t"));
  EXPECT_TRUE(book.knows_record("r"));
  book.set_marked("r", false);
  EXPECT_THAT(book.done_records(10), ElementsAre("r", "t"));
  test::query(state.handle(), "UPDATE record SET pending = pending - 1 WHERE anomaly_id = 's'");
  EXPECT_THAT(book.done_records(10), ElementsAre("r", "s", "t"));
}

TEST_F(IncidentBookTest, WritesNothingForARecordThatIsNotMarkedAnyway) {
  book.add_record("r", added("i").id, 1);
  const std::int64_t before = sqlite3_total_changes64(state.handle());
  book.set_marked("r", false);
  EXPECT_EQ(sqlite3_total_changes64(state.handle()), before);
}

TEST_F(IncidentBookTest, ForgetsAnIncidentWithItsRecordsAndWhoKnewOfIt) {
  const std::int64_t id = added("i").id;
  const std::int64_t other = added("other").id;
  book.add_record("r", id, 0);
  book.add_record("s", other, 0);
  book.set_told(id, kMail, Severity::kCritical);
  book.set_told(other, kMail, Severity::kWarning);
  book.forget(id);
  EXPECT_FALSE(book.find_incident("i"));
  EXPECT_FALSE(book.knows_record("r"));
  EXPECT_EQ(book.told(id, kMail), Severity::kNone);
  EXPECT_TRUE(book.find_incident("other"));
  EXPECT_TRUE(book.knows_record("s"));
  EXPECT_EQ(book.told(other, kMail), Severity::kWarning);
  EXPECT_NE(added("i").id, id);  // messages that are out name the former one
}

TEST_F(IncidentBookTest, KeepsWhatSomethingStillWaitsFor) {
  const std::int64_t id = added("i").id;
  DeliveryQueue queue(state);
  const std::int64_t message = queue.add_message(id, "r", Severity::kWarning, 5, {}, "{}");
  queue.add_delivery({message, kMail, Kind::kBegin, id, Severity::kWarning, 5, 0});
  book.forget(id);
  EXPECT_TRUE(book.find_incident("i"));
}

TEST_F(IncidentBookTest, KnowsWhoKnowsOfItAndHowSevere) {
  const std::int64_t id = added("i").id;
  EXPECT_EQ(book.told(id, kMail), Severity::kNone);
  book.set_told(id, kMail, Severity::kWarning);
  book.set_told(id, kMail, Severity::kCritical);
  book.set_told(id, kSyslog, Severity::kMajor);
  EXPECT_EQ(book.told(id, kMail), Severity::kCritical);
  EXPECT_EQ(book.told(id, kSyslog), Severity::kMajor);
  book.forget_told(id);
  EXPECT_EQ(book.told(id, kMail), Severity::kNone);
  EXPECT_EQ(book.told(id, kSyslog), Severity::kNone);
}

TEST_F(IncidentBookTest, StoresEachThingInItsColumn) {
  KnownIncident incident = added("i", 1000);
  const auto columns = [&](const std::string& names) {
    const test::SqlRow row =
        test::query(state.handle(), "SELECT " + names + " FROM incident").at(0);
    std::string text;
    for (const std::string& value : row) text += (text.empty() ? "" : "|") + value;
    return text;
  };
  const std::string all =
      "id, name, anomaly_id, last_anomaly, client, policy, policy_type, schedule_type, "
      "schedule_name, application_type, destination, has_stream, first_time, last_time, severity, "
      "cause, records, until, is_open, ended_by, changed";
  const std::string id = std::to_string(incident.id);
  EXPECT_EQ(columns(all), id + "|i|first of i|last of i|client|policy|type|schedule|daily|app|disk|"
                               "1|10|20|2|mass_deletion|3|0|1|0|1000");
  incident = {.id = incident.id,
              .name = "j",
              .anomaly_id = "first",
              .last_anomaly = "last",
              .stream = {},
              .has_stream = false,
              .first_time = 11,
              .last_time = 22,
              .severity = Severity::kCritical,
              .cause = std::nullopt,
              .records = 4,
              .until = 23,
              .end = IncidentEnd::kAdopted};
  book.put_incident(incident, 2000);
  EXPECT_EQ(columns(all), id + "|j|first|last||||||||0|11|22|3||4|23|0|2|2000");
  const std::string end = "until, is_open, ended_by, changed";
  book.set_end(incident.id, IncidentEnd::kFalsePositive, 24, 3000);
  EXPECT_EQ(columns(end), "24|0|3|3000");
  book.set_end(incident.id, IncidentEnd::kNone, 0, 4000);
  EXPECT_EQ(columns(end), "0|1|0|4000");
}

TEST_F(IncidentBookTest, ChangesNoOtherIncident) {
  KnownIncident first = added("first", 1000);
  added("second", 1001);
  first.records = 17;
  book.put_incident(first, 2000);
  book.set_end(first.id, IncidentEnd::kUsualBackup, 5, 3000);
  EXPECT_EQ(book.find_incident("second")->records, 3);
  EXPECT_TRUE(book.find_incident("second")->is_open());
  EXPECT_THAT(names(book.unchanged_since(1002)), ElementsAre("second"));
}

TEST_F(IncidentBookTest, ListsIncidentsInTheOrderInWhichTheyBegan) {
  for (const char* name : {"b", "a", "c"}) added(name);
  EXPECT_THAT(names(book.open_incidents()), ElementsAre("b", "a", "c"));
  EXPECT_THAT(names(book.unchanged_since(1001)), ElementsAre("b", "a", "c"));
  for (std::int64_t id = 1; id <= 3; ++id) {
    book.set_end(id, IncidentEnd::kUsualBackup, 50, 1000);
  }
  EXPECT_THAT(names(book.ended_by(IncidentEnd::kUsualBackup)), ElementsAre("b", "a", "c"));
}

TEST_F(IncidentBookTest, ARecordKnowsItsIncidentAndHowManyDeliveriesItNeeds) {
  const std::int64_t first = added("first").id;
  const std::int64_t second = added("second").id;
  book.add_record("r", first, 2);
  book.add_record("s", second, 0);
  EXPECT_EQ(
      test::query(state.handle(), "SELECT anomaly_id, incident, pending, is_marked FROM record"),
      (std::vector<test::SqlRow>{{"r", std::to_string(first), "2", "0"},
                                 {"s", std::to_string(second), "0", "0"}}));
  EXPECT_EQ(book.incident_of_record("s"), "second");
  test::query(state.handle(), "UPDATE record SET pending = -1 WHERE anomaly_id = 'r'");
  EXPECT_THAT(book.done_records(10), ElementsAre("r", "s"));
  book.set_marked("r", true);
  EXPECT_THAT(book.done_records(10), ElementsAre("s")) << "the other one is not marked";
}

}  // namespace
}  // namespace corvane::alert
