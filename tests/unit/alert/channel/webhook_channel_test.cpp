#include "companions/alert/channel/webhook_channel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <stdexcept>

#include "tests/fakes/platform_fake_test.h"
#include "tests/support/scratch_dir.h"
#include "tests/unit/alert/channel/loopback_server.h"
#include "tests/unit/alert/channel/some_message.h"

namespace corvane::alert {
namespace {

using ::testing::Contains;
using ::testing::Not;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

TEST(WebhookSignature, IsTheWellKnownOne) {
  // echo -n "1700000000.{}" | openssl dgst -sha256 -hmac key
  EXPECT_EQ(webhook_signature("key", 1700000000, "{}"),
            "t=1700000000,v1="
            "9d713ed406bb7076d4123f0dc2c39d2df5c654ed4b0cd56b52c8b4c940bd63ae");
}

class WebhookChannelTest : public PlatformFake {
 protected:
  WebhookChannelTest() { settings.webhook_url = "http://" + web.server.at() + "/path?token=1"; }

  // Why it was not delivered; empty: it was.
  std::string sent(const Message& message = some_message()) const {
    const SendResult result = WebhookChannel(settings, stop).send(message);
    EXPECT_EQ(result.is_taken, result.reason.empty());
    return result.reason;
  }

  const test::ScratchDir directory;
  HttpReceiver web{"HTTP/1.1 200 OK"};
  Settings settings;
  StopFlag stop;
};

TEST_F(WebhookChannelTest, PostsTheDocument) {
  EXPECT_EQ(sent(), "");
  ASSERT_EQ(web.requests().size(), 1U);
  const HttpReceived request = web.requests()[0];
  const std::string document = document_of(some_message());
  EXPECT_EQ(request.line, "POST /path?token=1 HTTP/1.1\r\n");
  EXPECT_EQ(request.body, document);
  EXPECT_THAT(request.headers,
              UnorderedElementsAre("Host: " + web.server.at(), "Accept: */*",
                                   "Content-Type: application/json", "User-Agent: cvanomalyalert",
                                   "Corvane-Alert: t-1",
                                   "Content-Length: " + std::to_string(document.size())));
}

TEST_F(WebhookChannelTest, PostsALargeDocumentWithoutAskingFirst) {
  Message message = some_message();
  message.body = std::string(2 << 20, 'x');
  EXPECT_EQ(sent(message), "");
  EXPECT_EQ(web.requests()[0].body, document_of(message));
  EXPECT_THAT(web.requests()[0].headers, Not(Contains(StartsWith("Expect"))));
}

TEST_F(WebhookChannelTest, SignsWithTheSecret) {
  fake.now = 1'700'000'123;
  settings.webhook_secret_file = directory("secret");
  test::write_file(directory("secret"), "the secret\n");
  chmod(directory("secret").c_str(), 0600);
  EXPECT_EQ(sent(), "");
  EXPECT_THAT(web.requests()[0].headers,
              Contains("Corvane-Signature: " + webhook_signature("the secret", 1'700'000'123,
                                                                 document_of(some_message()))));
}

TEST_F(WebhookChannelTest, IsNotSentWithoutItsSecret) {
  settings.webhook_secret_file = directory("none");
  EXPECT_THROW(sent(), std::runtime_error);
  EXPECT_EQ(web.server.connections(), 0);
}

TEST_F(WebhookChannelTest, IsDeliveredByASuccessAlone) {
  for (const char* status : {"200", "201", "204", "299"}) {
    web.set_answer(std::string("HTTP/1.1 ") + status + " Reason");
    EXPECT_EQ(sent(), "") << status;
  }
  for (const char* status : {"300", "301", "302", "307", "308", "400", "500"}) {
    web.set_answer(std::string("HTTP/1.1 ") + status + " Reason\r\nLocation: http://" +
                   web.server.at() + "/elsewhere");
    EXPECT_EQ(sent(), std::string("127.0.0.1: HTTP status ") + status);
  }
  for (const HttpReceived& request : web.requests()) {
    EXPECT_EQ(request.line, "POST /path?token=1 HTTP/1.1\r\n");
  }
}

TEST_F(WebhookChannelTest, NamesTheHostOfAFailedTransfer) {
  settings.webhook_url = "http://127.0.0.1:1/path?token=1";
  EXPECT_EQ(sent(), "127.0.0.1: Couldn't connect to server");
}

TEST_F(WebhookChannelTest, IsInterruptedByTheStopFlag) {
  stop.ask();
  EXPECT_EQ(sent(), "127.0.0.1: Operation was aborted by an application callback");
  EXPECT_EQ(web.server.connections(), 0);
}

TEST_F(WebhookChannelTest, GoesNowhereWithoutEncryption) {
  const std::string port = web.server.at("");
  for (const std::string& url : {"http://0.0.0.0" + port, "http://localhost.example.com" + port,
                                 "ftp://localhost" + port, "httpx://localhost" + port}) {
    settings.webhook_url = url;
    EXPECT_EQ(sent(), "WEBHOOK_URL must begin with https:// unless the server is on this machine");
  }
  EXPECT_EQ(web.server.connections(), 0);
}

TEST_F(WebhookChannelTest, MayBeEncryptedAnywhere) {
  LoopbackServer silent([](Conversation& client) { client.read_bytes(1); });
  for (const char* host : {"127.0.0.1", "0.0.0.0"}) {
    settings.webhook_url = "https://" + silent.at(host);
    EXPECT_THAT(sent(), StartsWith(std::string(host) + ": "));
  }
  EXPECT_EQ(silent.connections(), 2);
}

TEST_F(WebhookChannelTest, UsesTheAuthoritiesOfItsFile) {
  LoopbackServer silent([](Conversation& client) { client.read_bytes(1); });
  settings.webhook_url = "https://" + silent.at();
  settings.ca_file = directory("none");
  EXPECT_EQ(sent(), "127.0.0.1: Problem with the SSL CA cert (path? access rights?)");
}

TEST_F(WebhookChannelTest, NamesTheSettingOfABadUrl) {
  settings.webhook_url = "nothing at all";
  EXPECT_THROW(
      {
        try {
          sent();
        } catch (const std::runtime_error& error) {
          EXPECT_STREQ(error.what(), "WEBHOOK_URL is not a valid URL");
          throw;
        }
      },
      std::runtime_error);
}

}  // namespace
}  // namespace corvane::alert
