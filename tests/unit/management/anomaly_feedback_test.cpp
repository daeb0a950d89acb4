#include <stdexcept>

#include "platform/c_handles.h"
#include "tests/unit/management/service_world.h"

namespace corvane::test {
namespace {

using Record = ManagementService::FeedbackRecord;

class Feedback : public ServiceTest {
 protected:
  // Captures what the server answers.
  void capture(const std::string& body, long status = 200) {
    fake.answers.push_back({.result = 0, .status = status, .body = body});
    service().capture_anomaly_feedback();
  }

  std::vector<SqlRow> stored() {
    return query(db, "SELECT * FROM ANOMALY_DATA_FEEDBACK ORDER BY ANOMALY_UNIQUE_ID");
  }

  // The service's own lines.
  std::vector<LogLine> own() { return log_of(kProgram); }

  std::vector<Record> parse(const std::string& response) {
    std::vector<Record> records;
    service().parse_anomaly_feedback(response, records);
    return records;
  }

  Record flatten(const std::string& json) {
    const JsonPtr element(json_loads(json.c_str(), 0, nullptr));
    Record record;
    service().parse_anomaly_feedback_data_attributes(element.get(), record);
    return record;
  }
};

std::string feedback(const std::string& id, const std::string& text) {
  return R"({"type": "anomalyFeedback", "id": ")" + id + R"(", "attributes": {"feedback": ")" +
         text + R"("}})";
}

std::string data(const std::string& elements) { return R"({"data": [)" + elements + "]}"; }

const std::string kNowText = std::to_string(kNow);

// --- The request ---

TEST_F(Feedback, IsAskedForInOneGetWithoutQueryAtTheMasterServer) {
  service().m_master_server = "other.example.com";
  std::string response = "old";
  fake.answers.push_back({.result = 0, .status = 200, .body = "new"});
  EXPECT_EQ(service().get_anomaly_feedback_response(response), 0);
  EXPECT_EQ(response, "new");
  ASSERT_EQ(fake.requests.size(), 1U);
  EXPECT_EQ(fake.requests[0].server, "other.example.com");
  EXPECT_EQ(fake.requests[0].method, "GET");
  EXPECT_EQ(fake.requests[0].path, "corvane/wui/anomalies");
  EXPECT_EQ(fake.requests[0].body, "");
  EXPECT_TRUE(own().empty());
}

TEST_F(Feedback, RequestThatFailsIsLoggedWithItsCode) {
  fake.answers.push_back({.result = 28, .status = 0, .body = ""});
  fake.answers.push_back({.result = 0, .status = 503, .body = "busy"});
  std::string response = "old";
  EXPECT_EQ(service().get_anomaly_feedback_response(response), 1);
  EXPECT_EQ(service().get_anomaly_feedback_response(response), 1);
  EXPECT_EQ(response, "old");
  EXPECT_EQ(
      own(),
      (std::vector<LogLine>{
          {16, kProgram, "Failed to get user feedback response from API. API return code - 28"},
          {16, kProgram, "Failed to get user feedback response from API. API return code - 503"}}));
}

TEST_F(Feedback, ExceptionDuringTheRequestIsLogged) {
  fake.handler = [](const corvane::fake::HttpRequest&) -> corvane::fake::HttpAnswer { throw 42; };
  std::string response = "old";
  EXPECT_EQ(service().get_anomaly_feedback_response(response), 1);
  EXPECT_EQ(response, "old");
  EXPECT_EQ(
      own(),
      (std::vector<LogLine>{{16, kProgram, "Failed to get user feedback response from API"}}));
}

TEST_F(Feedback, RequestThatFailsWritesNothing) {
  capture(data(feedback("A1", "FALSE_POSITIVE")), 500);
  EXPECT_TRUE(stored().empty());
  EXPECT_EQ(own().size(), 1U);
}

TEST_F(Feedback, RefusedHostCertificateIsRetriedWithTheServiceCertificate) {
  fake.answers.push_back({.result = 0, .status = 401, .body = ""});
  capture(data(feedback("A1", "FALSE_POSITIVE")));
  EXPECT_EQ(fake.requests.size(), 2U);
  EXPECT_EQ(fake.requests.at(1).certificate, CERT_TYPE_SERVICE);
  EXPECT_EQ(stored().size(), 1U);
}

// --- Parsing ---

