// One request to the product's REST interface.
#pragma once

#include <cstdint>
#include <string>

#include "platform/cv_client_curl.h"

enum RESTCommandType : std::int32_t {
  REST_GET = 0,     // sends only the path; the only method that the service uses
  REST_POST = 1,    // with the body
  REST_PATCH = 2,   // with the body
  REST_DELETE = 3,  // sends the path only
};

// For one request: construct, execute(), get_response(). Logs with the method's name as tag; throws
// nothing itself.
class CurlClient {
 public:
  // `path` is relative to the server's root, query string included. Does no I/O.
  CurlClient(const std::string& host, const std::string& path, RESTCommandType command_type,
             const std::string& body);

  // Performs the request; if the server answers 401 to the host certificate, repeats it with the
  // service certificate. Returns 0 on success, else the transport's error code or the HTTP status.
  // A repeated request that reaches the server counts as success, whatever its status: callers
  // check the body.
  int execute();

  // The body of the last answer.
  std::string get_response() const;

  cert_type getCertType() const;

  // A new client for the server of this request, owned by the caller. CERT_TYPE_OF_CLIENT means
  // getCertType().
  CVClientCURL* get_lib_curl(cert_type certificate) const;

  // The transport's result; -1 for a null client and for an unknown command type.
  int send_curl_request(CVClientCURL* client);

  // 0 if the transport worked and the HTTP status is 200 to 206, else the error.
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
