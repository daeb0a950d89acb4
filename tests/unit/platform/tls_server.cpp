#include "tests/unit/platform/tls_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

namespace corvane::test {

namespace {

struct FreeConnection {
  void operator()(SSL* connection) const noexcept { SSL_free(connection); }
};

void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(std::string("TLS server: ") + what);
}

// A client that hangs up must not end the test program.
void block_sigpipe() {
  sigset_t sigpipe;
  sigemptyset(&sigpipe);
  sigaddset(&sigpipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &sigpipe, nullptr);
}

// Waits until the socket has something to read (or has ended). False when the server stops first.
bool wait_for(int socket, int stop) {
  pollfd waited[] = {{socket, POLLIN, 0}, {stop, POLLIN, 0}};
  while (poll(waited, 2, -1) < 0) {
  }
  return waited[1].revents == 0;
}

// Like SSL_read, and 0 when the server stops.
int read_some(SSL* connection, int socket, int stop, char* buffer, int size) {
  if (SSL_pending(connection) == 0 && !wait_for(socket, stop)) return 0;
  return SSL_read(connection, buffer, size);
}

std::string client_name(SSL* connection) {
  X509* certificate = SSL_get0_peer_certificate(connection);
  if (certificate == nullptr) return "";
  char name[256] = "";
  X509_NAME_get_text_by_NID(X509_get_subject_name(certificate), NID_commonName, name, sizeof name);
  return name;
}

// Reads up to and including the empty line; empty if the client leaves first.
std::string read_head(SSL* connection, int socket, int stop) {
  std::string head;
  char byte = 0;
  while (!head.ends_with("\r\n\r\n")) {
    if (read_some(connection, socket, stop, &byte, 1) <= 0) return "";
    head += byte;
  }
  return head;
}

}  // namespace

std::string Exchange::read_body() {
  constexpr std::string_view kLength = "Content-Length: ";
  const std::size_t at = head_.find(kLength);
  std::size_t missing = at == std::string::npos ? 0 : std::stoul(head_.substr(at + kLength.size()));
  std::string body;
  char buffer[4096];
  while (missing > 0) {
    const int wanted = static_cast<int>(std::min(missing, sizeof buffer));
    const int size = read_some(connection_, socket_, stop_, buffer, wanted);
    if (size <= 0) break;
    body.append(buffer, static_cast<std::size_t>(size));
    missing -= static_cast<std::size_t>(size);
  }
  return body;
}

bool Exchange::send(std::string_view bytes) {
  return SSL_write(connection_, bytes.data(), static_cast<int>(bytes.size())) > 0;
}

bool Exchange::answer(int status, std::string_view body) {
  return send("HTTP/1.1 " + std::to_string(status) + " Reason\r\nContent-Length: " +
              std::to_string(body.size()) + "\r\n\r\n" + std::string(body));
}

void Exchange::wait_until_left() {
  char byte = 0;
  while (read_some(connection_, socket_, stop_, &byte, 1) > 0) {
  }
}

void Exchange::close(bool abruptly) {
  closed_ = true;
  if (!abruptly) return;
  const linger at_once{1, 0};
  setsockopt(socket_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  SSL_set_quiet_shutdown(connection_, 1);
}

TlsServer::TlsServer(const std::string& directory, Handler handler)
    : context_(SSL_CTX_new(TLS_server_method())), handler_(std::move(handler)) {
  SSL_CTX* context = context_.get();
  require(context != nullptr, "context");
  const std::string authority = directory + "/ca.pem";
  require(SSL_CTX_use_certificate_file(context, (directory + "/server.pem").c_str(),
                                       SSL_FILETYPE_PEM) == 1 &&
              SSL_CTX_use_PrivateKey_file(context, (directory + "/server.key").c_str(),
                                          SSL_FILETYPE_PEM) == 1 &&
              SSL_CTX_load_verify_locations(context, authority.c_str(), nullptr) == 1,
          "certificates");
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
  const unsigned char session_context[] = "test";
  SSL_CTX_set_session_id_context(context, session_context, sizeof session_context);

  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  require(bind(listener_, generic, size) == 0 && listen(listener_, 64) == 0 &&
              getsockname(listener_, generic, &size) == 0 && pipe2(stop_, O_CLOEXEC) == 0,
          "socket");
  port_ = ntohs(address.sin_port);
}

void TlsServer::stop() {
  // Closing it would not do: another process may have inherited it.
  [[maybe_unused]] const ssize_t written = write(stop_[1], "x", 1);
  if (acceptor_.joinable()) acceptor_.join();
  for (std::thread& servant : servants_) servant.join();
  servants_.clear();
}

TlsServer::~TlsServer() {
  stop();
  close(stop_[0]);
  close(stop_[1]);
  close(listener_);
}

void TlsServer::accept_without_certificate() {
  SSL_CTX_set_verify(context_.get(), SSL_VERIFY_NONE, nullptr);
}

void TlsServer::speak_at_most(int protocol_version) {
  SSL_CTX_set_security_level(context_.get(), 0);  // which alone admits the old versions
  SSL_CTX_set_min_proto_version(context_.get(), TLS1_VERSION);
  SSL_CTX_set_max_proto_version(context_.get(), protocol_version);
}

void TlsServer::start() {
  acceptor_ = std::thread([this] { accept_connections(); });
}

int TlsServer::counted(int Counts::*count) const {
  const std::lock_guard guard(mutex_);
  return counts_.*count;
}

std::vector<std::string> TlsServer::request_lines() const {
  const std::lock_guard guard(mutex_);
  return request_lines_;
}

void TlsServer::accept_connections() {
  block_sigpipe();
  while (wait_for(listener_, stop_[0])) {
    const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) continue;
    const std::lock_guard guard(mutex_);
    const int number = ++counts_.connections;
    servants_.emplace_back([this, socket, number] { serve(socket, number); });
  }
}

void TlsServer::serve(int socket, int number) {
  const int at_once = 1;  // the client would wait for the rest of a handshake
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &at_once, sizeof at_once);
  const timeval patience{5, 0};
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  const std::unique_ptr<SSL, FreeConnection> connection(SSL_new(context_.get()));
  SSL_set_fd(connection.get(), socket);
  if (SSL_accept(connection.get()) == 1) {
    {
      const std::lock_guard guard(mutex_);
      ++counts_.handshakes;
      if (SSL_session_reused(connection.get()) == 1) ++counts_.resumptions;
    }
    serve_requests(connection.get(), socket, number);
    SSL_shutdown(connection.get());
  }
  close(socket);
  const std::lock_guard guard(mutex_);
  ++counts_.ended;
}

bool TlsServer::wait_until_ended(int connections) const {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (counted(&Counts::ended) < connections) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

void TlsServer::serve_requests(SSL* connection, int socket, int number) {
  const std::string client = client_name(connection);
  for (;;) {
    std::string head = read_head(connection, socket, stop_[0]);
    if (head.empty()) return;
    Exchange exchange(connection, socket, stop_[0], number, client, std::move(head));
    {
      const std::lock_guard guard(mutex_);
      request_lines_.push_back(exchange.request_line());
    }
    handler_(exchange);
    if (exchange.is_closed()) return;
  }
}

}  // namespace corvane::test
