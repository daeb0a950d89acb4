#include "platform/https_session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/in_child.h"
#include "tests/unit/platform/https_fixture.h"
#include "tests/unit/platform/sandbox.h"

using corvane::HttpsEndpoint;
using corvane::HttpsSession;
using corvane::test::Authority;
using corvane::test::enter_sandbox;
using corvane::test::Exchange;
using corvane::test::HttpsFixture;
using corvane::test::in_child;
using corvane::test::sandbox_is_possible;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class HttpsSessionTest : public HttpsFixture {
 protected:
  // The result of one GET in a session of its own.
  static int get(const HttpsEndpoint& to, const std::string& path = "path") {
    HttpsSession session(to);
    session.set_timeout(10);
    return session.request("GET", path);
  }
};

}  // namespace

// Who talks to whom.

TEST_F(HttpsSessionTest, BothSidesProveWhoTheyAre) {
  server.start();
  HttpsSession session(endpoint());
  EXPECT_EQ(session.answer().status, 0);
  EXPECT_EQ(session.answer().body, "");
  EXPECT_EQ(session.request("GET", "corvane/admin/jobs"), 0);
  EXPECT_EQ(session.answer().status, 200);
  EXPECT_EQ(session.answer().body, "hello host");
  EXPECT_EQ(log_lines(), std::vector<std::string>{});
}

TEST_F(HttpsSessionTest, ServiceCertificateIsAnotherClient) {
  server.start();
  HttpsSession session(endpoint("master01.example.com", "service"));
  EXPECT_EQ(session.request("GET", "path"), 0);
  EXPECT_EQ(session.answer().body, "hello service");
}

TEST_F(HttpsSessionTest, ServerOfAnotherAuthorityIsRefused) {
  Authority("other").write(credentials + "/ca.pem");
  server.start();
  EXPECT_EQ(get(endpoint()), CURLE_PEER_FAILED_VERIFICATION);
  EXPECT_THAT(log_lines(), ElementsAre(StartsWith(url_start() + "path: SSL certificate problem")));
  EXPECT_EQ(server.request_lines(), std::vector<std::string>{});
}

