// What a session makes of answers, of slow, half and endless ones too, and of broken connections.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "platform/https_session.h"
#include "tests/support/in_child.h"
#include "tests/unit/platform/https_fixture.h"

using corvane::HttpsEndpoint;
using corvane::HttpsSession;
using corvane::test::Exchange;
using corvane::test::HttpsFixture;
using corvane::test::in_child;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

class HttpsAnswerTest : public HttpsFixture {
 protected:
  // The result of one GET in a session of its own.
  static int get(const HttpsEndpoint& to, const std::string& path = "path") {
    HttpsSession session(to);
    session.set_timeout(10);
    return session.request("GET", path);
  }
};

}  // namespace

// What comes back.

TEST_F(HttpsAnswerTest, AnyStatusIsHandedOnWithItsBody) {
  handle = [](Exchange& exchange) {
    const int status = std::stoi(exchange.request_line().substr(5, 3));
    exchange.answer(status, "body of " + std::to_string(status));
  };
  server.start();
  HttpsSession session(endpoint());
  for (const int status : {200, 201, 206, 207, 302, 400, 401, 404, 500, 503}) {
    EXPECT_EQ(session.request("GET", std::to_string(status)), 0);
    EXPECT_EQ(session.answer().status, status);
    EXPECT_EQ(session.answer().body, "body of " + std::to_string(status));
  }
  EXPECT_EQ(log_lines(), std::vector<std::string>{});
}

TEST_F(HttpsAnswerTest, RedirectionsAreNotFollowed) {
  handle = [](Exchange& exchange) {
    exchange.send("HTTP/1.1 302 Found\r\nLocation: /elsewhere\r\nContent-Length: 0\r\n\r\n");
  };
  server.start();
  HttpsSession session(endpoint());
  EXPECT_EQ(session.request("GET", "path"), 0);
  EXPECT_EQ(session.answer().status, 302);
  EXPECT_THAT(server.request_lines(), ElementsAre("GET /path HTTP/1.1"));
}

TEST_F(HttpsAnswerTest, TruncatedAnswerIsAFailureAndNotHandedOn) {
  handle = [](Exchange& exchange) {
    exchange.send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n{\"data\": [");
    exchange.close();
  };
  server.start();
  HttpsSession session(endpoint());
  EXPECT_EQ(session.request("GET", "path"), CURLE_PARTIAL_FILE);
  EXPECT_EQ(session.answer().status, 0);
  EXPECT_EQ(session.answer().body, "");
  EXPECT_THAT(log_lines(), ElementsAre(StartsWith(url_start() + "path: ")));
}

TEST_F(HttpsAnswerTest, AnswerThatIsNoHttpIsAFailure) {
  handle = [](Exchange& exchange) {
    exchange.send("garbage\r\n\r\n");
    exchange.close();
  };
  server.start();
  EXPECT_NE(get(endpoint()), 0);
  EXPECT_EQ(log_lines().size(), 1U);
}

TEST_F(HttpsAnswerTest, FailureForgetsTheAnswerBefore) {
  handle = [](Exchange& exchange) {
    if (exchange.request_line().starts_with("GET /good ")) {
      exchange.answer(200, "good");
    } else {
      exchange.close(true);
    }
  };
  server.start();
  HttpsSession session(endpoint());
  EXPECT_EQ(session.request("GET", "good"), 0);
  EXPECT_NE(session.request("GET", "bad"), 0);
  EXPECT_EQ(session.answer().status, 0);
  EXPECT_EQ(session.answer().body, "");
  EXPECT_EQ(session.request("GET", "good"), 0);
  EXPECT_EQ(session.answer().body, "good");
}

TEST_F(HttpsAnswerTest, SlowAnswerEndsAtTheTimeLimit) {
  handle = [](Exchange& exchange) {
    exchange.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n123");
    exchange.wait_until_left();
  };
  server.start();
  HttpsSession session(endpoint());
  session.set_timeout(1);
  const auto begin = steady_clock::now();
  EXPECT_EQ(session.request("GET", "path"), CURLE_OPERATION_TIMEDOUT);
  const auto lasted = steady_clock::now() - begin;
  EXPECT_GE(lasted, std::chrono::milliseconds(900));
  EXPECT_LT(lasted, std::chrono::seconds(3));
  EXPECT_THAT(log_lines(), ElementsAre(StartsWith(url_start() + "path: Operation timed out")));
}

TEST_F(HttpsAnswerTest, AnswerThatDripsEndsAtTheTimeLimitToo) {
  handle = [](Exchange& exchange) {
    exchange.send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n");
    while (exchange.send("x")) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  };
  server.start();
  HttpsSession session(endpoint());
  session.set_timeout(1);
  const auto begin = steady_clock::now();
  EXPECT_EQ(session.request("GET", "path"), CURLE_OPERATION_TIMEDOUT);
  EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(3));
}