TEST_F(Feedback, EachElementBecomesARecordWithItsAttributesBesideItsMembers) {
  EXPECT_EQ(parse(R"({"meta": {}, "data": [
      {"type": "t", "id": "A1", "attributes": {"feedback": "NONE", "n": 7}, "links": {}},
      {"id": 2}], "data2": [{"id": 3}]})"),
            (std::vector<Record>{
                {{"type", "t"}, {"id", "A1"}, {"feedback", "NONE"}, {"n", "7"}, {"links", ""}},
                {{"id", "2"}}}));
}

TEST_F(Feedback, RecordsAreAppended) {
  std::vector<Record> records{{{"id", "first"}}};
  service().parse_anomaly_feedback(data(R"({"id": "second"})"), records);
  EXPECT_EQ(records, (std::vector<Record>{{{"id", "first"}}, {{"id", "second"}}}));
}

TEST_F(Feedback, ElementThatIsNoObjectGivesAnEmptyRecord) {
  EXPECT_EQ(parse(data(R"(null, 7, [{"id": 1}], {"id": 2})")),
            (std::vector<Record>{{}, {}, {}, {{"id", "2"}}}));
}

TEST_F(Feedback, MissingOrWrongDataOrARootArrayHasNoRecords) {
  for (const char* text :
       {"{}", R"({"data": {"id": 1}})", R"({"data": null})", R"([{"data": [1]}])"}) {
    EXPECT_TRUE(parse(text).empty()) << text;
  }
}

TEST_F(Feedback, TextThatIsNoJsonThrowsTheImageParsersMessage) {
  try {
    parse("<html>");
    FAIL() << "nothing thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "JSON parsing failed for qpimagelist image.");
  }
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(Feedback, NullPointerThrowsTheFragmentsMessage) {
  Record record;
  try {
    service().parse_anomaly_feedback_data_attributes(nullptr, record);
    FAIL() << "nothing thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "JSON parsing failed for qpimagelist frags.");
  }
}

TEST_F(Feedback, ValuesBecomeTextByTheCommonRule) {
  EXPECT_EQ(flatten(R"({"s": "x", "i": -3, "r": 1234567.0, "t": true, "f": false, "n": null,
                       "o": {"a": 1}, "l": [1]})"),
            (Record{{"s", "x"},
                    {"i", "-3"},
                    {"r", "1.23457e+06"},
                    {"t", "1"},
                    {"f", "0"},
                    {"n", ""},
                    {"o", ""},
                    {"l", ""}}));
}

TEST_F(Feedback, OfANameInsideAndOutsideTheAttributesTheFirstInTheElementCounts) {
  EXPECT_EQ(flatten(R"({"feedback": "outer", "attributes": {"feedback": "inner"}})"),
            (Record{{"feedback", "outer"}}));
  EXPECT_EQ(flatten(R"({"attributes": {"feedback": "inner"}, "feedback": "outer"})"),
            (Record{{"feedback", "inner"}}));
}

TEST_F(Feedback, AttributesOfAttributesAreFlattenedTooAndOtherTypesAddNothing) {
  EXPECT_EQ(flatten(R"({"attributes": {"a": 1, "attributes": {"b": 2, "attributes": [3]}}})"),
            (Record{{"a", "1"}, {"b", "2"}}));
  EXPECT_TRUE(flatten(R"({"attributes": null})").empty());
}

// --- The whole capture ---

TEST_F(Feedback, FalsePositiveIsStoredAsOneAndAnythingElseAsZero) {
  capture(data(feedback("A1", "FALSE_POSITIVE") + "," + feedback("A2", "CONFIRMED") + "," +
               feedback("A3", "false_positive") + "," + feedback("A4", "") + "," +
               R"({"type": "anomalyFeedback", "id": "A5"})"));
  EXPECT_EQ(stored(), (std::vector<SqlRow>{{"A1", "1", kNowText},
                                           {"A2", "0", kNowText},
                                           {"A3", "0", kNowText},
                                           {"A4", "0", kNowText},
                                           {"A5", "0", kNowText}}));
  EXPECT_TRUE(own().empty());
}

