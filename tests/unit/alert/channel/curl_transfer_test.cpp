#include "companions/alert/channel/curl_transfer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>

#include "tests/support/descriptors.h"
#include "tests/support/idle.h"
#include "tests/support/scratch_dir.h"
#include "tests/unit/alert/channel/loopback_server.h"
#include "tests/unit/platform/test_certificates.h"
#include "tests/unit/platform/tls_server.h"

namespace corvane::alert {
namespace {

TEST(UrlParts, AreSchemeAndHost) {
  for (const char* url : {"https://web01.example.com:8443/a?b=c#d", "https://web01.example.com"}) {
    const UrlParts parts = parts_of_url(setting::kWebhookUrl, url);
    EXPECT_EQ(parts.scheme, "https");
    EXPECT_EQ(parts.host, "web01.example.com");
    EXPECT_FALSE(parts.is_loopback);
  }
}

TEST(UrlParts, KnowThisMachine) {
  for (const char* url : {"http://localhost:80/", "https://127.0.0.1/x", "smtp://[::1]:25",
                          "http://127.3.2.1", "http://127.255.255.255"}) {
    EXPECT_TRUE(parts_of_url(setting::kSmtpUrl, url).is_loopback) << url;
  }
  for (const char* url : {"http://127.0.0.1.example.com/", "http://example.com/#localhost",
                          "smtp://[::2]", "http://128.0.0.1/", "http://0.0.0.0/",
                          "http://1.127.0.0/", "http://localhost.example.com/", "http://127.a.b.c/",
                          "http://127.0.0.1.2/", "http://12.7.0.1"}) {
    EXPECT_FALSE(parts_of_url(setting::kSmtpUrl, url).is_loopback) << url;
  }
}

TEST(UrlParts, RefuseWhatIsNoUrlOrHoldsSecrets) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "SMTP_URL is not a valid URL"},
      {"nothing at all", "SMTP_URL is not a valid URL"},
      {"http://", "SMTP_URL is not a valid URL"},
      {"https://a\nb/", "SMTP_URL is not a valid URL"},
      {"https://evil\\@localhost.example", "SMTP_URL must not contain a user name or password"},
      {"file:///etc/passwd", "SMTP_URL has no host name"},
      {"https://u:p@localhost/", "SMTP_URL must not contain a user name or password"},
      {"https://u@localhost/", "SMTP_URL must not contain a user name or password"},
      {"https://:p@localhost/", "SMTP_URL must not contain a user name or password"}};
  for (const auto& [url, reason] : cases) {
    try {
      parts_of_url(setting::kSmtpUrl, url);
      ADD_FAILURE() << url;
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), reason) << url;
    }
  }
}

TEST(CurlList, KeepsItsOrder) {
  CurlListPtr list;
  append(list, "a");
  append(list, "b");
  ASSERT_NE(list, nullptr);
  EXPECT_STREQ(list->data, "a");
  EXPECT_STREQ(list->next->data, "b");
  EXPECT_EQ(list->next->next, nullptr);
}

class CurlTransferTest : public ::testing::Test {
 protected:
  CurlTransfer transfer(const char* protocols = "http") const {
    return CurlTransfer("http://" + web.server.at() + "/", protocols, "");
  }

  HttpReceiver web{"HTTP/1.1 200 OK"};
  StopFlag stop;
};

TEST_F(CurlTransferTest, GivesTheServersReply) {
  CurlTransfer one = transfer();
  EXPECT_EQ(one.status(), 0);
  EXPECT_EQ(one.failure(CURLE_COULDNT_CONNECT), "Couldn't connect to server");
  web.set_answer("HTTP/1.1 404 No");
  EXPECT_EQ(one.perform(10, stop), CURLE_OK);
  EXPECT_EQ(one.status(), 404);
  EXPECT_EQ(one.failure(CURLE_PARTIAL_FILE), "Transferred a partial file (last reply 404)");
}

TEST_F(CurlTransferTest, AllowsTheGivenProtocolsOnly) {
  EXPECT_EQ(transfer("https").perform(10, stop), CURLE_UNSUPPORTED_PROTOCOL);
  EXPECT_EQ(transfer("smtp,http").perform(10, stop), CURLE_OK);
  EXPECT_EQ(web.server.connections(), 1);
}

