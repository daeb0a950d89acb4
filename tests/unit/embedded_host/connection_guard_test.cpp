#include "embedded_host/connection_guard.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "embedded_host/credentials.h"
#include "embedded_host/tls_context.h"
#include "tests/support/scratch_dir.h"

namespace corvane::host {
namespace {

using namespace std::chrono_literals;
using Clock = ConnectionGuard::Clock;
using ContextPtr = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;
using SslPtr = std::unique_ptr<SSL, decltype(&SSL_free)>;

constexpr std::size_t kRecordOverhead = 5 + 1 + 16;  // of TLS 1.3: header, type, tag
constexpr ConnectionLimits kLimits{.reading = 10s, .header_bytes = 20'000, .body_bytes = 5'000};

// A TLS connection within the process: both ends of a pair of sockets.
class Pair {
 public:
  Pair(SSL_CTX* server, SSL_CTX* client) : server_(nullptr, SSL_free), client_(nullptr, SSL_free) {
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sockets_.data()) != 0) return;
    server_.reset(SSL_new(server));
    client_.reset(SSL_new(client));
    SSL_set_fd(server_.get(), sockets_[0]);
    SSL_set_fd(client_.get(), sockets_[1]);
    began_after = Clock::now();
    auto connected = std::async(std::launch::async, [&] { return SSL_connect(client_.get()); });
    accepted = SSL_accept(server_.get()) == 1;
    connected.get();
    began_before = Clock::now();
  }
  ~Pair() {
    server_.reset();
    for (const int socket : sockets_) close(socket);
  }
  Pair(const Pair&) = delete;
  Pair& operator=(const Pair&) = delete;

  // One record of so many bytes, with what TLS adds to it, which the server then reads.
  bool client_sends(std::size_t record) {
    std::string text(record - kRecordOverhead, 'x');
    return SSL_write(client_.get(), text.data(), static_cast<int>(text.size())) > 0 &&
           SSL_read(server_.get(), text.data(), static_cast<int>(text.size())) > 0;
  }

  bool server_sends(std::size_t bytes) {
    std::string text(bytes, 'x');
    return SSL_write(server_.get(), text.data(), static_cast<int>(bytes)) > 0 &&
           SSL_read(client_.get(), text.data(), static_cast<int>(bytes)) > 0;
  }

  bool is_broken_off() const {
    pollfd end{sockets_[0], 0, 0};
    poll(&end, 1, 0);
    return (end.revents & POLLHUP) != 0;
  }

  // An event of the connection that is not its start.
  void server_says_goodbye() { SSL_shutdown(server_.get()); }

  const SSL* server() const { return server_.get(); }
  void free_server() { server_.reset(); }

  bool accepted = false;
  Clock::time_point began_after, began_before;  // when the handshake began, from outside

 private:
  std::array<int, 2> sockets_{-1, -1};
  SslPtr server_, client_;
};

class ConnectionGuardTest : public ::testing::Test {
 protected:
  ConnectionGuardTest() {
    std::signal(SIGPIPE, SIG_IGN);  // as cvhostd does
    make_credentials(dir_(), {});
    EXPECT_EQ(set_up_tls(*server_, dir_()), "");
    SSL_CTX_set_num_tickets(server_.get(), 0);
    guard_.attach(server_.get());
    SSL_CTX_use_certificate_file(client_.get(), dir_("host.pem").c_str(), SSL_FILETYPE_PEM);
    SSL_CTX_use_PrivateKey_file(client_.get(), dir_("host.key").c_str(), SSL_FILETYPE_PEM);
  }

  std::unique_ptr<Pair> connect() {
    auto pair = std::make_unique<Pair>(server_.get(), client_.get());
    EXPECT_TRUE(pair->accepted);
    return pair;
  }

  // Calls `change`, after which the connection must have so much time left.
  template <typename Change>
  void expect_deadline(const Pair& pair, std::chrono::seconds allowed, Change change) {
    const auto before = Clock::now();
    change();
    const auto after = Clock::now();
    guard_.sweep(before + allowed, true);
    EXPECT_FALSE(pair.is_broken_off());
    guard_.sweep(after + allowed + 1ns, false);
    EXPECT_TRUE(pair.is_broken_off());
  }

  corvane::test::ScratchDir dir_;
  ConnectionGuard guard_{kLimits};
  ContextPtr server_{SSL_CTX_new(TLS_server_method()), SSL_CTX_free};
  ContextPtr client_{SSL_CTX_new(TLS_client_method()), SSL_CTX_free};
};

TEST_F(ConnectionGuardTest, TheFirstRequestHasItsTimeFromTheHandshakeOn) {
  const auto pair = connect();
  guard_.sweep(pair->began_after + kLimits.reading, true);
  EXPECT_FALSE(pair->is_broken_off());
  guard_.sweep(pair->began_before + kLimits.reading + 1ns, false);
  EXPECT_TRUE(pair->is_broken_off());
}

TEST_F(ConnectionGuardTest, ABodyHasItsTimeFromTheHeaderOn) {
  const auto pair = connect();
  expect_deadline(*pair, kLimits.reading, [&] { guard_.header_read(pair->server()); });
}

TEST_F(ConnectionGuardTest, AnAnswerHasTheTimeThatItIsGiven) {
  const auto pair = connect();
  expect_deadline(*pair, 300s, [&] { guard_.answering(pair->server(), 300s); });
}