TEST_F(HttpsAnswerTest, SilentServerEndsAtTheTimeLimitToo) {
  HttpsSession session(endpoint());  // connections wait: the server was not started
  session.set_timeout(1);
  const auto begin = steady_clock::now();
  EXPECT_EQ(session.request("GET", "path"), CURLE_OPERATION_TIMEDOUT);
  EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(3));
}

TEST_F(HttpsAnswerTest, OddTimeLimitsAreHarmless) {
  server.start();
  HttpsSession session(endpoint());
  for (const long seconds : {0L, -1L, 9'000'000'000'000'000'000L}) {
    session.set_timeout(seconds);
    EXPECT_EQ(session.request("GET", "path"), 0) << seconds;
  }
}

// How large it may be.

TEST_F(HttpsAnswerTest, AnswerOfExactlyTheLimitIsAccepted) {
  handle = [](Exchange& exchange) { exchange.answer(200, std::string(1000, 'x')); };
  server.start();
  HttpsSession session(endpoint(), 1000);
  EXPECT_EQ(session.request("GET", "path"), 0);
  EXPECT_EQ(session.answer().body, std::string(1000, 'x'));
}

TEST_F(HttpsAnswerTest, AnswerAnnouncedLargerThanTheLimitIsRefused) {
  handle = [](Exchange& exchange) { exchange.answer(200, std::string(1001, 'x')); };
  server.start();
  HttpsSession session(endpoint(), 1000);
  EXPECT_EQ(session.request("GET", "path"), CURLE_FILESIZE_EXCEEDED);
  EXPECT_EQ(session.answer().body, "");
  EXPECT_THAT(log_lines(), ElementsAre(url_start() + "path: The answer is larger than 1000 bytes"));
}

TEST_F(HttpsAnswerTest, AnswerThatGrowsBeyondTheDefaultLimitIsRefused) {
  handle = [](Exchange& exchange) {
    exchange.send("HTTP/1.1 200 OK\r\n\r\n");
    const std::string piece(1'000'000, 'x');
    while (exchange.send(piece)) {
    }
    exchange.close();
  };
  server.start();
  HttpsSession session(endpoint());
  EXPECT_EQ(session.request("GET", "path"), CURLE_FILESIZE_EXCEEDED);
  EXPECT_EQ(session.answer().body, "");
  EXPECT_THAT(log_lines(),
              ElementsAre(url_start() + "path: The answer is larger than 67108864 bytes"));
}

// Signals.

namespace {

bool sigpipe_is_as_before() {
  struct sigaction action {};
  sigset_t blocked, pending;
  sigaction(SIGPIPE, nullptr, &action);
  pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
  sigpending(&pending);
  return action.sa_handler == SIG_DFL && sigismember(&blocked, SIGPIPE) == 0 &&
         sigismember(&pending, SIGPIPE) == 0;
}

}  // namespace

TEST_F(HttpsAnswerTest, ServerThatHangsUpWhileWeWriteRaisesNoSignal) {
  handle = [](Exchange& exchange) { exchange.close(true); };
  const int result = in_child([this] {
    signal(SIGPIPE, SIG_DFL);
    server.start();
    const std::string large(20'000'000, 'x');
    for (int i = 0; i < 10; ++i) {
      HttpsSession session(endpoint());
      EXPECT_NE(session.request("POST", "path", &large), 0);
    }
    EXPECT_TRUE(sigpipe_is_as_before());
    server.stop();
    return 0;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(HttpsAnswerTest, IdleConnectionThatTheServerCutRaisesNoSignal) {
  std::binary_semaphore cut(0);
  handle = [&cut](Exchange& exchange) {
    exchange.answer(200, "ok");
    cut.acquire();
    exchange.close(true);
  };
  const int result = in_child([this, &cut] {
    signal(SIGPIPE, SIG_DFL);
    server.start();
    for (int round = 1; round <= 20; ++round) {
      EXPECT_EQ(get(endpoint()), 0);
      cut.release();
      EXPECT_TRUE(server.wait_until_ended(round));
      // Every other time the dead connection is not tried again but closed from our side.
      if (round % 2 == 0) replace_certificate("host");
    }
    EXPECT_TRUE(sigpipe_is_as_before());
    server.stop();
    return 0;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(HttpsAnswerTest, PendingSigpipeOfTheCallerStaysPending) {
  const int result = in_child([this] {
    server.start();
    sigset_t sigpipe, pending;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigpipe, nullptr);
    raise(SIGPIPE);
    EXPECT_EQ(get(endpoint()), 0);
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 1);
    return 0;
  });
  EXPECT_EQ(result, 0);
}
