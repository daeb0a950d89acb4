#include "embedded_host/https_server.h"

#include <gmock/gmock.h>
#include <httplib.h>

#include <csignal>
#include <fstream>
#include <future>
#include <memory>
#include <thread>

#include "embedded_host/credentials.h"
#include "tests/support/error_of.h"
#include "tests/support/idle.h"
#include "tests/support/in_child.h"
#include "tests/unit/embedded_host/catalog_world.h"

namespace corvane::host {
namespace {

using namespace std::chrono_literals;
using corvane::test::error_of;
using test::backup_line;
using test::ids;
using test::kDay;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

constexpr const char* kJobs = "/corvane/admin/jobs";
constexpr const char* kAnomalies = "/corvane/wui/anomalies";
constexpr const char* kReport = R"({"data":{"type":"anomaly","id":"A1","attributes":{"score":1}}})";

class HttpsServerTest : public ::testing::Test {
 protected:
  HttpsServerTest() {
    std::signal(SIGPIPE, SIG_IGN);  // as cvhostd does
    make_credentials(dir_(), {});
    world_.load({backup_line(1, kDay, 10)});
    service_.emplace(world_.path, AcceptedClients::kHost, 0, stopping_);
    options_.port = 0;
    options_.credentials = dir_();
    options_.access_log = dir_("access.log");
    options_.fault_file = dir_("faults");
    options_.threads = 2;
    options_.time_out_seconds = 2;
  }

  HttpsServer& server() {
    if (!server_)
      server_.emplace(
          options_, *service_,
          [this] {
            std::this_thread::sleep_for(answering_takes_);
            return kDay + 500;
          },
          stopping_);
    return *server_;
  }

  std::unique_ptr<httplib::SSLClient> client(const std::string& certificate = "host") {
    auto client = std::make_unique<httplib::SSLClient>(
        "localhost", server().port(), dir_(certificate + ".pem"), dir_(certificate + ".key"));
    client->set_ca_cert_path(dir_("ca.pem"));
    client->enable_server_certificate_verification(true);
    client->set_read_timeout(20s);
    client->set_keep_alive(true);
    return client;
  }

  void fault(const std::string& lines) { corvane::test::write_file(dir_("faults"), lines); }

  std::vector<std::string> log_lines() const {
    std::ifstream file(dir_("access.log"));
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }

  // "STATUS BODY" of an answer, or why there is none.
  static std::string said(const httplib::Result& result) {
    return result ? std::to_string(result->status) + " " + result->body
                  : "no answer: " + httplib::to_string(result.error());
  }

  // The port of the client's end of its connection; 0 when it has none.
  static int local_port(const httplib::SSLClient& one) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (getsockname(one.socket(), reinterpret_cast<sockaddr*>(&address), &length) != 0) return 0;
    return ntohs(address.sin_port);
  }

  // What comes of the next request: "STATUS on the same connection" or "... on a new connection".
  // The client may notice the end of its connection only when it sends, so it has a second try.
  static std::string next_answer(httplib::SSLClient& one) {
    const int former_port = local_port(one);
    auto result = one.Get(kJobs);
    if (!result) result = one.Get(kJobs);
    if (!result) return said(result);
    return std::to_string(result->status) +
           (local_port(one) == former_port ? " on the same connection" : " on a new connection");
  }

