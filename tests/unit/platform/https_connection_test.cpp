#include "platform/https_connection.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/unit/platform/https_fixture.h"

using corvane::HttpsAnswer;
using corvane::HttpsConnection;
using corvane::HttpsRequest;
using corvane::stamp_of;
using corvane::test::Exchange;
using corvane::test::HttpsFixture;

namespace {

class HttpsConnectionTest : public HttpsFixture {
 protected:
  static HttpsRequest request(std::size_t answer_limit = 1000) {
    return {"GET", "path", nullptr, 10, answer_limit};
  }
};

}  // namespace

TEST_F(HttpsConnectionTest, ServesItsEndpointWithItsCredentialsOnly) {
  const auto stamp = stamp_of(endpoint().credentials);
  const HttpsConnection connection(endpoint(), stamp);
  EXPECT_TRUE(connection.serves(endpoint(), stamp));
  EXPECT_TRUE(connection.is_of_this_process());
  EXPECT_FALSE(connection.serves(endpoint("other"), stamp));
  EXPECT_FALSE(connection.serves(endpoint("master01.example.com", "service"), stamp));
  replace_certificate("host");
  EXPECT_FALSE(connection.serves(endpoint(), stamp_of(endpoint().credentials)));
  EXPECT_TRUE(connection.leads_to(endpoint()));
}

TEST_F(HttpsConnectionTest, GoesOnAfterAnAnswerOverTheLimit) {
  server.start();
  HttpsConnection connection(endpoint(), stamp_of(endpoint().credentials));
  HttpsAnswer answer;
  EXPECT_EQ(connection.perform(request(5), answer), CURLE_FILESIZE_EXCEEDED);
  EXPECT_EQ(connection.failure(), "The answer is larger than 5 bytes");
  EXPECT_EQ(connection.perform(request(), answer), CURLE_OK);
  EXPECT_EQ(connection.failure(), "");
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.body, "hello host");
}

TEST_F(HttpsConnectionTest, NothingIsLeftOfAnAnswerThatGrewOverTheLimit) {
  handle = [](Exchange& exchange) {
    if (exchange.request_line() == "GET /path HTTP/1.1") {
      exchange.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
      exchange.send("3\r\nabc\r\n");
      exchange.send("3\r\ndef\r\n0\r\n\r\n");
    } else {
      exchange.answer(200, "");
    }
  };
  server.start();
  HttpsConnection connection(endpoint(), stamp_of(endpoint().credentials));
  HttpsAnswer answer;
  EXPECT_EQ(connection.perform(request(5), answer), CURLE_FILESIZE_EXCEEDED);
  HttpsRequest next = request();
  next.path = "empty";
  EXPECT_EQ(connection.perform(next, answer), CURLE_OK);
  EXPECT_EQ(connection.failure(), "");
  EXPECT_EQ(answer.body, "");
}
