// The host product's HTTPS client: one authenticated request to the product's web service.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

class CurlClient;
class CVTokenManager;  // signs requests with tokens; no request of this system uses one

// Which client certificate authenticates a request.
enum cert_type : std::int32_t {
  CERT_TYPE_OF_CLIENT = 0,  // whatever the caller's type is
  CERT_TYPE_HOST = 1,       // credentials/host.pem, host.key
  CERT_TYPE_SERVICE = 2,    // credentials/service.pem, service.key
};

enum CVCurlSessionType : std::int32_t {
  CURL_SESSION_NONE = 0,
  CURL_SESSION_CERTIFICATE = 1,  // the client certificate alone authenticates the session
};

// TLS 1.2 or later; the server's certificate is checked against credentials/ca.pem and the server's
// name; a private key that anyone but its owner can read is refused. Connections stay open and are
// shared by all short-lived clients of a process. A broken connection raises no signal, and the
// process's signal dispositions do not change. An answer over 64 MiB is refused. For use by one
// thread at a time.
//
// The request operations return 0 if the transfer worked (whatever the HTTP status), else libcurl's
// error code, and log the explanation, if any, at level 16 with the tag "CVClientCURL".
class CVClientCURL {
 public:
  // Only server, port and certificate type are used; the other arguments are for other clients of
  // the product.
  CVClientCURL(const std::string& server, int port, cert_type certificate,
               CVCurlSessionType session, CVTokenManager* token_manager, const std::string& token,
               bool verify_peer, bool use_proxy, bool follow_redirects,
               const std::string& proxy_host, const std::string& proxy_user,
               const std::string& proxy_password, const std::string& user_agent,
               const std::string& accept, const std::string& content_type, bool compressed,
               bool& token_expired, const std::string& audit_id, int retries);
  virtual ~CVClientCURL();
  CVClientCURL(const CVClientCURL&) = delete;
  CVClientCURL& operator=(const CVClientCURL&) = delete;

  // The limit for a whole transfer in seconds, of which connecting may take at most 30. The
  // default, also for values below 1, is 300.
  void setupCurlOperationTimeout(long seconds);

  // `path` is relative to the server's root and is sent without re-encoding; a path with spaces or
  // control characters is refused. Bodies are JSON.
  virtual int get(const std::string& path);
  virtual int post(const std::string& path, const std::string& body, CurlClient* caller);
  virtual int patch(const std::string& path, const std::string& body, CurlClient* caller);
  virtual int remove(const std::string& path);

  // Of the last request; 0 and empty before the first one and after a failed transfer: half an
  // answer does not count.
  long http_status() const;
  const std::string& response_body() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};
