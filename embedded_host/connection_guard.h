// Guards the connections of a TLS server, each of which occupies a thread: a client must not take
// too long to send its request or send too much, and idle connections make room when others wait.
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

// Breaking a connection off shuts it down; the next read or write of its thread then fails.
// Thread-safe. Outlives the SSL_CTX that it guards.
class ConnectionGuard {
 public:
  using Clock = std::chrono::steady_clock;

  explicit ConnectionGuard(ConnectionLimits limits) : limits_(limits) {}

  // Guards the connections that are created from `context`.
  void attach(SSL_CTX* context);

  // The connection that this thread serves; null if none.
  static const SSL* current();

  // The header of the request has been read; the body may follow.
  void header_read(const SSL* connection);
  // The request has been read; answering it may take this long.
  void answering(const SSL* connection, std::chrono::seconds allowed);
  // The answer has been written.
  void idle(const SSL* connection);

  // Breaks off connections that have exceeded their time, with `make_room` also idle ones.
  void sweep(Clock::time_point now, bool make_room);
  // Breaks off every connection, including future ones.
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
  void set_state(const SSL* connection, State state, Clock::time_point deadline);
  void forget(const SSL* connection);

  const ConnectionLimits limits_;
  std::mutex mutex_;
  std::map<const SSL*, Connection> connections_;
  bool closed_ = false;
};

}  // namespace corvane::host
