#include "companions/alert/channel/web_channel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "companions/alert/channel/message.h"
#include "tests/fakes/platform_fake_test.h"

namespace corvane::alert {
namespace {

using ::testing::StartsWith;

class WebChannelTest : public PlatformFake {
 protected:
  WebChannelTest() {
    message.alert = "t-1";
    message.kind = Kind::kReport;
    message.anomaly_id = "anomaly_1";
    message.details = "{}";
  }

  static fake::HttpAnswer answer(long status, const std::string& body = "") {
    return {.result = 0, .status = status, .body = body};
  }
  SendResult sent(std::vector<fake::HttpAnswer> answers) {
    fake.answers.assign(answers.begin(), answers.end());
    return WebChannel("master01").send(message);
  }

  Message message;
};

TEST_F(WebChannelTest, PostsUnderTheIncidentsId) {
  EXPECT_TRUE(sent({answer(201, R"({"data":{"id":"anomaly_1"}})")}).is_taken);
  ASSERT_EQ(fake.requests.size(), 1U);
  EXPECT_EQ(fake.requests[0].method, "POST");
  EXPECT_EQ(fake.requests[0].path, "corvane/wui/anomalies");
  EXPECT_EQ(fake.requests[0].server, "master01");
  EXPECT_EQ(fake.requests[0].body, R"({"data":{"type":"anomaly","id":"anomaly_1","attributes":)" +
                                       document_of(message) + "}}");
}

TEST_F(WebChannelTest, AHostileIdStaysAnId) {
  message.anomaly_id = "\"},\n\xFF";
  sent({answer(200)});
  EXPECT_THAT(fake.requests[0].body,
              StartsWith("{\"data\":{\"type\":\"anomaly\",\"id\":\"\\\"},\\n\xEF\xBF\xBD\","
                         "\"attributes\":{"));
}

TEST_F(WebChannelTest, AFailureIsOne) {
  EXPECT_EQ(sent({answer(503)}).reason, "HTTP status 503");
  EXPECT_EQ(sent({{.result = 28, .status = 0, .body = ""}}).reason,
            "transfer failed, libcurl's code 28");
  EXPECT_FALSE(sent({answer(200, "<html>")}).is_taken);
  EXPECT_FALSE(sent({answer(200, "")}).is_taken);
}

TEST_F(WebChannelTest, AnErrorAfterTheOtherCertificateIsNoSuccess) {
  EXPECT_FALSE(sent({answer(401), answer(500, R"({"error":{"status":500}})")}).is_taken);
  EXPECT_FALSE(sent({answer(401), answer(500, "")}).is_taken);
  EXPECT_TRUE(sent({answer(401), answer(200, R"({"data":{}})")}).is_taken);
}

TEST_F(WebChannelTest, WithoutAMasterNothingIsSent) {
  EXPECT_EQ(WebChannel("").send(message).reason, "no master server is known");
  EXPECT_TRUE(fake.requests.empty());
}

}  // namespace
}  // namespace corvane::alert
