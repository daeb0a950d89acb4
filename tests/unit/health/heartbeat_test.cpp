#include "health/heartbeat.h"

#include <gtest/gtest.h>

#include "tests/unit/alert/channel/loopback_server.h"

namespace corvane::health {
namespace {

constexpr char kOk[] = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";

std::string call(const std::string& url, bool is_healthy = true) {
  Configured configured;
  configured.heartbeat_url = url;
  return call_heartbeat(configured, is_healthy);
}

TEST(Heartbeat, IsCalledAsItStandsWhenAllIsWell) {
  alert::HttpReceiver receiver(kOk);
  EXPECT_EQ(call("http://" + receiver.server.at() + "/a/b?c=d"), "");
  ASSERT_EQ(receiver.requests().size(), 1U);
  EXPECT_EQ(receiver.requests()[0].line, "GET /a/b?c=d HTTP/1.1\r\n");
}

TEST(Heartbeat, OtherwiseItIsTheOneOfAFailure) {
  alert::HttpReceiver receiver(kOk);
  EXPECT_EQ(call("http://" + receiver.server.at() + "/a?c=d", false), "");
  ASSERT_EQ(receiver.requests().size(), 1U);
  EXPECT_EQ(receiver.requests()[0].line, "GET /a/fail?c=d HTTP/1.1\r\n");
}

TEST(Heartbeat, TheFailureIsAddedToThePath) {
  EXPECT_EQ(failure_url("https://h/a"), "https://h/a/fail");
  EXPECT_EQ(failure_url("https://h/a/"), "https://h/a/fail");
  EXPECT_EQ(failure_url("https://h"), "https://h/fail");
  EXPECT_EQ(failure_url("https://h/a?b#c"), "https://h/a/fail?b#c");
  EXPECT_EQ(failure_url("https://h/a#c?b"), "https://h/a/fail#c?b");
}

TEST(Heartbeat, WithoutAnAddressThereIsNone) { EXPECT_EQ(call(""), ""); }

TEST(Heartbeat, IsTakenByASuccessAlone) {
  alert::HttpReceiver receiver("");
  for (const auto& [status, why] :
       std::vector<std::pair<int, std::string>>{{200, ""},
                                                {299, ""},
                                                {300, "127.0.0.1 answered 300"},
                                                {404, "127.0.0.1 answered 404"}}) {
    receiver.set_answer("HTTP/1.1 " + std::to_string(status) +
                        " X\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(call("http://" + receiver.server.at() + "/"), why);
  }
}

TEST(Heartbeat, TheAddressIsNotNamedInAFailure) {
  const std::string why = call("http://127.0.0.1:1/secret");
  EXPECT_TRUE(why.starts_with("127.0.0.1: ")) << why;
  EXPECT_EQ(why.find("secret"), std::string::npos) << why;
  EXPECT_EQ(call("http://192.0.2.1/secret"),
            "HEARTBEAT_URL must begin with https:// unless the server is on this machine");
  EXPECT_EQ(call("ftp://127.0.0.1/secret"),
            "HEARTBEAT_URL must begin with https:// unless the server is on this machine");
}

}  // namespace
}  // namespace corvane::health
