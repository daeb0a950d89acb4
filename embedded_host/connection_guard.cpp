#include "embedded_host/connection_guard.h"

#include <sys/socket.h>

namespace corvane::host {

namespace {

thread_local const SSL* current_connection = nullptr;

}  // namespace

// The guard is stored as application data of the context. The end of a connection is noticed when
// its application data is released.
ConnectionGuard* ConnectionGuard::of(const SSL* connection) {
  return static_cast<ConnectionGuard*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(connection)));
}

void ConnectionGuard::on_free(void* parent, void* pointer, CRYPTO_EX_DATA* /*data*/, int /*index*/,
                              long /*number*/, void* /*argument*/) {
  if (pointer != nullptr) {
    static_cast<ConnectionGuard*>(pointer)->forget(static_cast<const SSL*>(parent));
  }
}

void ConnectionGuard::on_state(const SSL* connection, int where, int /*result*/) {
  if ((where & SSL_CB_HANDSHAKE_START) != 0) of(connection)->begin(connection);
}

void ConnectionGuard::on_message(int written, int /*version*/, int content_type, const void* data,
                                 std::size_t length, SSL* connection, void* guard) {
  if (written != 0 || content_type != SSL3_RT_HEADER || length < SSL3_RT_HEADER_LENGTH) return;
  const auto* header = static_cast<const unsigned char*>(data);
  const std::size_t record = static_cast<std::size_t>(header[3]) * 256 + header[4];
  static_cast<ConnectionGuard*>(guard)->received(connection, SSL3_RT_HEADER_LENGTH + record);
}

void ConnectionGuard::attach(SSL_CTX* context) {
  SSL_CTX_set_app_data(context, this);
  SSL_CTX_set_info_callback(context, on_state);
  SSL_CTX_set_msg_callback(context, on_message);
  SSL_CTX_set_msg_callback_arg(context, this);
}

const SSL* ConnectionGuard::current() { return current_connection; }

void ConnectionGuard::begin(const SSL* connection) {
  current_connection = connection;
  static const int index = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, on_free);
  const int socket = SSL_get_fd(connection);
  const std::lock_guard lock(mutex_);
  if (closed_) {
    ::shutdown(socket, SHUT_RDWR);
    return;
  }
  const auto deadline = Clock::now() + limits_.reading;
  const bool is_new =
      connections_.emplace(connection, Connection{socket, State::kReading, deadline}).second;
  // OpenSSL passes the connection to callbacks as const; its application data may be changed.
  if (is_new) SSL_set_ex_data(const_cast<SSL*>(connection), index, this);
}

void ConnectionGuard::received(const SSL* connection, std::size_t bytes) {
  const std::lock_guard lock(mutex_);
  const auto found = connections_.find(connection);
  if (found == connections_.end()) return;
  Connection& entry = found->second;
  if (entry.state == State::kIdle) {
    entry.state = State::kReading;
    entry.deadline = Clock::now() + limits_.reading;
    entry.bytes = 0;
  }
  entry.bytes += bytes;
  const std::size_t limit =
      limits_.header_bytes + (entry.state == State::kReading ? 0 : limits_.body_bytes);
  if (entry.bytes > limit) ::shutdown(entry.socket, SHUT_RDWR);
}

void ConnectionGuard::set_state(const SSL* connection, State state, Clock::time_point deadline) {
  const std::lock_guard lock(mutex_);
  const auto found = connections_.find(connection);
  if (found == connections_.end()) return;
  found->second.state = state;
  found->second.deadline = deadline;
}

void ConnectionGuard::header_read(const SSL* connection) {
  set_state(connection, State::kReadingBody, Clock::now() + limits_.reading);
}

void ConnectionGuard::answering(const SSL* connection, std::chrono::seconds allowed) {
  set_state(connection, State::kAnswering, Clock::now() + allowed);
}

void ConnectionGuard::idle(const SSL* connection) {
  set_state(connection, State::kIdle, Clock::time_point::max());
}

void ConnectionGuard::forget(const SSL* connection) {
  if (current_connection == connection) current_connection = nullptr;
  const std::lock_guard lock(mutex_);
  connections_.erase(connection);
}

void ConnectionGuard::sweep(Clock::time_point now, bool make_room) {
  const std::lock_guard lock(mutex_);
  for (const auto& [connection, entry] : connections_) {
    if (entry.deadline < now || (make_room && entry.state == State::kIdle)) {
      ::shutdown(entry.socket, SHUT_RDWR);
    }
  }
}

void ConnectionGuard::close_all() {
  const std::lock_guard lock(mutex_);
  closed_ = true;
  for (const auto& [connection, entry] : connections_) ::shutdown(entry.socket, SHUT_RDWR);
}

}  // namespace corvane::host
