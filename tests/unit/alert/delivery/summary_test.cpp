#include "companions/alert/delivery/summary.h"

#include <gtest/gtest.h>

#include "companions/alert/delivery/delivery_queue.h"
#include "companions/alert/incident/incident_book.h"
#include "companions/alert/settings_file.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/sql.h"

namespace corvane::alert {
namespace {

constexpr std::int64_t kFirst = 1'700'000'000;  // 2023-11-14 22:13:20 UTC
constexpr std::int64_t kSummary = 1'000'000;

class SummaryTest : public ::testing::Test {
 protected:
  struct Part {
    std::string client;
    Kind kind = Kind::kBegin;
    Severity severity = Severity::kMajor;
    std::optional<CauseKind> cause = CauseKind::kEncryption;
    std::int64_t created = kFirst;
    std::string channel = kMail;
    std::int64_t summary = kSummary;
  };

  // Folds a message of an incident of its own into the summary.
  void fold(const Part& part) {
    const std::string number = std::to_string(++parts_);
    KnownIncident incident;
    incident.name = "incident_" + number;
    incident.anomaly_id = "anomaly_" + number;
    incident.stream = {part.client, "policy " + number, "", "", "schedule " + number, "", ""};
    incident.cause = part.cause;
    IncidentBook(state).put_incident(incident, kFirst);
    DeliveryQueue queue(state);
    const std::int64_t message = queue.add_message(incident.id, "", part.severity, part.created,
                                                   {"subject " + number, "b\n"}, "{}");
    queue.add_delivery(
        {message, part.channel, part.kind, incident.id, part.severity, part.created, 0});
    test::query(state.handle(), "UPDATE delivery SET summary = " + std::to_string(part.summary) +
                                    " WHERE message = " + std::to_string(message));
  }
  Message written() {
    Message message;
    message.client = "stays";
    message.created = 5;
    write_summary(state, kSummary, kMail, message);
    EXPECT_EQ(message.client, "stays");
    EXPECT_EQ(message.created, 5);
    return message;
  }

  test::ScratchDir directory;
  StateDatabase state{directory("s.db")};
  int parts_ = 0;
};

TEST_F(SummaryTest, CountsKindsClientsSeveritiesAndCauses) {
  fold({.client = "a", .severity = Severity::kWarning, .created = kFirst + 600});
  fold({.client = "a", .severity = Severity::kCritical, .cause = CauseKind::kPacked});
  fold({.client = "b", .kind = Kind::kRise, .created = kFirst + 120});
  fold(
      {.client = "c", .kind = Kind::kEnd, .severity = Severity::kCritical, .created = kFirst + 60});
  fold({.client = "c", .cause = std::nullopt, .created = kFirst + 60});
  fold({.client = "c", .cause = CauseKind::kUnclear, .created = kFirst + 60});
  fold({.client = "c", .cause = CauseKind::kUnclear, .created = kFirst + 60});
  fold({.client = "another channel", .channel = kSyslog});
  fold({.client = "another summary", .summary = kSummary + 1});
  fold({.client = "by itself", .summary = 0});
  const Message message = written();
  EXPECT_EQ(message.subject,
            "Many alerts at once: 5 new incidents, 1 now worse, 1 back to normal, on 3 clients");
  EXPECT_EQ(
      message.body,
      "Between 2023-11-14 22:13 UTC and 2023-11-14 22:23 UTC: 5 new incidents, 1 now worse, "
      "1 back to normal, on 3 clients.\n"
      "By severity: critical (1), major (4), warning (1).\n"
      "Likely causes: no known cause (3), encryption (2), files packed into archives (1).\n"
      "All of them:\n"
      "  subject 2\n  subject 4\n  subject 3\n  subject 5\n  subject 6\n  subject 7\n  subject 1\n"
      "The web interface of the master server lists them all.\n");
  EXPECT_EQ(message.cause, "storm");
  EXPECT_EQ(message.since, kFirst);
  EXPECT_EQ(message.records, 7);
}

TEST_F(SummaryTest, BeginsWithTheFirstOfAllOfThem) {
  for (const Kind kind : {Kind::kBegin, Kind::kEnd}) {
    for (const int minutes : {10, 20}) {
      const int earlier = kind == Kind::kEnd ? 5 : 0;
      fold({.client = "a", .kind = kind, .created = kFirst + 60 * (minutes - earlier)});
    }
  }
  EXPECT_EQ(written().since, kFirst + 5 * 60);
  EXPECT_EQ(written().body.substr(0, 52), "Between 2023-11-14 22:18 UTC and 2023-11-14 22:33 UT");
}

TEST_F(SummaryTest, ListsThemAsJson) {
  fold({.client = "a", .severity = Severity::kWarning});
  fold({.client = std::string("b\0", 2), .kind = Kind::kEnd, .cause = CauseKind::kPacked});
  EXPECT_EQ(written().details,
            R"({"total":2,"incidents":[{"kind":"end","severity":2,"id":"anomaly_2",)"
            R"("clientName":"b\ufffd","policyName":"policy 2","scheduleName":"schedule 2",)"
            R"("cause":"packed","subject":"subject 2"},{"kind":"begin","severity":1,)"
            R"("id":"anomaly_1","clientName":"a","policyName":"policy 1",)"
            R"("scheduleName":"schedule 1","cause":"encryption","subject":"subject 1"}]})");
}

TEST_F(SummaryTest, OfEndsHasNeitherSeveritiesNorCauses) {
  fold({.client = "a", .kind = Kind::kEnd});
  EXPECT_EQ(written().subject, "Many alerts at once: 1 back to normal, on 1 client");
  EXPECT_EQ(written().body,
            "At 2023-11-14 22:13 UTC: 1 back to normal, on 1 client.\n"
            "All of them:\n"
            "  subject 1\n"
            "The web interface of the master server lists them all.\n");
}

TEST_F(SummaryTest, NamesTheMostSevereOfMany) {
  for (int i = 0; i < 20; ++i) fold({.client = "a"});
  EXPECT_NE(written().body.find("All of them:\n"), std::string::npos);
  EXPECT_NE(written().body.find("subject 20\n"), std::string::npos);
  fold({.client = "a", .severity = Severity::kCritical});
  const std::string body = written().body;
  EXPECT_NE(body.find("The most severe:\n  subject 21\n  subject 1\n"), std::string::npos) << body;
  EXPECT_NE(body.find("subject 19\n"), std::string::npos);
  EXPECT_EQ(body.find("subject 20\n"), std::string::npos);
}

TEST_F(SummaryTest, ListsAThousandAsJson) {
  const Transaction transaction(state);
  for (int i = 0; i < 1001; ++i) fold({.client = "a"});
  const std::string details = written().details;
  EXPECT_NE(details.find(R"({"total":1001,)"), std::string::npos);
  EXPECT_NE(details.find(R"("anomaly_1000")"), std::string::npos);
  EXPECT_EQ(details.find(R"("anomaly_1001")"), std::string::npos);
}

}  // namespace
}  // namespace corvane::alert
