// One transfer to a server of the configuration. A stop request interrupts it.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

#include "companions/alert/channel/wakeup.h"
#include "config/settings.h"
#include "platform/c_handles.h"

namespace corvane::alert {

struct FreeCurlList {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using CurlListPtr = std::unique_ptr<curl_slist, FreeCurlList>;
// Throws std::bad_alloc.
void append(CurlListPtr& list, const std::string& line);

// Checks the server's certificate and host name. Does not follow redirects, ignores proxies of the
// environment, and discards what the server sends. Everything that can fail throws
// std::runtime_error with libcurl's text.
class CurlTransfer {
 public:
  // `protocols`: the allowed ones by libcurl's names, separated by commas. `ca_file`: empty means
  // the system's authorities.
  CurlTransfer(const std::string& url, const char* protocols, const std::string& ca_file);

  template <typename Value>
  void set(CURLoption option, Value value) {
    check(curl_easy_setopt(handle_.get(), option, value));
  }

  // `seconds`: the time limit. CURLE_ABORTED_BY_CALLBACK: interrupted by the stop flag.
  CURLcode perform(long seconds, const StopFlag& stop);
  // The protocol's number of the server's last reply; 0: none.
  long status() const;
  // libcurl's text for the code, with the server's last reply.
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
// Throws std::runtime_error for a URL that is not valid, has no host, or contains a user name or
// password, which belong in a file. The text names the setting and does not contain the URL, which
// may be secret.
UrlParts parts_of_url(const Setting& setting, const std::string& url);

}  // namespace corvane::alert
