#include "companions/alert/channel/message.h"

#include <gtest/gtest.h>

#include "tests/unit/alert/channel/some_message.h"
#include "util/json.h"

namespace corvane::alert {
namespace {

TEST(MessageKind, HasAName) {
  const std::pair<Kind, const char*> names[] = {
      {Kind::kReport, "report"}, {Kind::kBegin, "begin"},     {Kind::kRise, "rise"},
      {Kind::kEnd, "end"},       {Kind::kSummary, "summary"}, {Kind::kTest, "test"}};
  for (const auto& [kind, name] : names) EXPECT_STREQ(name_of(kind), name);
  EXPECT_STREQ(name_of(static_cast<Kind>(99)), "");
}

TEST(MessageHeadline, BeginsWithTheSeverityWhileThereIsSomethingToDo) {
  const std::pair<Kind, const char*> headlines[] = {
      {Kind::kReport, "[major] the subject"},          {Kind::kBegin, "[major] the subject"},
      {Kind::kRise, "[major] Now worse: the subject"}, {Kind::kEnd, "the subject"},
      {Kind::kSummary, "[major] the subject"},         {Kind::kTest, "the subject"}};
  Message message = some_message();
  for (const auto& [kind, headline_of_it] : headlines) {
    message.kind = kind;
    EXPECT_EQ(headline(message), headline_of_it);
  }
}

TEST(MessageDocument, HasEveryField) {
  EXPECT_EQ(document_of(some_message()),
            R"({"schema":1,"alert":"t-1","kind":"begin","state":"open","severity":2,)"
            R"("subject":"[major] the subject","text":"a line\n","id":"the id",)"
            R"("incident":"the incident","clientName":"the client","policyName":"the policy",)"
            R"("scheduleName":"the schedule","cause":"the cause","created":101,"since":102,)"
            R"("records":103,"details":{"a":1}})");
}

TEST(MessageDocument, SaysWhenTheIncidentEnded) {
  Message message = some_message();
  for (const auto& [until, state] : {std::pair{-1, "open"}, {0, "open"}, {1, "ended"}}) {
    message.until = until;
    const JsonPtr document = to_json(message);
    EXPECT_EQ(text_member(document.get(), "state"), state) << until;
    EXPECT_EQ(integer_member(document.get(), "until"), until > 0 ? until : 0);
    EXPECT_EQ(json_object_get(document.get(), "until") != nullptr, until > 0);
  }
}

TEST(MessageDocument, IsOneLineOfValidTextWhateverTheNamesHold) {
  Message message = some_message();
  message.client = std::string("a\0b\n\"\xFF", 6);
  EXPECT_NE(document_of(message).find("\"clientName\":\"a\\ufffdb\\n\\\"\xEF\xBF\xBD\","),
            std::string::npos);
}

TEST(MessageDocument, HasNoDetailsWhereTheyCannotBeRead) {
  Message message = some_message();
  message.details = "[1]";
  EXPECT_TRUE(document_of(message).ends_with(R"("records":103,"details":{}})"));
}

TEST(DetailsForReceivers, AreCompactJson) {
  const JsonPtr parsed = parse_json_object("{\"a\" : \"x\\u0000y\",\n \"b\": [1, 2]}", 100);
  EXPECT_EQ(details_for_receivers("not looked at", parsed.get()), R"({"a":"x\ufffdy","b":[1,2]})");
}

TEST(DetailsForReceivers, ThatCannotBeReadAreATextOf4KiB) {
  EXPECT_EQ(details_for_receivers(std::string_view("no\0{", 4), nullptr),
            R"({"unreadable":"no\ufffd{"})");
  const std::string most(4096, 'x');
  EXPECT_EQ(details_for_receivers(most + "y", nullptr), R"({"unreadable":")" + most + "\"}");
}

}  // namespace
}  // namespace corvane::alert