TEST_F(ConnectionGuardTest, ARequestAfterAPauseHasItsTimeFromItsFirstByteOn) {
  const auto pair = connect();
  guard_.idle(pair->server());
  expect_deadline(*pair, kLimits.reading, [&] { EXPECT_TRUE(pair->client_sends(100)); });
}

TEST_F(ConnectionGuardTest, MoreOfARequestGivesItNoMoreTime) {
  const auto pair = connect();
  std::this_thread::sleep_until(pair->began_before + 2ms);
  EXPECT_TRUE(pair->client_sends(100));
  guard_.sweep(pair->began_before + kLimits.reading + 1ns, false);
  EXPECT_TRUE(pair->is_broken_off());
}

TEST_F(ConnectionGuardTest, AnIdleConnectionStaysUntilThereIsNoRoom) {
  const auto idle = connect();
  const auto busy = connect();
  guard_.idle(idle->server());
  guard_.sweep(Clock::now() + std::chrono::hours(24 * 364), false);
  EXPECT_FALSE(idle->is_broken_off());
  EXPECT_TRUE(busy->is_broken_off());

  const auto other = connect();
  guard_.sweep(Clock::now(), true);
  EXPECT_TRUE(idle->is_broken_off());
  EXPECT_FALSE(other->is_broken_off());
}

TEST_F(ConnectionGuardTest, AHeaderMayHaveSoManyBytes) {
  const auto pair = connect();
  guard_.idle(pair->server());  // what the handshake took does not count for the request
  EXPECT_TRUE(pair->client_sends(10'000));
  EXPECT_TRUE(pair->client_sends(10'000));
  EXPECT_FALSE(pair->is_broken_off());
  pair->client_sends(kRecordOverhead + 1);
  EXPECT_TRUE(pair->is_broken_off());
}

TEST_F(ConnectionGuardTest, AHeaderMayNotHaveAByteMore) {
  const auto pair = connect();
  guard_.idle(pair->server());
  EXPECT_TRUE(pair->client_sends(10'000));
  pair->client_sends(10'001);
  EXPECT_TRUE(pair->is_broken_off());
}

TEST_F(ConnectionGuardTest, ABodyMayHaveSoManyMore) {
  const auto pair = connect();
  guard_.idle(pair->server());
  EXPECT_TRUE(pair->client_sends(10'000));
  guard_.header_read(pair->server());
  EXPECT_TRUE(pair->client_sends(15'000));
  EXPECT_FALSE(pair->is_broken_off());
  pair->client_sends(kRecordOverhead + 1);
  EXPECT_TRUE(pair->is_broken_off());
}

TEST_F(ConnectionGuardTest, ByDefaultARequestMayHave64KibibytesAndTwoMebibytesMore) {
  ConnectionGuard usual{{}};
  usual.attach(server_.get());
  const auto pair = connect();
  usual.idle(pair->server());
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(pair->client_sends(16 << 10));
  EXPECT_FALSE(pair->is_broken_off());
  usual.header_read(pair->server());
  for (int i = 0; i < 128; ++i) EXPECT_TRUE(pair->client_sends(16 << 10));
  EXPECT_FALSE(pair->is_broken_off());
  pair->client_sends(kRecordOverhead + 1);
  EXPECT_TRUE(pair->is_broken_off());
}

TEST_F(ConnectionGuardTest, ByDefaultReadingMayTakeTenSeconds) {
  ConnectionGuard usual{{}};
  usual.attach(server_.get());
  const auto pair = connect();
  const auto before = Clock::now();
  usual.header_read(pair->server());
  const auto after = Clock::now();
  usual.sweep(before + 10s, true);
  EXPECT_FALSE(pair->is_broken_off());
  usual.sweep(after + 10s + 1ns, false);
  EXPECT_TRUE(pair->is_broken_off());
}

TEST_F(ConnectionGuardTest, EachRequestIsCountedByItself) {
  const auto pair = connect();
  for (int i = 0; i < 5; ++i) {
    guard_.idle(pair->server());
    EXPECT_TRUE(pair->client_sends(12'000));
  }
  EXPECT_FALSE(pair->is_broken_off());
}

TEST_F(ConnectionGuardTest, WhatTheServerSendsIsNotCounted) {
  const auto pair = connect();
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(pair->server_sends(12'000));
  EXPECT_FALSE(pair->is_broken_off());
}

TEST_F(ConnectionGuardTest, AThreadKnowsTheConnectionThatItServes) {
  const auto pair = connect();
  EXPECT_EQ(ConnectionGuard::current(), pair->server());
  pair->free_server();
  EXPECT_EQ(ConnectionGuard::current(), nullptr);
}

TEST_F(ConnectionGuardTest, AThreadServesTheConnectionThatBeganLast) {
  const auto first = connect();
  const auto second = connect();
  first->server_says_goodbye();
  EXPECT_EQ(ConnectionGuard::current(), second->server());
}

TEST_F(ConnectionGuardTest, AConnectionThatEndedIsForgotten) {
  const auto pair = connect();
  pair->free_server();
  guard_.sweep(Clock::now() + 1h, true);
  guard_.close_all();
  EXPECT_FALSE(pair->is_broken_off()) << "its socket may be another connection's by now";
}

TEST_F(ConnectionGuardTest, ClosingBreaksOffAllAndThoseToCome) {
  const auto pair = connect();
  const auto other = connect();
  guard_.close_all();
  EXPECT_TRUE(pair->is_broken_off());
  EXPECT_TRUE(other->is_broken_off());
  const Pair late(server_.get(), client_.get());
  EXPECT_FALSE(late.accepted);
}

}  // namespace
}  // namespace corvane::host