  // Ends the listening of this process's socket at `port`: accepting fails from then on.
  static void stop_listening(int port) {
    for (int file = 3; file < 1024; ++file) {
      sockaddr_in address{};
      socklen_t length = sizeof address;
      int listens = 0;
      socklen_t size = sizeof listens;
      if (getsockopt(file, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && listens != 0 &&
          getsockname(file, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
          ntohs(address.sin_port) == port) {
        shutdown(file, SHUT_RDWR);
      }
    }
  }

  static std::string error_body(int status, const std::string& reason) {
    return std::to_string(status) + " " + error_reply(status, reason).body;
  }

  corvane::test::ScratchDir dir_;
  test::CatalogWorld world_;
  std::atomic<bool> stopping_ = false;
  std::optional<WebService> service_;
  HttpsOptions options_;
  std::chrono::milliseconds answering_takes_{0};
  std::optional<HttpsServer> server_;
};

TEST_F(HttpsServerTest, AnswersManyRequestsOfOneConnection) {
  const auto one = client();
  // More than 100, after which other servers often end a connection.
  for (int i = 0; i < 120; ++i) {
    const auto result = one->Get(kJobs);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->status, 200);
    EXPECT_EQ(result->get_header_value("Content-Type"), "application/json");
    EXPECT_THAT(ids(result->body), ::testing::ElementsAre("1"));
  }
  server_.reset();
  const auto lines = log_lines();
  ASSERT_EQ(lines.size(), 120U);
  const std::string client_port = lines[0].substr(0, lines[0].find(" host"));
  EXPECT_THAT(lines[0],
              MatchesRegex("20[^ ]* 127\\.0\\.0\\.1:[0-9]+ host \"GET /corvane/admin/jobs\" 200 "
                           "[0-9]+ [0-9]+ms"));
  EXPECT_EQ(lines[0].substr(25, client_port.size() - 25),
            lines[119].substr(25, client_port.size() - 25));
}

TEST_F(HttpsServerTest, AConnectionMayBeSilentForThirtyTimesTheTimeOut) {
  options_.time_out_seconds = 7;
  const auto result = client()->Get(kJobs);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->get_header_value("Keep-Alive"), "timeout=210, max=10000000");
}

TEST_F(HttpsServerTest, TakesReports) {
  EXPECT_TRUE(said(client()->Post(kAnomalies, kReport, "application/json")).starts_with("201 "));
  EXPECT_THAT(ids(client()->Get(kAnomalies)->body), ::testing::ElementsAre("A1"));
}

TEST_F(HttpsServerTest, OtherMethodsAreNamed) {
  const auto one = client();
  for (const auto& result :
       {one->Put(kJobs, "{}", "application/json"), one->Patch(kJobs, "{}", "application/json"),
        one->Delete(kJobs, "{}", "application/json")}) {
    ASSERT_TRUE(result);
    EXPECT_EQ(result->status, 405);
    EXPECT_EQ(result->get_header_value("Allow"), "GET, HEAD");
  }
  EXPECT_EQ(next_answer(*one), "200 on the same connection")
      << "nothing of a body is left to be read";
}

TEST_F(HttpsServerTest, ACertificateOfTheOtherTypeIsRefused) {
  EXPECT_EQ(said(client("service")->Get(kJobs)),
            error_body(401, "certificates of type 'service' are not accepted"));
}

TEST_F(HttpsServerTest, ARangeIsAnsweredWithTheWhole) {
  const auto result = client()->Get(kJobs, {{"Range", "bytes=0-1,3-4"}});
  ASSERT_TRUE(result);
  EXPECT_EQ(result->status, 200);
  EXPECT_EQ(result->body, client()->Get(kJobs)->body);
}

TEST_F(HttpsServerTest, ABodyMayHaveAMebibyte) {
  const auto sent = [&](std::size_t size) {
    return said(client()->Post(kJobs, std::string(size, 'x'), "application/json"));
  };
  EXPECT_THAT(sent(1 << 20), HasSubstr("405 "));
  EXPECT_EQ(sent((1 << 20) + 1), error_body(413, "the body is too large"));
}

TEST_F(HttpsServerTest, AHeaderMayHave64Kibibytes) {
  const auto answers = [&](int lines) {
    httplib::Headers headers;
    for (int i = 0; i < lines; ++i)
      headers.emplace("X-" + std::to_string(i), std::string(1000, 'x'));
    const auto one = client();
    return one->Get(kJobs) && one->Get(kJobs, headers);
  };
  EXPECT_TRUE(answers(64));
  EXPECT_FALSE(answers(65));
}

TEST_F(HttpsServerTest, AFormIsNoReport) {
  const auto one = client();
  EXPECT_EQ(said(one->Post(kAnomalies, httplib::MultipartFormDataItems{{"a", "b", "", ""}})),
            error_body(415, "the body must be JSON"));
  EXPECT_EQ(next_answer(*one), "200 on a new connection");
}

TEST_F(HttpsServerTest, ALongPathIsRefusedAndTheConnectionEnds) {
  const auto one = client();
  EXPECT_EQ(said(one->Get("/" + std::string(10'000, 'x'))),
            error_body(414, "the path is too long"));
  EXPECT_EQ(next_answer(*one), "200 on a new connection");
  server_.reset();
  EXPECT_THAT(log_lines().at(0), MatchesRegex("[^ ]+ - host .* 414 [0-9]+ [0-9]+ms"));
}

TEST_F(HttpsServerTest, FaultsChangeTheAnswer) {
  fault("status 503 count 1\ncut count 1\n");
  const auto one = client();
  const auto first = one->Get(kJobs);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->status, 503);
  EXPECT_FALSE(client()->Get(kJobs)) << "broken off half-way";
  EXPECT_THAT(ids(client()->Get(kJobs)->body), ::testing::ElementsAre("1"));
}

TEST_F(HttpsServerTest, AnAnswerThatHangsIsTheRightOneAndTakesNoProcessorTime) {
  fault("hang 1 count 1\n");
  const std::string whole = said(client("service")->Get(kJobs));  // the server has begun
  EXPECT_THAT(whole, HasSubstr("401 "));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(corvane::test::is_idle_during(
      [&] { EXPECT_THAT(ids(client()->Get(kJobs)->body), ::testing::ElementsAre("1")); }));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
}

TEST_F(HttpsServerTest, ACutAnswerIsHalfOfIt) {
  const std::string whole = client()->Get(kJobs)->body;
  fault("cut\n");
  std::string part;
  client()->Get(kJobs, [&](const char* data, std::size_t length) {
    part.append(data, length);
    return true;
  });
  EXPECT_EQ(part, whole.substr(0, whole.size() / 2));
}

TEST_F(HttpsServerTest, AFaultIsNotForWhoIsRefusedAnyway) {
  fault("status 503 count 1\n");
  EXPECT_EQ(client("service")->Get(kJobs)->status, 401);
  EXPECT_EQ(client()->Get(kJobs)->status, 503);
}

TEST_F(HttpsServerTest, ABadFaultFileIsAnError) {
  fault("nonsense\n");
  EXPECT_THAT(said(client()->Get(kJobs)), HasSubstr("500 "));
  EXPECT_THAT(said(client()->Get(kJobs)), HasSubstr("nonsense"));
}

TEST_F(HttpsServerTest, ARequestThatIsNeverFinishedIsBrokenOff) {
  options_.time_out_seconds = 1;
  const auto begin = std::chrono::steady_clock::now();
  // The header is whole, the body is not.
  const auto result = client()->Post(
      kAnomalies, 100,
      [&](std::size_t offset, std::size_t, httplib::DataSink& sink) {
        if (offset == 0) return sink.write("x", 1);
        std::this_thread::sleep_for(2s);
        return false;
      },
      "application/json");
  EXPECT_TRUE(!result || result->status == 400);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 15s);
  server_.reset();
  EXPECT_THAT(log_lines().at(0), HasSubstr(" 400 "));
}

TEST_F(HttpsServerTest, AnAnswerMayTakeLongerThanARequest) {
  options_.time_out_seconds = 1;
  const auto one = client();
  const std::string whole = said(one->Get(kJobs));
  EXPECT_THAT(whole, HasSubstr("200 "));
  server_.reset();
  stopping_ = false;
  answering_takes_ = 2s;
  EXPECT_EQ(said(client()->Get(kJobs)), whole);
}

TEST_F(HttpsServerTest, ItEndsItsProcessWhenItCannotAccept) {
  const auto serve_without_accepting = [this] {
    sigset_t end;
    sigemptyset(&end);
    sigaddset(&end, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &end, nullptr);  // the server's threads inherit it
    stop_listening(server().port());
    // Blocked, the signal stays until what comes with it has been looked at.
    const auto limit = std::chrono::steady_clock::now() + 20s;
    sigset_t arrived;
    do {
      std::this_thread::sleep_for(1ms);
      sigpending(&arrived);
    } while (sigismember(&arrived, SIGTERM) == 0 && std::chrono::steady_clock::now() < limit);
    EXPECT_TRUE(stopping_);
    if (HasFailure()) return 1;
    pthread_sigmask(SIG_UNBLOCK, &end, nullptr);
    return 0;
  };
  EXPECT_EQ(corvane::test::in_child(serve_without_accepting), 128 + SIGTERM);
}

TEST_F(HttpsServerTest, AnIdleConnectionMakesWay) {
  options_.threads = 1;
  const auto idle = client();
  EXPECT_EQ(idle->Get(kJobs)->status, 200);
  EXPECT_EQ(client()->Get(kJobs)->status, 200) << "its thread is the only one";
}

TEST_F(HttpsServerTest, ItEndsWhoeverIsConnected) {
  fault("corvane/catalog/images hang 60\n");
  const auto idle = client();
  EXPECT_EQ(idle->Get(kJobs)->status, 200);
  auto hanging = std::async(
      std::launch::async, [one = client()] { return one->Get("/corvane/catalog/images").error(); });
  EXPECT_EQ(hanging.wait_for(300ms), std::future_status::timeout);
  const auto begin = std::chrono::steady_clock::now();
  server_.reset();
  EXPECT_TRUE(stopping_);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
  EXPECT_NE(hanging.get(), httplib::Error::Success);
}

TEST_F(HttpsServerTest, TwoDoNotShareAPort) {
  options_.port = server().port();
  const auto make_second = [this] {
    const HttpsServer second(
        options_, *service_, [] { return kDay; }, stopping_);
  };
  EXPECT_EQ(error_of<ServerFailure>(make_second), "cannot listen on 127.0.0.1 port " +
                                                      std::to_string(options_.port) +
                                                      ": Address already in use");
  EXPECT_EQ(client()->Get(kJobs)->status, 200);
}

TEST_F(HttpsServerTest, ThePortIsFreeAgainAtOnce) {
  options_.port = server().port();
  EXPECT_EQ(client()->Get(kJobs)->status, 200);
  server_.reset();
  stopping_ = false;
  EXPECT_EQ(server().port(), options_.port);
  EXPECT_EQ(client()->Get(kJobs)->status, 200);
}

TEST_F(HttpsServerTest, WhatIsMissingIsNamed) {
  std::filesystem::remove(dir_("server.key"));
  EXPECT_THROW(server(), ServerFailure);
  options_.credentials = world_.dir();
  options_.access_log = dir_("nowhere/access.log");
  EXPECT_EQ(error_of<ServerFailure>([this] { server(); }),
            options_.access_log + ": No such file or directory");
}

}  // namespace
}  // namespace corvane::host
