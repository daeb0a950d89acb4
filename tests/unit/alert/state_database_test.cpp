#include "companions/alert/state_database.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <memory>
#include <stdexcept>

#include "companions/alert/channel/message.h"
#include "companions/alert/incident/incident_book.h"
#include "tests/unit/alert/alert_world.h"

namespace corvane::alert {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// As the version before the numbered ones made the file.
constexpr std::array kFormerSchema{
    "CREATE TABLE meta (name TEXT PRIMARY KEY NOT NULL, value NOT NULL)",
    "CREATE TABLE record (anomaly_id TEXT PRIMARY KEY NOT NULL, pending INT NOT NULL) "
    "WITHOUT ROWID",
    "CREATE INDEX record_done ON record (pending) WHERE pending <= 0",
    "CREATE TABLE incident (id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT UNIQUE NOT NULL, "
    "anomaly_id TEXT NOT NULL, last_anomaly TEXT NOT NULL, client TEXT NOT NULL, policy TEXT NOT "
    "NULL, policy_type TEXT NOT NULL, schedule_type TEXT NOT NULL, schedule_name TEXT NOT NULL, "
    "application_type TEXT NOT NULL, destination TEXT NOT NULL, has_stream INT NOT NULL, "
    "first_time INT NOT NULL, last_time INT NOT NULL, severity INT NOT NULL, cause TEXT NOT NULL, "
    "records INT NOT NULL, until INT NOT NULL, is_open INT NOT NULL, changed INT NOT NULL)",
    "CREATE INDEX incident_open ON incident (id) WHERE is_open = 1",
    "CREATE INDEX incident_closed ON incident (changed) WHERE is_open = 0",
    "CREATE TABLE message (id INTEGER PRIMARY KEY AUTOINCREMENT, incident INT NOT NULL, record "
    "TEXT NOT NULL, severity INT NOT NULL, created INT NOT NULL, subject TEXT NOT NULL, body TEXT "
    "NOT NULL, details TEXT NOT NULL)",
    "CREATE INDEX message_created ON message (created)",
    "CREATE TABLE delivery (message INT NOT NULL, channel TEXT NOT NULL, kind INT NOT NULL, "
    "incident INT NOT NULL, severity INT NOT NULL, state INT NOT NULL, created INT NOT NULL, held "
    "INT NOT NULL, not_before INT NOT NULL, attempts INT NOT NULL, failing_since INT NOT NULL, "
    "reason TEXT NOT NULL, summary INT NOT NULL, PRIMARY KEY (message, channel)) WITHOUT ROWID",
    "CREATE INDEX delivery_open ON delivery (channel, state, attempts, message)",
    "CREATE INDEX delivery_incident ON delivery (incident, channel, state)",
    "CREATE INDEX delivery_summary ON delivery (summary) WHERE summary <> 0",
    "CREATE INDEX delivery_failing ON delivery (channel, failing_since) WHERE failing_since > 0",
    "CREATE INDEX delivery_recent ON delivery (channel, kind, held, created)",
    "CREATE TABLE told (incident INT NOT NULL, channel TEXT NOT NULL, severity INT NOT NULL, "
    "PRIMARY KEY (incident, channel)) WITHOUT ROWID",
    "CREATE TABLE channel (name TEXT PRIMARY KEY NOT NULL, failures INT NOT NULL, paused_until "
    "INT NOT NULL, failing_since INT NOT NULL, last_error TEXT NOT NULL, last_success INT NOT "
    "NULL, taken INT NOT NULL) WITHOUT ROWID",
    "INSERT INTO meta VALUES ('tag', 'cafe0123')",
};

// Where a former version stood when it was replaced by this one.
class FormerFile : public AlertWorld {
 protected:
  FormerFile() {
    intake_.reset();
    state_.reset();
    for (const char* file : {"state.db", "state.db-wal", "state.db-shm"}) {
      std::remove(directory_(file).c_str());
    }
    former_.emplace(directory_("state.db"), Connection::Access::kCreate);
    for (const char* statement : kFormerSchema) former_->execute(statement);
  }