TEST_F(Feedback, EachRecordIsWrittenByOneInsertInOrderWithTheTimeOfTheCapture) {
  fake.handler = [this](const corvane::fake::HttpRequest&) {
    fake.now += 60;  // the request takes a minute
    return corvane::fake::HttpAnswer{
        .result = 0,
        .status = 200,
        .body = data(feedback("B", "FALSE_POSITIVE") + "," + feedback("A", "NONE"))};
  };
  SqlRecorder sql(db);
  service().capture_anomaly_feedback();
  EXPECT_EQ(sql.texts,
            (std::vector<std::string>(2,
                                      "INSERT OR REPLACE INTO ANOMALY_DATA_FEEDBACK VALUES ( ?, "
                                      "?, ? );")));
  EXPECT_EQ(sql.expanded,
            (std::vector<std::string>{
                "INSERT OR REPLACE INTO ANOMALY_DATA_FEEDBACK VALUES ( 'B', 1, 1700000060 );",
                "INSERT OR REPLACE INTO ANOMALY_DATA_FEEDBACK VALUES ( 'A', 0, 1700000060 );"}));
}

TEST_F(Feedback, IdThatIsANumberIsItsDecimalText) {
  capture(data(R"({"type": "anomalyFeedback", "id": 4711, "feedback": "FALSE_POSITIVE"})"));
  EXPECT_EQ(query(db,
                  "SELECT ANOMALY_UNIQUE_ID, typeof(ANOMALY_UNIQUE_ID), FEEDBACK "
                  "FROM ANOMALY_DATA_FEEDBACK"),
            (std::vector<SqlRow>{{"4711", "text", "1"}}));
}

TEST_F(Feedback, RecordsOfOtherTypesOrWithoutTypeOrIdAreSkipped) {
  capture(data(R"({"type": "anomaly", "id": "A1"}, {"type": "anomalyFeedback"},
                  {"id": "A2"}, {"type": "anomalyfeedback", "id": "A3"}, null,
                  {"type": "anomalyFeedback", "id": "A4"})"));
  EXPECT_EQ(stored(), (std::vector<SqlRow>{{"A4", "0", kNowText}}));
  EXPECT_TRUE(own().empty());
}

TEST_F(Feedback, ResponseWithoutDataOrWithDataAsAnObjectWritesAndLogsNothing) {
  capture("{}");
  capture(R"({"data": )" + feedback("A1", "FALSE_POSITIVE") + "}");
  EXPECT_TRUE(stored().empty());
  EXPECT_TRUE(own().empty());
}

TEST_F(Feedback, LaterCaptureOverwritesFeedbackAndRenewsItsTime) {
  capture(data(feedback("A1", "FALSE_POSITIVE") + "," + feedback("A2", "FALSE_POSITIVE")));
  fake.now += 900;
  capture(data(feedback("A1", "NONE")));
  EXPECT_EQ(stored(), (std::vector<SqlRow>{{"A1", "0", "1700000900"}, {"A2", "1", kNowText}}));
}

TEST_F(Feedback, ResponseThatIsNoJsonIsLoggedWithItsWholeText) {
  capture("half { 100%s");
  EXPECT_EQ(own(), (std::vector<LogLine>{
                       {16, kProgram, "Failed to parse user feedback response half { 100%s"}}));
  EXPECT_TRUE(stored().empty());
}

TEST_F(Feedback, RecordThatTheDatabaseRefusesIsLoggedAndTheNextIsWritten) {
  query(db,
        "CREATE TRIGGER refuse BEFORE INSERT ON ANOMALY_DATA_FEEDBACK "
        "WHEN NEW.ANOMALY_UNIQUE_ID = 'A2' BEGIN SELECT RAISE(ABORT, 'no'); END");
  capture(
      data(feedback("A1", "NONE") + "," + feedback("A2", "NONE") + "," + feedback("A3", "NONE")));
  EXPECT_EQ(query_column(db, "SELECT ANOMALY_UNIQUE_ID FROM ANOMALY_DATA_FEEDBACK"),
            (std::vector<std::string>{"A1", "A3"}));
  EXPECT_EQ(
      own(),
      (std::vector<LogLine>{{16, kProgram, "Failed to capture user feedback for anomaly id A2"}}));
}

TEST_F(Feedback, MissingTableIsLoggedForEachRecord) {
  query(db, "DROP TABLE ANOMALY_DATA_FEEDBACK");
  EXPECT_NO_THROW(capture(data(feedback("A1", "NONE") + "," + feedback("A2", "NONE"))));
  EXPECT_EQ(own().size(), 2U);
}

}  // namespace
}  // namespace corvane::test
