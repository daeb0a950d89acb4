// Watches over a TLS server's connections, each of which occupies a thread: none may take long to
// say what it wants, none may say too much, and idle ones make way when others wait.
#pragma once

#include <openssl/ssl.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>

namespace corvane::host {

struct ConnectionLimits {
  std::chrono::seconds reading{10};  // for the handshake and one request's header and body
  std::size_t header_bytes = std::size_t{64} << 10;  // of one request's header, or of the handshake
  std::size_t body_bytes = std::size_t{2} << 20;
};

// A connection that is broken off is shut down underneath its thread, whose next read or write then
// fails. Thread-safe. Outlives the SSL_CTX that it watches.
class ConnectionGuard {
 public:
  using Clock = std::chrono::steady_clock;

  explicit ConnectionGuard(ConnectionLimits limits) : limits_(limits) {}

  // Watches the connections that are made from `context`.
  void attach(SSL_CTX* context);

  // The connection that this thread serves; null when it serves none.
  static const SSL* current();

  // The request's header has been read, its body may come.
  void header_read(const SSL* connection);
  // The request has been read; answering it may take so long.
  void answering(const SSL* connection, std::chrono::seconds allowed);
  // The answer has been written.
  void idle(const SSL* connection);

  // Breaks off what has passed its time, and idle connections too when `make_room`.
  void sweep(Clock::time_point now, bool make_room);
  // Breaks off every connection, those that are still to come included.
  void close_all();

 private:
  enum class State { kReading, kReadingBody, kAnswering, kIdle };
  struct Connection {
    int socket;
    State state;
    Clock::time_point deadline;
    std::size_t bytes = 0;  // received since the last answer
  };

  static ConnectionGuard* of(const SSL* connection);
  static void on_state(const SSL* connection, int where, int value);
  static void on_message(int written, int version, int content_type, const void* data,
                         std::size_t length, SSL* connection, void* guard);
  static void on_free(void* parent, void* pointer, CRYPTO_EX_DATA* data, int index, long argl,
                      void* argp);

  void begin(const SSL* connection);
  void received(const SSL* connection, std::size_t bytes);
  void set_state(const SSL* connection, State state, std::chrono::seconds allowed);
  void forget(const SSL* connection);

  const ConnectionLimits limits_;
  std::mutex mutex_;
  std::map<const SSL*, Connection> connections_;
  bool closed_ = false;
};

}  // namespace corvane::host
