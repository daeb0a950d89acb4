#include "companions/alert/channel/web_channel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/fakes/platform_fake_test.h"
#include "tests/unit/alert/channel/some_message.h"

namespace corvane::alert {
namespace {

using ::testing::StartsWith;

class WebChannelTest : public PlatformFake {
 protected:
  static fake::HttpAnswer answer(long status, const std::string& body = R"({"data":{}})") {
    return {.result = 0, .status = status, .body = body};
  }
  // Why it was not delivered; empty: it was.
  std::string sent(std::vector<fake::HttpAnswer> answers) {
    fake.answers.assign(answers.begin(), answers.end());
    const SendResult result = WebChannel("master01").send(message);
    EXPECT_EQ(result.is_taken, result.reason.empty());
    return result.reason;
  }

  Message message = some_message();
};

TEST_F(WebChannelTest, PostsUnderTheIncidentsId) {
  EXPECT_EQ(sent({answer(201, R"({"data":{"id":"the id"}})")}), "");
  ASSERT_EQ(fake.requests.size(), 1U);
  EXPECT_EQ(fake.requests[0].method, "POST");
  EXPECT_EQ(fake.requests[0].path, "corvane/wui/anomalies");
  EXPECT_EQ(fake.requests[0].server, "master01");
  EXPECT_EQ(fake.requests[0].body, R"({"data":{"type":"anomaly","id":"the id","attributes":)" +
                                       document_of(message) + "}}");
}

TEST_F(WebChannelTest, AHostileIdStaysAnId) {
  message.anomaly_id = std::string("\"},\n\0\xFF", 6);
  sent({answer(200)});
  EXPECT_THAT(fake.requests[0].body,
              StartsWith("{\"data\":{\"type\":\"anomaly\",\"id\":\"\\\"},\\n\\ufffd\xEF\xBF\xBD\","
                         "\"attributes\":{"));
}

TEST_F(WebChannelTest, OnlyASuccessIsADelivery) {
  for (const long status : {200, 201, 206}) EXPECT_EQ(sent({answer(status)}), "") << status;
  for (const long status : {100, 199, 207, 301, 302, 307, 308, 400, 403, 500, 503}) {
    EXPECT_EQ(sent({answer(status)}), "HTTP status " + std::to_string(status));
  }
}

TEST_F(WebChannelTest, AFailedTransferIsNone) {
  for (const int code : {1, 28, 99}) {
    EXPECT_EQ(sent({{.result = code, .status = 200, .body = R"({"data":{}})"}}),
              "the request failed with libcurl error " + std::to_string(code) +
                  "; see EXIT CODES in curl(1)");
  }
}

TEST_F(WebChannelTest, TheReplyMustConfirmIt) {
  for (const char* body : {"", "<html>", "[]", "{}", R"({"data":[]})", R"({"data":null})",
                           R"({"error":{"data":{}}})", R"({"data":{})"}) {
    EXPECT_EQ(sent({answer(200, body)}), "the reply does not confirm the delivery") << body;
  }
}

TEST_F(WebChannelTest, AnErrorAfterTheOtherCertificateIsNoSuccess) {
  for (const long status : {302, 500}) {
    for (const char* body : {"", R"({"error":{"status":500}})"}) {
      EXPECT_EQ(sent({answer(401), answer(status, body)}),
                "the reply does not confirm the delivery");
    }
  }
  EXPECT_EQ(sent({answer(401), answer(200)}), "");
  EXPECT_EQ(sent({answer(200, R"({"data":{},"data":{}})")}), "");  // as JSON allows
}

TEST_F(WebChannelTest, WithoutAMasterNothingIsSent) {
  const SendResult result = WebChannel("").send(message);
  EXPECT_FALSE(result.is_taken);
  EXPECT_EQ(result.reason, "the master server is unknown: corvane.conf names none");
  EXPECT_TRUE(fake.requests.empty());
}

}  // namespace
}  // namespace corvane::alert
