// The web service's transport: HTTPS with client certificates, on cpp-httplib.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "embedded_host/web_service.h"

namespace corvane::host {

struct HttpsOptions {
  std::string address = "127.0.0.1";
  int port = 1556;               // 0: any free port
  std::string credentials = {};  // the directory of ca.pem, server.pem and server.key
  std::string access_log = {};   // empty: none
  std::string fault_file = {};   // empty: none
  std::size_t threads = 64;
  // How long a client may take to send its request, and to accept each piece of the answer.
  // Kept-alive connections may be silent for thirty times as long.
  int time_out_seconds = 10;
};

class ServerFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Serves in its own threads, from construction to destruction.
class HttpsServer {
 public:
  // Takes the time of each request from `now`. `service` and `stopping` outlive the server. Throws
  // ServerFailure if a credential is missing or unusable, or the port is not available.
  HttpsServer(const HttpsOptions& options, WebService& service, std::function<std::int64_t()> now,
              std::atomic<bool>& stopping);
  // Sets `stopping`, breaks off every connection and waits for the threads.
  ~HttpsServer();

  int port() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace corvane::host
