// One request to the product's REST interface.
#pragma once

#include <cstdint>
#include <string>

#include "platform/cv_client_curl.h"

enum RESTCommandType : std::int32_t {
  REST_GET = 0,     // sends the path only; every request of the service is one
  REST_POST = 1,    // with the body
  REST_PATCH = 2,   // with the body
  REST_DELETE = 3,  // sends the path only
};

// Lives for one request: construct, execute(), get_response(). Logs with the method's name as tag,
// throws nothing of its own.
class CurlClient {
 public:
  // `path` is relative to the server's root, query string included. Does no I/O.
  CurlClient(const std::string& host, const std::string& path, RESTCommandType command_type,
             const std::string& body);

  // Performs the request, and once more with the service certificate when the server answers 401 to
  // the host certificate. Returns 0 on success, else the transport's error code or the HTTP status.
  // A repeated request that reaches the server is a success whatever its status: the callers get
  // the body and judge it.
  int execute();

  // The body of the last answer.
  std::string get_response() const;

  cert_type getCertType() const;

  // A new client for this request's server, owned by the caller. CERT_TYPE_OF_CLIENT means
  // getCertType().
  CVClientCURL* get_lib_curl(cert_type certificate) const;

  // The transport's result; -1 for a null client and for an unknown command type.
  int send_curl_request(CVClientCURL* client);

  // 0 when the transport worked and the HTTP status lies in 200 to 206, else what went wrong.
  int process_curl_response(CVClientCURL* client, int result) const;

 protected:
  cert_type cert_type_ = CERT_TYPE_HOST;

 private:
  RESTCommandType command_type_;
  std::string host_;
  std::string path_;
  std::string body_;
  std::int32_t port_;
  std::int32_t timeout_;  // seconds
  std::string response_;
};
