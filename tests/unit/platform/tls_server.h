// A TLS server of a test's own that can misbehave: what it sends is up to the test, byte by byte.
#pragma once

#include <openssl/ssl.h>

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace corvane::test {

// One request as it came, and what is done about it.
class Exchange {
 public:
  Exchange(SSL* connection, int socket, int stop, int number, std::string client, std::string head)
      : connection_(connection),
        socket_(socket),
        stop_(stop),
        number_(number),
        client_(std::move(client)),
        head_(std::move(head)) {}

  // The request line and headers, with the empty line that ends them.
  const std::string& head() const { return head_; }
  std::string request_line() const { return head_.substr(0, head_.find("\r\n")); }
  // Of the connection; the first is 1.
  int number() const { return number_; }
  // The common name in the client's certificate.
  const std::string& client() const { return client_; }

  // The body, as long as Content-Length says.
  std::string read_body();

  // These bytes as they are. False when the client no longer listens.
  bool send(std::string_view bytes);

  // A whole answer that keeps the connection open.
  bool answer(int status, std::string_view body);

  // Waits until the client has gone or the server stops.
  void wait_until_left();

  // No further request on this connection; with `abruptly` the client's next write fails.
  void close(bool abruptly = false);
  bool is_closed() const { return closed_; }

 private:
  SSL* connection_;
  int socket_;
  int stop_;
  int number_;
  std::string client_;
  std::string head_;
  bool closed_ = false;
};

// Asks every client for a certificate from the same authority as its own.
class TlsServer {
 public:
  using Handler = std::function<void(Exchange&)>;

  // Reads directory/server.pem, server.key and ca.pem, and listens on an ephemeral port of
  // 127.0.0.1; connections wait until start().
  TlsServer(const std::string& directory, Handler handler);
  ~TlsServer();
  TlsServer(const TlsServer&) = delete;
  TlsServer& operator=(const TlsServer&) = delete;

  void accept_without_certificate();         // of the client; before start()
  void speak_at_most(int protocol_version);  // TLS1_1_VERSION, ...; before start()
  void start();
  // Ends all connections. No start() after it.
  void stop();

  int port() const { return port_; }
  int connections() const { return counted(&Counts::connections); }  // accepted ones
  int handshakes() const { return counted(&Counts::handshakes); }    // completed ones
  int resumptions() const {
    return counted(&Counts::resumptions);
  }  // handshakes of a known session
  std::vector<std::string> request_lines() const;

  // Waits until so many connections have come to their end, for ten seconds at most.
  bool wait_until_ended(int connections) const;

 private:
  struct Counts {
    int connections = 0;
    int handshakes = 0;
    int resumptions = 0;
    int ended = 0;
  };
  struct FreeContext {
    void operator()(SSL_CTX* context) const noexcept { SSL_CTX_free(context); }
  };

  int counted(int Counts::*count) const;
  void accept_connections();
  void serve(int socket, int number);
  void serve_requests(SSL* connection, int socket, int number);

  std::unique_ptr<SSL_CTX, FreeContext> context_;
  Handler handler_;
  int listener_ = -1;
  int stop_[2] = {-1, -1};  // readable once the server stops
  int port_ = 0;
  mutable std::mutex mutex_;
  Counts counts_;
  std::vector<std::string> request_lines_;
  std::list<std::thread> servants_;
  std::thread acceptor_;
};

}  // namespace corvane::test