TEST_F(HttpsSessionTest, AuthorityThatOnlyTheSystemTrustsIsRefused) {
  if (!sandbox_is_possible()) GTEST_SKIP() << "no mount namespace can be made here";
  const char* directory = curl_version_info(CURLVERSION_NOW)->capath;
  if (directory == nullptr || !std::filesystem::is_directory(directory)) {
    GTEST_SKIP() << "this system trusts no authorities of its own";
  }
  Authority("other").write(credentials + "/ca.pem");
  const int result = in_child([&] {
    if (!enter_sandbox()) return 90;
    if (mount("none", directory, "tmpfs", 0, "mode=0755") != 0) return 91;
    authority.write(std::string(directory) + "/" + authority.hashed_name());
    server.start();
    const int code = get(endpoint());
    server.stop();
    return code;
  });
  EXPECT_EQ(result, CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(HttpsSessionTest, ServerOfAnotherNameIsRefused) {
  server.start();
  EXPECT_EQ(get(endpoint("media01.example.com")), CURLE_PEER_FAILED_VERIFICATION);
  EXPECT_THAT(log_lines(), ElementsAre(HasSubstr("no alternative certificate subject name")));
  EXPECT_EQ(server.request_lines(), std::vector<std::string>{});
}

TEST_F(HttpsSessionTest, ExpiredServerCertificateIsRefused) {
  authority.issue(credentials, "server", "DNS:master01.example.com", -60);
  corvane::test::TlsServer expired(credentials, handle);
  expired.start();
  HttpsEndpoint to = endpoint();
  to.port = expired.port();
  EXPECT_EQ(get(to), CURLE_PEER_FAILED_VERIFICATION);
  EXPECT_THAT(log_lines(), ElementsAre(HasSubstr("certificate has expired")));
}

TEST_F(HttpsSessionTest, ServerWithoutModernTlsIsRefused) {
  server.speak_at_most(TLS1_1_VERSION);
  server.start();
  EXPECT_EQ(get(endpoint()), CURLE_SSL_CONNECT_ERROR);
}

TEST_F(HttpsSessionTest, Tls12IsEnough) {
  server.speak_at_most(TLS1_2_VERSION);
  server.start();
  EXPECT_EQ(get(endpoint()), 0);
}

TEST_F(HttpsSessionTest, ClientOfAnotherAuthorityIsRefusedByTheServer) {
  Authority("other").issue(credentials, "host", "DNS:host");
  server.start();
  EXPECT_NE(get(endpoint()), 0);
  EXPECT_THAT(log_lines(), ElementsAre(StartsWith(url_start() + "path: ")));
  EXPECT_EQ(server.request_lines(), std::vector<std::string>{});
}

TEST_F(HttpsSessionTest, MissingClientCertificateIsReported) {
  std::filesystem::remove(credentials + "/host.pem");
  server.start();
  EXPECT_EQ(get(endpoint()), CURLE_SSL_CERTPROBLEM);
  EXPECT_THAT(log_lines(), ElementsAre(HasSubstr("host.pem")));
}

TEST_F(HttpsSessionTest, MissingKeyIsReported) {
  std::filesystem::remove(credentials + "/host.key");
  server.start();
  EXPECT_EQ(get(endpoint()), CURLE_SSL_CERTPROBLEM);
  EXPECT_THAT(log_lines(), ElementsAre(HasSubstr("host.key")));
}

TEST_F(HttpsSessionTest, MissingAuthorityIsReported) {
  std::filesystem::remove(credentials + "/ca.pem");
  server.start();
  EXPECT_EQ(get(endpoint()), CURLE_SSL_CACERT_BADFILE);
  EXPECT_THAT(log_lines(), ElementsAre(HasSubstr("ca.pem")));
}

TEST_F(HttpsSessionTest, KeyThatOthersCanReadIsRefusedWithoutAConnection) {
  const std::string key = credentials + "/host.key";
  std::filesystem::permissions(key, static_cast<std::filesystem::perms>(0644));
  server.start();
  EXPECT_EQ(get(endpoint()), CURLE_SSL_CERTPROBLEM);
  EXPECT_THAT(log_lines(), ElementsAre(url_start() + "path: private key " + key +
                                       " is refused: others than its owner have access to it"));
  EXPECT_EQ(server.connections(), 0);
}

TEST_F(HttpsSessionTest, ServerNameThatIsNoneIsRefusedWithoutAConnection) {
  server.start();
  for (const char* name : {"", "a/b", "user@127.0.0.1", "127.0.0.1:80/", "a b", "[]", "a\r\nb"}) {
    EXPECT_EQ(get(endpoint(name)), CURLE_URL_MALFORMAT) << name;
  }
  EXPECT_EQ(server.connections(), 0);
}

TEST_F(HttpsSessionTest, AddressesServeAsServerNames) {
  server.start();
  for (const char* name : {"127.0.0.1", "::1", "[::1]"}) EXPECT_EQ(get(endpoint(name)), 0) << name;
}

TEST_F(HttpsSessionTest, ServerIsResolvedWithoutAnotherHostToConnectTo) {
  server.start();
  HttpsEndpoint to = endpoint("127.0.0.1");
  to.connect_to = "";
  EXPECT_EQ(get(to), 0);
}

TEST_F(HttpsSessionTest, ProxyOfTheEnvironmentIsNotUsed) {
  const int result = in_child([this] {
    for (const char* name : {"https_proxy", "HTTPS_PROXY", "ALL_PROXY"}) {
      setenv(name, "http://127.0.0.1:1", 1);
    }
    server.start();
    const int code = get(endpoint());
    server.stop();
    return code;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(HttpsSessionTest, NobodyListeningIsATransportError) {
  HttpsEndpoint to = endpoint();
  {
    corvane::test::TlsServer gone(credentials, handle);
    to.port = gone.port();
  }
  EXPECT_EQ(get(to, "path?secret=1"), CURLE_COULDNT_CONNECT);
  ASSERT_EQ(log_lines().size(), 1U);
  EXPECT_THAT(log_lines()[0], HasSubstr("/path: "));
  EXPECT_EQ(log_lines()[0].find("secret"), std::string::npos);
}

// What stands in a request.

TEST_F(HttpsSessionTest, PathGoesToTheWireAsItStands) {
  server.start();
  const std::vector<std::string> paths = {
      "corvane/admin/jobs?page%5Boffset%5D=200&page%5Blimit%5D=100&sort=-startTime&filter="
      "startTime%20ge%202024-01-01T00:00:00.000Z%20and%20(jobType%20eq%20'BACKUP'%20or%20x)",
      "corvane/catalog/images/client_1700000000",
      "a/../b/./c//d",
      "%2e%2E/%",
      "a;b,c!$*+@[]{}|\\^`",
      "\xc3\xa4?\xff",
      "",
      "?",
      "a#b?c#d"};
  for (const std::string& path : paths) EXPECT_EQ(get(endpoint(), path), 0) << path;
  std::vector<std::string> expected;
  for (const std::string& path : paths) expected.push_back("GET /" + path + " HTTP/1.1");
  EXPECT_EQ(server.request_lines(), expected);
}

TEST_F(HttpsSessionTest, PathThatWouldBreakTheRequestApartIsRefused) {
  server.start();
  for (const char* path : {"a b", "a\r\nX: y", "a\nb", "a\tb"}) {
    EXPECT_EQ(get(endpoint(), path), CURLE_URL_MALFORMAT) << path;
  }
  EXPECT_EQ(server.connections(), 0);
}

TEST_F(HttpsSessionTest, MethodsAndBodies) {
  handle = [](Exchange& exchange) {
    const std::string& head = exchange.head();
    const bool is_json = head.find("Content-Type: application/json\r\n") != std::string::npos;
    const bool has_expectation = head.find("Expect") != std::string::npos;
    const std::string body = exchange.read_body();
    exchange.answer(200, exchange.request_line() + (is_json ? " json " : " plain ") +
                             (has_expectation ? "expect " : "") + body.substr(0, 100));
  };
  server.start();
  HttpsSession session(endpoint());
  const std::string body = "{\"data\": \"'%5B'\"}";
  EXPECT_EQ(session.request("POST", "a", &body), 0);
  EXPECT_EQ(session.answer().body, "POST /a HTTP/1.1 json " + body);
  EXPECT_EQ(session.request("PATCH", "b", &body), 0);
  EXPECT_EQ(session.answer().body, "PATCH /b HTTP/1.1 json " + body);
  EXPECT_EQ(session.request("DELETE", "c"), 0);
  EXPECT_EQ(session.answer().body, "DELETE /c HTTP/1.1 plain ");
  EXPECT_EQ(session.request("GET", "d"), 0);
  EXPECT_EQ(session.answer().body, "GET /d HTTP/1.1 plain ");
  const std::string empty;
  EXPECT_EQ(session.request("POST", "e", &empty), 0);
  EXPECT_EQ(session.answer().body, "POST /e HTTP/1.1 json ");
  const std::string large(3'000'000, 'x');
  EXPECT_EQ(session.request("POST", "f", &large), 0);
  EXPECT_EQ(session.answer().body, "POST /f HTTP/1.1 json " + std::string(100, 'x'));
  EXPECT_EQ(server.handshakes(), 1);
}