  void run(const std::string& statement) { former_->execute(statement.c_str()); }
  // One record each: its last is that of `client`, at kFirst.
  void incident(int id, const std::string& client, std::int64_t until, bool is_open,
                std::int64_t changed) {
    const std::string name = "'incident_" + client + "'";
    const std::string record = "'anomaly_" + client + "'";
    run("INSERT INTO incident VALUES (" + std::to_string(id) + ", " + name + ", " + record + ", " +
        record + ", '" + client + "', 'nightly', 'STANDARD', 'FULL', 'daily', 'FS', 'disk', 1, " +
        std::to_string(kFirst) + ", " + std::to_string(kFirst) + ", 2, 'encryption', 1, " +
        std::to_string(until) + ", " + std::to_string(int{is_open}) + ", " +
        std::to_string(changed) + ")");
    anomaly("anomaly_" + client, details_of(client, "incident_" + client, 2, kFirst));
  }
  void processed(const std::string& client) { mark_processed(*detection_, "anomaly_" + client); }
  KnownIncident found(const std::string& client) {
    return IncidentBook(*state_).find_incident("incident_" + client).value_or(KnownIncident{});
  }

  std::optional<Connection> former_;
};

TEST_F(FormerFile, KeepsItsIncidentsAndSaysWhyTheyAreResolved) {
  incident(1, "open", 0, true, kFirst + 10);
  incident(2, "usual", kFirst + kDay, false, kFirst + kDay + 600);
  incident(3, "people", kFirst + 500, false, kFirst + 500);
  incident(4, "age", 0, false, kFirst + 90 * kDay);
  // People closed it; a record came later.
  incident(5, "later", kFirst - 500, false, kFirst + 700);
  restart();
  EXPECT_EQ(test::query_one(state_->handle(), "PRAGMA user_version"), "1");
  EXPECT_EQ(found("open").end, IncidentEnd::kNone);
  EXPECT_EQ(found("usual").end, IncidentEnd::kUsualBackup);
  EXPECT_EQ(found("usual").until, kFirst + kDay);
  EXPECT_EQ(found("people").end, IncidentEnd::kFalsePositive);
  EXPECT_EQ(found("age").end, IncidentEnd::kNone);  // that nothing happens ends nothing any more
  EXPECT_EQ(found("later").end, IncidentEnd::kFalsePositive);
  const KnownIncident open = found("open");
  EXPECT_EQ(open.id, 1);
  EXPECT_EQ(open.stream.client, "open");
  EXPECT_EQ(open.stream.destination, "disk");
  EXPECT_EQ(open.severity, Severity::kMajor);
  EXPECT_EQ(open.cause, CauseKind::kEncryption);
  EXPECT_EQ(open.records, 1);
  std::vector<std::string> names;
  for (const KnownIncident& one : IncidentBook(*state_).open_incidents()) names.push_back(one.name);
  EXPECT_THAT(names, ElementsAre("incident_open", "incident_age"));
  EXPECT_EQ(state_->tag(), "cafe0123");
}

TEST_F(FormerFile, WhatWaitsIsToldAndItsRecordIsMarked) {
  incident(7, "c", 0, true, kFirst);
  run("INSERT INTO message VALUES (3, 7, 'anomaly_c', 2, 5, 'former words', 'b', '{}')");
  run("INSERT INTO delivery VALUES (3, 'mail', 1, 7, 2, 0, 5, 0, 0, 0, 0, '', 0)");
  run("INSERT INTO delivery VALUES (3, 'web', 0, 7, 2, 2, 5, 0, 0, 1, 0, '', 0)");
  run("INSERT INTO record VALUES ('anomaly_c', 1)");
  run("INSERT INTO told VALUES (7, 'mail', 2)");
  run("INSERT INTO channel VALUES ('web', 0, 0, 0, '', 9, 41)");
  restart();
  EXPECT_EQ(IncidentBook(*state_).incident_of_record("anomaly_c"), "incident_c");
  EXPECT_EQ(IncidentBook(*state_).told(7, kMail), Severity::kMajor);
  EXPECT_EQ(pass().records, 0U);
  EXPECT_THAT(take(kMail), ElementsAre("begin c 2"));
  EXPECT_EQ(taken_.back().subject, "former words");
  EXPECT_EQ(taken_.back().alert, "cafe0123-5-3");
  EXPECT_THAT(take(kWeb), IsEmpty());
  EXPECT_EQ(pass().processed, 1U);
  EXPECT_EQ(Outbox(*state_).status().at(1).taken, 41);
}

TEST_F(FormerFile, AnIncidentThatWasClosedByAgeEndsWithTheUsualBackupThatCameSince) {
  usual_backup("age", kFirst + 100 * kDay);
  incident(4, "age", 0, false, kFirst + 90 * kDay);
  processed("age");
  run("INSERT INTO meta VALUES ('history', 1)");  // looked at when the incident counted as resolved
  restart();
  EXPECT_EQ(pass().ended, 1U);
  EXPECT_EQ(found("age").until, kFirst + 100 * kDay);
  EXPECT_THAT(take(kMail), IsEmpty());
}

TEST_F(FormerFile, FeedbackFindsTheIncidentOfARecordThatWasDone) {
  incident(1, "c", 0, true, kFirst);
  anomaly("anomaly_c2", details_of("c", "incident_c", 2, kFirst + kDay));
  for (const char* one : {"c", "c2"}) processed(one);
  feedback("anomaly_c2", 1);
  restart();
  pass();
  EXPECT_EQ(found("c").end, IncidentEnd::kFalsePositive);
  feedback("anomaly_c2", 0);
  pass();
  EXPECT_EQ(found("c").end, IncidentEnd::kNone);
  // The first record's name tells the incident when the record itself was purged.
  sql("DELETE FROM ANOMALY_DATA");
  feedback("anomaly_c", 1);
  pass();
  EXPECT_EQ(found("c").end, IncidentEnd::kFalsePositive);
  EXPECT_EQ(state_count("record"), "0");
}

TEST_F(FormerFile, ARecordBelongsToTheLatestIncidentThatWasSentOfIt) {
  for (const int incident : {3, 5, 4}) {
    run("INSERT INTO message VALUES (NULL, " + std::to_string(incident) +
        ", 'r', 2, 5, 's', 'b', '{}')");
  }
  run("INSERT INTO message VALUES (NULL, 9, 'other', 2, 5, 's', 'b', '{}')");
  run("INSERT INTO record VALUES ('r', 1), ('without', 0)");
  restart();
  EXPECT_EQ(
      test::query(state_->handle(), "SELECT anomaly_id, pending, incident, is_marked FROM record"),
      (std::vector<test::SqlRow>{{"r", "1", "5", "0"}, {"without", "0", "0", "0"}}));
}

TEST_F(FormerFile, WhatEndedAtTheTimeOfItsLastRecordWasEndedByPeople) {
  incident(1, "at", kFirst, false, kFirst + 700);
  incident(2, "after", kFirst + 1, false, kFirst + 700);
  restart();
  EXPECT_EQ(found("at").end, IncidentEnd::kFalsePositive);
  EXPECT_EQ(found("after").end, IncidentEnd::kUsualBackup);
  EXPECT_EQ(state_->number_of("history"), 0);
}

TEST_F(FormerFile, ItsHistoryIsReadAgain) {
  run("INSERT INTO meta VALUES ('history', 17), ('other', 18)");
  restart();
  EXPECT_EQ(state_->number_of("history"), 0);
  EXPECT_EQ(state_->number_of("other"), 18);
}

TEST_F(FormerFile, IsBroughtUpToDateOnce) {
  incident(1, "people", kFirst + 500, false, kFirst + 500);
  restart();
  // What a later program's upgrade would do again if the number were not kept.
  test::query(state_->handle(), "UPDATE incident SET ended_by = 2, is_open = 0");
  restart();
  EXPECT_EQ(found("people").end, IncidentEnd::kAdopted);
}

TEST_F(FormerFile, IsOpenedAsItIsWhereNothingIsToBeMade) {
  { const StateDatabase looking(directory_("state.db"), false); }
  EXPECT_EQ(former_->number("PRAGMA user_version"), 0);
  EXPECT_THROW(StateDatabase(directory_("none.db"), false), QueryError);
}

TEST(StateDatabase, OfALaterVersionIsRefused) {
  const test::ScratchDir directory;
  StateDatabase(directory("s.db")).execute("PRAGMA user_version = 2");
  for (const bool create : {true, false}) {
    try {
      const StateDatabase later(directory("s.db"), create);
      FAIL() << create;
    } catch (const std::runtime_error& error) {
      EXPECT_THAT(error.what(), HasSubstr("s.db is version 2, newer than this program supports"));
    }
  }
}

// The statements that made the tables and indexes, by name.
std::map<std::string, std::string> schema_of(const std::string& path) {
  std::map<std::string, std::string> schema;
  for (const test::SqlRow& row :
       test::query(StateDatabase(path).handle(),
                   "SELECT name, sql FROM sqlite_schema WHERE name NOT LIKE 'sqlite_%'")) {
    schema[row[0]] = row[1];
  }
  return schema;
}

TEST(StateDatabase, NewAndUpgradedFilesHaveTheSameTables) {
  const test::ScratchDir directory;
  {
    Connection former(directory("former.db"), Connection::Access::kCreate);
    for (const char* statement : kFormerSchema) former.execute(statement);
  }
  EXPECT_EQ(schema_of(directory("new.db")), schema_of(directory("former.db")));
}

TEST(StateDatabase, HasItsTablesAndIndexes) {
  const test::ScratchDir directory;
  std::map<std::string, std::string> expected;
  for (const std::string statement : kFormerSchema) {
    if (!statement.starts_with("CREATE ")) continue;
    const std::size_t name = statement.find(' ', 7) + 1;
    expected[statement.substr(name, statement.find(' ', name) - name)] = statement;
  }
  // What the upgrade has made of it.
  expected.erase("incident_closed");
  std::string& incident = expected["incident"];
  incident.insert(incident.size() - 1, ", ended_by INT NOT NULL DEFAULT 0");
  std::string& record = expected["record"];
  record.insert(record.rfind(')'),
                ", incident INT NOT NULL DEFAULT 0, is_marked INT NOT NULL DEFAULT 0");
  expected["incident_changed"] = "CREATE INDEX incident_changed ON incident (changed)";
  expected["incident_ended"] =
      "CREATE INDEX incident_ended ON incident (ended_by) WHERE is_open = 0";
  expected["record_done"] =
      "CREATE INDEX record_done ON record (pending) WHERE pending <= 0 AND is_marked = 0";
  expected["record_incident"] = "CREATE INDEX record_incident ON record (incident)";
  EXPECT_EQ(schema_of(directory("s.db")), expected);
}

// After a power failure the last messages may be sent again, and nothing is damaged.
TEST(StateDatabase, IsSyncedAtEachCheckpoint) {
  const test::ScratchDir directory;
  StateDatabase state(directory("s.db"));
  EXPECT_EQ(state.number("PRAGMA synchronous"), 1) << "NORMAL";
  EXPECT_EQ(test::query_one(state.handle(), "PRAGMA journal_mode"), "wal");
  StateDatabase only_opened(directory("s.db"), false);
  EXPECT_GE(only_opened.number("PRAGMA synchronous"), 1);
}

TEST(StateDatabase, LeavesNothingHalfMadeBehind) {
  const test::ScratchDir directory;
  {
    Connection broken(directory("s.db"), Connection::Access::kCreate);
    broken.execute("CREATE TABLE incident_changed (x)");
  }
  EXPECT_THROW(StateDatabase(directory("s.db")), QueryError);
  Connection after(directory("s.db"), Connection::Access::kRead);
  EXPECT_EQ(test::count(after.handle(), "sqlite_schema"), "1");
  EXPECT_EQ(after.number("PRAGMA user_version"), 0);
}

TEST(StateDatabase, KeepsNumbersAndATagOfItsOwn) {
  const test::ScratchDir directory;
  StateDatabase state(directory("s.db"));
  EXPECT_EQ(state.number_of("n"), 0);
  state.set_number("n", 5);
  state.set_number("n", 7);
  EXPECT_EQ(state.number_of("n"), 7);
  EXPECT_THAT(state.tag(), ::testing::MatchesRegex("[0-9a-f]{8}"));
  EXPECT_EQ(state.number_of("m"), 0);
  EXPECT_EQ(StateDatabase(directory("s.db")).tag(), state.tag());
  EXPECT_NE(StateDatabase(directory("other.db")).tag(), state.tag());
}

TEST(TypedSql, PutsTheNumbersOfStatesAndKinds) {
  EXPECT_EQ(typed_sql("a = ? AND s IN ({waiting}, {folded}, {delivered}, {given_up}, {replaced})"),
            "a = ? AND s IN (0, 1, 2, 3, 4)");
  EXPECT_EQ(typed_sql("{report}{begin}{rise}{end}{summary}{test}"), "012345");
  EXPECT_EQ(typed_sql(""), "");
  EXPECT_EQ(typed_sql("SELECT 1"), "SELECT 1");
}

TEST(TypedSql, RefusesWhatItDoesNotKnow) {
  for (const char* sql : {"{}", "{Waiting}", "{waiting", "{ waiting}", "x {nothing} y"}) {
    EXPECT_THROW(typed_sql(sql), std::logic_error) << sql;
  }
}

}  // namespace
}  // namespace corvane::alert