TEST_F(CurlTransferTest, RefusesWhatLibcurlRefuses) {
  EXPECT_THROW(transfer("no such protocol"), std::runtime_error);
  CurlTransfer one = transfer();
  EXPECT_THROW(one.set(CURLOPT_HTTP_VERSION, -7L), std::runtime_error);
}

TEST_F(CurlTransferTest, FollowsNoRedirect) {
  web.set_answer("HTTP/1.1 302 Moved\r\nLocation: http://" + web.server.at() + "/elsewhere");
  CurlTransfer one = transfer();
  EXPECT_EQ(one.perform(10, stop), CURLE_OK);
  EXPECT_EQ(one.status(), 302);
  EXPECT_EQ(web.requests().size(), 1U);
}

TEST_F(CurlTransferTest, IgnoresProxiesOfTheEnvironment) {
  setenv("http_proxy", "http://127.0.0.1:1", 1);
  EXPECT_EQ(transfer().perform(10, stop), CURLE_OK);
  unsetenv("http_proxy");
}

TEST_F(CurlTransferTest, DiscardsWhatTheServerSends) {
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(transfer().perform(10, stop), CURLE_OK);
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

// What a transfer sees of this process while it runs.
struct Seen {
  int inheritable_sockets = 0;  // at most at one time
  bool has_other_sigpipe = false;
};

int look(CURL* /*handle*/, curl_infotype /*type*/, char* /*data*/, std::size_t /*size*/,
         void* context) {
  auto* seen = static_cast<Seen*>(context);
  int sockets = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int descriptor = std::stoi(entry.path().filename().string());
    sockaddr_in address{};
    socklen_t size = sizeof address;
    const bool is_socket =
        getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
        address.sin_family == AF_INET;  // libcurl has others for itself
    if (is_socket && fcntl(descriptor, F_GETFD) == 0) ++sockets;
  }
  seen->inheritable_sockets = std::max(seen->inheritable_sockets, sockets);
  struct sigaction action {};
  sigaction(SIGPIPE, nullptr, &action);
  if (action.sa_handler != SIG_DFL) seen->has_other_sigpipe = true;
  return 0;
}

int inheritable_sockets() {
  Seen seen;
  look(nullptr, CURLINFO_TEXT, nullptr, 0, &seen);
  return seen.inheritable_sockets;
}

TEST_F(CurlTransferTest, LeavesSignalsAloneAndItsSocketToNoProgram) {
  const int before = inheritable_sockets();  // of whoever started the test
  Seen seen;
  CurlTransfer one = transfer();
  one.set(CURLOPT_VERBOSE, 1L);
  one.set(CURLOPT_DEBUGFUNCTION, &look);
  one.set(CURLOPT_DEBUGDATA, &seen);
  EXPECT_EQ(one.perform(10, stop), CURLE_OK);
  EXPECT_EQ(seen.inheritable_sockets, before);
  EXPECT_FALSE(seen.has_other_sigpipe);
}

TEST_F(CurlTransferTest, LeavesNothingOpen) {
  stop.ask();  // the server would open something as well
  const StopFlag go_on;
  CurlTransfer refused("http://127.0.0.1:1/", "http", "");
  const int next = test::lowest_free_descriptor();
  EXPECT_EQ(transfer().perform(10, stop), CURLE_ABORTED_BY_CALLBACK);
  EXPECT_EQ(refused.perform(10, go_on), CURLE_COULDNT_CONNECT);
  EXPECT_EQ(test::lowest_free_descriptor(), next);
}

TEST_F(CurlTransferTest, RestsUntilItsTimeLimit) {
  LoopbackServer silent([](Conversation& client) { client.wait_until_left(); });
  CurlTransfer one("http://" + silent.at(), "http", "");
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(
      test::is_idle_during([&] { EXPECT_EQ(one.perform(1, stop), CURLE_OPERATION_TIMEDOUT); }));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(900));
}

