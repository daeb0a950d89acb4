// One libcurl handle with its kept-alive connection and TLS sessions, and the idle ones of a
// process.
#pragma once

#include <curl/curl.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <memory>
#include <string>

#include "platform/credentials.h"

namespace corvane {

// The server and the client of a connection.
struct HttpsEndpoint {
  std::string server;  // a host name or address; an IPv6 address with or without brackets
  int port = 0;
  Credentials credentials;
  std::string connect_to;  // the host to connect to instead of resolving `server`; may be empty
  bool operator==(const HttpsEndpoint&) const = default;
};

struct HttpsRequest {
  const char* method = "GET";         // "GET", "POST", "PATCH", "DELETE"
  std::string path;                   // after the port and "/", sent as it is
  const std::string* body = nullptr;  // JSON, sent with POST and PATCH
  long timeout_seconds = 0;           // of the whole transfer
  std::size_t answer_limit = 0;       // bytes of the answer's body
};

struct HttpsAnswer {
  long status = 0;
  std::string body;
};

// Belongs to the process that created it: in a child, destruction leaves the parent's sockets
// alone, and nothing else may be called. For use by one thread at a time.
class HttpsConnection {
 public:
  HttpsConnection(HttpsEndpoint endpoint, const CredentialsStamp& stamp);
  ~HttpsConnection();
  HttpsConnection(const HttpsConnection&) = delete;
  HttpsConnection& operator=(const HttpsConnection&) = delete;

  bool serves(const HttpsEndpoint& endpoint, const CredentialsStamp& stamp) const;
  bool leads_to(const HttpsEndpoint& endpoint) const { return endpoint_ == endpoint; }
  bool is_of_this_process() const { return owner_ == getpid(); }

  // Performs one request. Returns libcurl's code; the answer is valid if it is CURLE_OK. An answer
  // over the limit ends with CURLE_FILESIZE_EXCEEDED. Raises no signal.
  CURLcode perform(const HttpsRequest& request, HttpsAnswer& answer);

  // Why the last request failed; may be empty.
  std::string failure() const { return failure_.data(); }

 private:
  struct CloseHandle {
    void operator()(CURL* handle) const noexcept;
  };
  struct FreeList {
    void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
  };
  using ListPtr = std::unique_ptr<curl_slist, FreeList>;

  template <typename Value>
  void set(CURLoption option, Value value) {
    if (code_ == CURLE_OK) code_ = curl_easy_setopt(handle_.get(), option, value);
  }
  void set_peer();
  void set_callbacks();
  void set_request(const HttpsRequest& request);
  static std::size_t on_data(char* data, std::size_t size, std::size_t count, void* connection);

  pid_t owner_ = getpid();
  HttpsEndpoint endpoint_;
  CredentialsStamp stamp_;
  CURLcode code_ = CURLE_OK;  // the first failure to set an option
  std::array<char, CURL_ERROR_SIZE> failure_{};
  std::string received_;
  std::size_t answer_limit_ = 0;
  bool over_limit_ = false;
  ListPtr json_headers_;
  ListPtr connect_to_;
  std::unique_ptr<CURL, CloseHandle> handle_;  // destroyed first: it uses everything above
};

// Takes an idle connection for the endpoint and these credentials from the process's pool, or
// creates one. Only the caller uses it.
std::unique_ptr<HttpsConnection> take_connection(const HttpsEndpoint& endpoint,
                                                 const CredentialsStamp& stamp);

// Keeps a connection for the next caller; beyond a few idle ones the oldest is closed. A connection
// that a child inherited from its parent is never reused.
void keep_connection(std::unique_ptr<HttpsConnection> connection);

}  // namespace corvane
