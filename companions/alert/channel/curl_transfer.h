// One transfer to a server that the configuration names, which a stop request breaks off.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

#include "companions/alert/channel/wakeup.h"
#include "platform/c_handles.h"

namespace corvane::alert {

struct FreeCurlList {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using CurlListPtr = std::unique_ptr<curl_slist, FreeCurlList>;
// Throws std::bad_alloc.
void append(CurlListPtr& list, const std::string& line);

// The server's certificate and name are checked; redirections are not followed, proxies of the
// environment not used. What the server sends is thrown away. Everything that can fail throws
// std::runtime_error with libcurl's text.
class CurlTransfer {
 public:
  // `protocols`: libcurl's names of those allowed, comma-separated. `ca_file`: empty for the
  // system's.
  CurlTransfer(const std::string& url, const char* protocols, const std::string& ca_file);

  template <typename Value>
  void set(CURLoption option, Value value) {
    check(curl_easy_setopt(handle_.get(), option, value));
  }

  // CURLE_ABORTED_BY_CALLBACK when it was broken off.
  CURLcode perform(long seconds, const StopFlag& stop);
  // The server's last answer, by the protocol's number; 0: none.
  long status() const;
  // libcurl's text for the code, with the server's last answer.
  std::string failure(CURLcode code) const;

 private:
  static void check(CURLcode code);

  CurlPtr handle_;
};

struct UrlParts {
  std::string scheme;
  std::string host;
  bool is_loopback = false;  // "localhost" or a literal loopback address
};
// Throws std::runtime_error for what is no address, names no host, or holds a user or password,
// which belong into a file.
UrlParts parts_of_url(const std::string& url);

}  // namespace corvane::alert