TEST_F(CurlTransferTest, IsInterruptedByTheStopFlag) {
  LoopbackServer silent([this](Conversation& client) {
    client.read_until("\r\n\r\n");
    stop.ask();
    client.wait_until_left();
  });
  CurlTransfer one("http://" + silent.at(), "http", "");
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(one.perform(60, stop), CURLE_ABORTED_BY_CALLBACK);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

TEST_F(CurlTransferTest, DoesNotBeginAfterTheStopFlag) {
  stop.ask();
  EXPECT_EQ(transfer().perform(10, stop), CURLE_ABORTED_BY_CALLBACK);
  EXPECT_EQ(web.server.connections(), 0);
}

TEST_F(CurlTransferTest, MayBeMadeAgain) {
  CurlTransfer one = transfer();
  EXPECT_EQ(one.perform(10, stop), CURLE_OK);
  EXPECT_EQ(one.perform(10, stop), CURLE_OK);
  EXPECT_EQ(web.requests().size(), 2U);
}

class EncryptedTransfer : public ::testing::Test {
 protected:
  EncryptedTransfer() {
    authority.write(directory("ca.pem"));
    authority.issue(directory(), "server", "IP:127.0.0.1");
  }
  void serve(test::TlsServer::Handler handler) {
    server.emplace(directory(), std::move(handler));
    server->accept_without_certificate();
  }
  CurlTransfer transfer(const std::string& ca_file, const std::string& host = "127.0.0.1") {
    return CurlTransfer("https://" + host + ":" + std::to_string(server->port()) + "/", "https",
                        ca_file);
  }
  static void answer(test::Exchange& exchange) { exchange.answer(200, ""); }

  const test::ScratchDir directory;
  const test::Authority authority{"test authority"};
  std::optional<test::TlsServer> server;
  StopFlag stop;
};

TEST_F(EncryptedTransfer, TrustsTheAuthoritiesOfTheFileAlone) {
  serve(&answer);
  server->start();
  EXPECT_EQ(transfer(directory("ca.pem")).perform(10, stop), CURLE_OK);
  EXPECT_EQ(transfer("").perform(10, stop), CURLE_PEER_FAILED_VERIFICATION);
  EXPECT_EQ(transfer(directory("ca.pem"), "127.0.0.2").perform(10, stop), CURLE_COULDNT_CONNECT);
  EXPECT_EQ(server->request_lines().size(), 1U);
}

TEST_F(EncryptedTransfer, ChecksTheServersName) {
  authority.issue(directory(), "server", "DNS:elsewhere.example.com");
  serve(&answer);
  server->start();
  EXPECT_EQ(transfer(directory("ca.pem")).perform(10, stop), CURLE_PEER_FAILED_VERIFICATION);
  EXPECT_TRUE(server->request_lines().empty());
}

// A whole TLS record.
std::string record(Conversation& client) {
  const std::string head = client.read_bytes(5);
  if (head.size() < 5) return head;
  return client.read_bytes(static_cast<std::size_t>(static_cast<unsigned char>(head[3])) * 256 +
                           static_cast<unsigned char>(head[4]));
}

TEST_F(EncryptedTransfer, SpeaksNoOldProtocol) {
  std::string hello;
  {
    LoopbackServer plain([&](Conversation& client) { hello = record(client); });
    CurlTransfer one("https://" + plain.at(), "https", "");
    EXPECT_NE(one.perform(10, stop), CURLE_OK);
  }
  // The versions that the client offers: TLS 1.3 and 1.2.
  EXPECT_NE(hello.find(std::string("\x00\x2b\x00\x05\x04\x03\x04\x03\x03", 9)), std::string::npos);
}

TEST_F(EncryptedTransfer, SurvivesAServerThatHangsUp) {
  serve([](test::Exchange& exchange) { exchange.close(true); });
  server->start();
  const std::string body(20 << 20, 'x');
  CurlTransfer one = transfer(directory("ca.pem"));
  one.set(CURLOPT_POSTFIELDS, body.c_str());
  one.set(CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  EXPECT_NE(one.perform(10, stop), CURLE_OK);
}

}  // namespace
}  // namespace corvane::alert
