#include "platform/cv_client_curl.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>

#include "tests/support/in_child.h"
#include "tests/unit/platform/https_fixture.h"
#include "tests/unit/platform/sandbox.h"

using corvane::test::enter_sandbox;
using corvane::test::Exchange;
using corvane::test::HttpsFixture;
using corvane::test::in_child;
using corvane::test::sandbox_is_possible;
using corvane::test::write_file;

namespace {

// In a child that has a /usr/tessel of its own, with the fixture's credentials.
class InstalledClient : public HttpsFixture {
 protected:
  void SetUp() override {
    if (!sandbox_is_possible()) GTEST_SKIP() << "no mount namespace can be made here";
    handle = [](Exchange& exchange) {
      const std::string body = exchange.read_body();
      exchange.answer(exchange.client() == "host" ? 401 : 200,
                      exchange.client() + " " + exchange.request_line() + " " + body);
    };
  }

  int installed(const std::function<void()>& body) {
    return in_child([&] {
      if (!enter_sandbox()) return 90;
      std::filesystem::create_directories("/usr/tessel/var");
      std::filesystem::copy(credentials, "/usr/tessel/var/credentials");
      write_file("/usr/tessel/corvane/corvane.conf",
                 "[domain]\nservers=master01.example.com\n[web]\nconnect_to=127.0.0.1\n");
      server.start();
      body();
      server.stop();
      return 0;
    });
  }

  CVClientCURL client(cert_type certificate) {
    return CVClientCURL("master01.example.com", server.port(), certificate,
                        CURL_SESSION_CERTIFICATE, nullptr, "", true, false, false, "", "", "", "",
                        "", "", false, token_expired, "", 0);
  }

  bool token_expired = false;
};

}  // namespace

TEST_F(InstalledClient, CertificateTypeChoosesTheFiles) {
  EXPECT_EQ(installed([this] {
              CVClientCURL host = client(CERT_TYPE_HOST);
              EXPECT_EQ(host.http_status(), 0);
              EXPECT_EQ(host.response_body(), "");
              EXPECT_EQ(host.get("a"), 0);
              EXPECT_EQ(host.http_status(), 401);
              EXPECT_EQ(host.response_body(), "host GET /a HTTP/1.1 ");
              CVClientCURL service = client(CERT_TYPE_SERVICE);
              EXPECT_EQ(service.get("a"), 0);
              EXPECT_EQ(service.http_status(), 200);
              EXPECT_EQ(service.response_body(), "service GET /a HTTP/1.1 ");
            }),
            0);
}

TEST_F(InstalledClient, EachOperationHasItsMethod) {
  EXPECT_EQ(installed([this] {
              CVClientCURL service = client(CERT_TYPE_SERVICE);
              service.setupCurlOperationTimeout(10);
              EXPECT_EQ(service.post("a", "{1}", nullptr), 0);
              EXPECT_EQ(service.response_body(), "service POST /a HTTP/1.1 {1}");
              EXPECT_EQ(service.patch("b", "{2}", nullptr), 0);
              EXPECT_EQ(service.response_body(), "service PATCH /b HTTP/1.1 {2}");
              EXPECT_EQ(service.remove("c"), 0);
              EXPECT_EQ(service.response_body(), "service DELETE /c HTTP/1.1 ");
            }),
            0);
}

TEST_F(InstalledClient, EndsAtItsTimeLimit) {
  handle = [](Exchange& exchange) {
    exchange.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n123");
    exchange.wait_until_left();
  };
  EXPECT_EQ(installed([this] {
              CVClientCURL service = client(CERT_TYPE_SERVICE);
              service.setupCurlOperationTimeout(1);
              EXPECT_EQ(service.get("a"), CURLE_OPERATION_TIMEDOUT);
            }),
            0);
}

TEST_F(InstalledClient, ShortLivedClientsShareAConnection) {
  EXPECT_EQ(installed([this] {
              for (int i = 0; i < 10; ++i) EXPECT_EQ(client(CERT_TYPE_HOST).get("a"), 0);
              EXPECT_EQ(server.connections(), 1);
            }),
            0);
}
