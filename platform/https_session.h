// Consecutive HTTPS requests to one server, over a connection that outlives the session.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "platform/https_connection.h"

namespace corvane {

inline constexpr std::size_t kAnswerLimit = std::size_t{64} << 20;
inline constexpr long kDefaultTimeoutSeconds = 300;

// The first request takes a connection from the process's pool, and the destructor returns it. A
// connection on which a request failed, or whose credentials have changed on disk, is not used
// again. For use by one thread at a time.
class HttpsSession {
 public:
  explicit HttpsSession(HttpsEndpoint endpoint, std::size_t answer_limit = kAnswerLimit);
  ~HttpsSession();
  HttpsSession(const HttpsSession&) = delete;
  HttpsSession& operator=(const HttpsSession&) = delete;

  // For each whole transfer; below 1, the default. Connecting may take at most 30 of the seconds.
  void set_timeout(long seconds);

  // Returns 0 if the transfer worked, whatever the HTTP status, else libcurl's code. A failure is
  // logged at level 16 with the tag "CVClientCURL", without the query. If others have access to the
  // private key, returns CURLE_SSL_CERTPROBLEM without connecting.
  int request(const char* method, const std::string& path, const std::string* body = nullptr);

  // Of the last request; 0 and empty before the first one and after a failure.
  const HttpsAnswer& answer() const { return answer_; }

 private:
  int fail(CURLcode code, const std::string& path, const std::string& why) const;

  HttpsEndpoint endpoint_;
  std::size_t answer_limit_;
  long timeout_seconds_ = kDefaultTimeoutSeconds;
  std::unique_ptr<HttpsConnection> connection_;
  HttpsAnswer answer_;
};

}  // namespace corvane
