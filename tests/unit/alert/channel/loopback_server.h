// A server of a test's own on 127.0.0.1, without encryption: what it says is up to the test.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "companions/alert/channel/wakeup.h"

namespace corvane::alert {

// One client's connection, as long as the handler runs.
class Conversation {
 public:
  Conversation(int socket, int stop) : socket_(socket), stop_(stop) {}

  // Reads up to and including `end`; less if the client leaves or the server stops first.
  std::string read_until(std::string_view end);
  std::string read_bytes(std::size_t count);
  void send(std::string_view text) const;
  // Waits until the client leaves or the server stops.
  void wait_until_left();

 private:
  bool read_more();

  int socket_;
  int stop_;
  std::string read_;
};

// Serves one client after the other on a thread of its own.
class LoopbackServer {
 public:
  explicit LoopbackServer(std::function<void(Conversation&)> handler);
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  // "127.0.0.1:12345"; for "0.0.0.0", which leads here as well, with that host.
  std::string at(const std::string& host = "127.0.0.1") const {
    return host + ":" + std::to_string(port_);
  }
  int connections() const { return connections_; }

 private:
  void serve();

  std::function<void(Conversation&)> handler_;
  StopFlag stop_;
  int listener_;
  int port_ = 0;
  std::atomic<int> connections_{0};
  std::thread thread_;
};

// An HTTP request as it came.
struct HttpReceived {
  std::string line;
  std::vector<std::string> headers;
  std::string body;
};

// Answers each request with this text, and keeps the requests.
class HttpReceiver {
 public:
  explicit HttpReceiver(std::string answer)
      : answer_(std::move(answer)), server([this](Conversation& client) { receive(client); }) {}

  // "HTTP/1.1 302 Moved" and its headers; the connection is closed after it.
  void set_answer(const std::string& answer) {
    const std::lock_guard<std::mutex> guard(mutex_);
    answer_ = answer;
  }
  std::vector<HttpReceived> requests() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return requests_;
  }

 private:
  void receive(Conversation& client);

  mutable std::mutex mutex_;
  std::string answer_;
  std::vector<HttpReceived> requests_;

 public:
  LoopbackServer server;  // the last: it ends before the rest does
};

}  // namespace corvane::alert
