#include "tests/unit/alert/channel/loopback_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace corvane::alert {

namespace {

// False when the server stops first.
bool wait_for(int socket, int stop) {
  pollfd waited[] = {{socket, POLLIN, 0}, {stop, POLLIN, 0}};
  while (poll(waited, 2, -1) < 0) {
  }
  return waited[1].revents == 0;
}

}  // namespace

bool Conversation::read_more() {
  char bytes[4096];
  if (!wait_for(socket_, stop_)) return false;
  const ssize_t count = recv(socket_, bytes, sizeof bytes, 0);
  if (count > 0) read_.append(bytes, static_cast<std::size_t>(count));
  return count > 0;
}

std::string Conversation::read_until(std::string_view end) {
  while (read_.find(end) == std::string::npos) {
    if (!read_more()) return read_bytes(read_.size());
  }
  return read_bytes(read_.find(end) + end.size());
}

std::string Conversation::read_bytes(std::size_t count) {
  while (read_.size() < count && read_more()) {
  }
  std::string bytes = read_.substr(0, count);
  read_.erase(0, bytes.size());
  return bytes;
}

void Conversation::send(std::string_view text) const {
  ::send(socket_, text.data(), text.size(), MSG_NOSIGNAL);
}

void Conversation::wait_until_left() {
  while (read_more()) {
  }
}

LoopbackServer::LoopbackServer(std::function<void(Conversation&)> handler)
    : handler_(std::move(handler)), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener_, generic, size) != 0 || listen(listener_, 8) != 0 ||
      getsockname(listener_, generic, &size) != 0) {
    throw std::runtime_error("no loopback server");
  }
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { serve(); });
}

LoopbackServer::~LoopbackServer() {
  stop_.ask();
  thread_.join();
  close(listener_);
}

void LoopbackServer::serve() {
  while (wait_for(listener_, stop_.descriptor())) {
    const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) continue;
    ++connections_;
    Conversation conversation(client, stop_.descriptor());
    handler_(conversation);
    close(client);
  }
}

void HttpReceiver::receive(Conversation& client) {
  HttpReceived request;
  request.line = client.read_until("\r\n");
  std::size_t length = 0;
  for (std::string line; (line = client.read_until("\r\n")).size() > 2;) {
    if (line.starts_with("Content-Length: ")) length = std::stoul(line.substr(16));
    request.headers.push_back(line.substr(0, line.size() - 2));
  }
  request.body = client.read_bytes(length);
  const std::lock_guard<std::mutex> guard(mutex_);
  requests_.push_back(request);
  client.send(answer_ + "\r\nConnection: close\r\n\r\nthe body of the answer");
}

}  // namespace corvane::alert
