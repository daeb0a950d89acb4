// How connections and TLS sessions outlive the sessions that used them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/https_session.h"
#include "tests/support/in_child.h"
#include "tests/unit/platform/https_fixture.h"

using corvane::HttpsEndpoint;
using corvane::HttpsSession;
using corvane::test::Exchange;
using corvane::test::HttpsFixture;
using corvane::test::in_child;

namespace {

class HttpsPool : public HttpsFixture {
 protected:
  // One GET in a session of its own; true when it worked.
  static bool get(const HttpsEndpoint& to) { return HttpsSession(to).request("GET", "path") == 0; }
};

// Runs a process that asks the server, which works in this process. So the asking one has a single
// thread and may fork without harm.
int with_server_outside(corvane::test::TlsServer& server, const std::function<int()>& body) {
  const pid_t child = corvane::test::start_child(body);
  server.start();
  return corvane::test::status_of(child);
}

}  // namespace

TEST_F(HttpsPool, ManySessionsInARowShareOneConnection) {
  server.start();
  for (int i = 0; i < 50; ++i) EXPECT_TRUE(get(endpoint()));
  EXPECT_EQ(server.connections(), 1);
  EXPECT_EQ(server.handshakes(), 1);
  EXPECT_EQ(server.request_lines().size(), 50U);
}

TEST_F(HttpsPool, SessionsAtTheSameTimeHaveConnectionsOfTheirOwn) {
  server.start();
  {
    HttpsSession first(endpoint());
    HttpsSession second(endpoint());
    EXPECT_EQ(first.request("GET", "path"), 0);
    EXPECT_EQ(second.request("GET", "path"), 0);
    EXPECT_EQ(server.connections(), 2);
  }
  EXPECT_TRUE(get(endpoint()));
  EXPECT_EQ(server.connections(), 2);
}

TEST_F(HttpsPool, CertificatesServersAndHostsToConnectToAreKeptApart) {
  server.start();
  HttpsEndpoint resolved = endpoint("127.0.0.1");
  resolved.connect_to = "";
  const std::vector<HttpsEndpoint> endpoints = {
      endpoint(), endpoint("master01.example.com", "service"), endpoint("127.0.0.1"), resolved};
  for (int round = 0; round < 3; ++round) {
    for (const HttpsEndpoint& to : endpoints) EXPECT_TRUE(get(to));
  }
  EXPECT_EQ(server.connections(), 4);
}

TEST_F(HttpsPool, ConnectionThatTheServerClosedIsReplacedUnderTheSameTlsSession) {
  handle = [](Exchange& exchange) {
    exchange.send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\nok");
    exchange.close();
  };
  server.start();
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(get(endpoint()));
  EXPECT_EQ(server.connections(), 4);
  EXPECT_EQ(server.resumptions(), 3);
}

TEST_F(HttpsPool, FailedConnectionIsNotKept) {
  handle = [](Exchange& exchange) {
    if (exchange.request_line() == "GET /bad HTTP/1.1") {
      exchange.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nok");
      exchange.close();
    } else {
      exchange.answer(200, "ok");
    }
  };
  server.start();
  EXPECT_TRUE(get(endpoint()));
  EXPECT_NE(HttpsSession(endpoint()).request("GET", "bad"), 0);
  EXPECT_TRUE(get(endpoint()));
  EXPECT_EQ(server.connections(), 2);
  EXPECT_EQ(server.resumptions(), 0);
}

TEST_F(HttpsPool, ReplacedCredentialsAreUsedAtOnce) {
  server.start();
  HttpsSession session(endpoint());
  EXPECT_EQ(session.request("GET", "path"), 0);
  replace_certificate("host");
  EXPECT_EQ(session.request("GET", "path"), 0);
  EXPECT_EQ(server.handshakes(), 2);
  replace_certificate("host");
  EXPECT_TRUE(get(endpoint()));
  EXPECT_EQ(server.handshakes(), 3);
  EXPECT_EQ(server.resumptions(), 0);
}

TEST_F(HttpsPool, KeyThatBecomesReadableForOthersStopsAnOpenConnectionToo) {
  server.start();
  HttpsSession session(endpoint());
  EXPECT_EQ(session.request("GET", "path"), 0);
  std::filesystem::permissions(credentials + "/host.key",
                               static_cast<std::filesystem::perms>(0640));
  EXPECT_EQ(session.request("GET", "path"), CURLE_SSL_CERTPROBLEM);
  EXPECT_EQ(server.request_lines().size(), 1U);
}

TEST_F(HttpsPool, OnlyAFewIdleConnectionsAreKept) {
  server.start();
  {
    std::vector<std::unique_ptr<HttpsSession>> sessions;
    for (int i = 0; i < 12; ++i) {
      sessions.push_back(std::make_unique<HttpsSession>(endpoint()));
      EXPECT_EQ(sessions.back()->request("GET", "path"), 0);
    }
  }
  std::vector<std::unique_ptr<HttpsSession>> sessions;
  for (int i = 0; i < 12; ++i) {
    sessions.push_back(std::make_unique<HttpsSession>(endpoint()));
    EXPECT_EQ(sessions.back()->request("GET", "path"), 0);
  }
  EXPECT_EQ(server.connections(), 12 + 4);
}

TEST_F(HttpsPool, ChildLeavesTheParentsConnectionAlone) {
  handle = [](Exchange& exchange) { exchange.answer(200, std::to_string(exchange.number())); };
  const auto connection_of = [](HttpsSession& session) {
    EXPECT_EQ(session.request("GET", "path"), 0);
    return session.answer().body;
  };
  const int result = with_server_outside(server, [&] {
    const auto pooled = [&] {
      HttpsSession session(endpoint());
      return connection_of(session);
    };
    HttpsSession at_work(endpoint("127.0.0.1"));
    EXPECT_EQ(pooled(), "1");
    EXPECT_EQ(connection_of(at_work), "2");
    EXPECT_EQ(in_child([&] {
                EXPECT_EQ(pooled(), "3");
                EXPECT_EQ(pooled(), "3");
                EXPECT_EQ(connection_of(at_work), "4");
                at_work.~HttpsSession();
                return 0;
              }),
              0);
    EXPECT_EQ(pooled(), "1");
    EXPECT_EQ(connection_of(at_work), "2");
    return 0;
  });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(server.connections(), 4);
}

TEST_F(HttpsPool, ConnectionsAreNotInheritedByTools) {
  const int result = with_server_outside(server, [this] {
    EXPECT_TRUE(get(endpoint()));
    int connections = 0;
    for (int descriptor = 3; descriptor < 256; ++descriptor) {
      sockaddr_storage peer{};
      socklen_t size = sizeof peer;
      if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) != 0) continue;
      if (peer.ss_family != AF_INET) continue;
      ++connections;
      EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    }
    EXPECT_GE(connections, 1);
    return 0;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(HttpsPool, ConnectionStaysOffClosedStandardDescriptors) {
  const int result = with_server_outside(server, [this] {
    const int out = dup(1);  // for the expectations' messages
    for (int descriptor = 0; descriptor <= 2; ++descriptor) close(descriptor);
    const bool worked = get(endpoint());
    bool is_free[3];
    for (int descriptor = 0; descriptor <= 2; ++descriptor) {
      is_free[descriptor] = fcntl(descriptor, F_GETFD) < 0;
    }
    dup2(out, 1);
    EXPECT_TRUE(worked);
    EXPECT_TRUE(is_free[0]);
    EXPECT_TRUE(is_free[1]);
    EXPECT_TRUE(is_free[2]);
    return 0;
  });
  EXPECT_EQ(result, 0);
}
