#include "companions/alert/channel/curl_transfer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <new>
#include <stdexcept>

#include "platform/sigpipe_blocked.h"

namespace corvane::alert {

namespace {

constexpr long kMostConnectSeconds = 30;
constexpr int kLookEveryMs = 1000;

// Programs that start meanwhile must not inherit the socket.
curl_socket_t open_socket(void* /*context*/, curlsocktype /*purpose*/, curl_sockaddr* address) {
  return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

std::size_t throw_away(char* /*data*/, std::size_t size, std::size_t count, void* /*context*/) {
  return size * count;
}

struct CloseMulti {
  void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
};

// Removes the handle again whatever happens.
struct Added {
  Added(CURLM* into, CURL* added) : multi(into), handle(added) {
    curl_multi_add_handle(multi, handle);
  }
  ~Added() { curl_multi_remove_handle(multi, handle); }
  Added(const Added&) = delete;
  Added& operator=(const Added&) = delete;
  CURLM* multi;
  CURL* handle;
};

std::string part(CURLU* url, CURLUPart which) {
  char* text = nullptr;
  if (curl_url_get(url, which, &text, 0) != CURLUE_OK) return {};
  std::string copy = text;
  curl_free(text);
  return copy;
}

bool is_loopback(const std::string& host) {
  const bool is_ipv4 = std::count(host.begin(), host.end(), '.') == 3 &&
                       host.find_first_not_of("0123456789.") == std::string::npos;
  return host == "localhost" || host == "[::1]" || (is_ipv4 && host.starts_with("127."));
}

}  // namespace

void append(CurlListPtr& list, const std::string& line) {
  curl_slist* longer = curl_slist_append(list.get(), line.c_str());
  if (longer == nullptr) throw std::bad_alloc();
  static_cast<void>(list.release());
  list.reset(longer);
}

CurlTransfer::CurlTransfer(const std::string& url, const char* protocols,
                           const std::string& ca_file)
    : handle_(curl_easy_init()) {
  if (handle_ == nullptr) throw std::runtime_error("cannot create a libcurl handle");
  set(CURLOPT_PROTOCOLS_STR, protocols);
  set(CURLOPT_URL, url.c_str());
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_PROXY, "");
  set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  if (!ca_file.empty()) set(CURLOPT_CAINFO, ca_file.c_str());
  set(CURLOPT_OPENSOCKETFUNCTION, &open_socket);
  set(CURLOPT_WRITEFUNCTION, &throw_away);
}

CURLcode CurlTransfer::perform(long seconds, const StopFlag& stop) {
  set(CURLOPT_TIMEOUT, seconds);
  set(CURLOPT_CONNECTTIMEOUT, std::min(seconds, kMostConnectSeconds));
  const SigpipeBlocked blocked;
  const std::unique_ptr<CURLM, CloseMulti> multi(curl_multi_init());
  if (multi == nullptr) throw std::runtime_error("cannot create a libcurl handle");
  const Added added(multi.get(), handle_.get());
  curl_waitfd stopped{stop.descriptor(), CURL_WAIT_POLLIN, {}};
  for (int running{};;) {
    if (stop.is_asked()) return CURLE_ABORTED_BY_CALLBACK;
    if (curl_multi_perform(multi.get(), &running) != CURLM_OK) return CURLE_FAILED_INIT;
    if (running == 0) break;
    curl_multi_poll(multi.get(), &stopped, 1, kLookEveryMs, nullptr);
  }
  int left{};
  const CURLMsg* ended = curl_multi_info_read(multi.get(), &left);
  return ended == nullptr ? CURLE_FAILED_INIT : ended->data.result;
}

long CurlTransfer::status() const {
  long status{};
  curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &status);
  return status;
}

std::string CurlTransfer::failure(CURLcode code) const {
  const std::string text = curl_easy_strerror(code);
  return status() == 0 ? text : text + " (last reply " + std::to_string(status()) + ")";
}

void CurlTransfer::check(CURLcode code) {
  if (code != CURLE_OK) throw std::runtime_error(curl_easy_strerror(code));
}

UrlParts parts_of_url(const Setting& setting, const std::string& url) {
  const std::string key = setting.key;
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parsed(curl_url(), &curl_url_cleanup);
  if (parsed == nullptr || curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(),
                                        CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK) {
    throw std::runtime_error(key + " is not a valid URL");
  }
  if (!part(parsed.get(), CURLUPART_USER).empty() ||
      !part(parsed.get(), CURLUPART_PASSWORD).empty()) {
    throw std::runtime_error(key + " must not contain a user name or password");
  }
  const std::string host = part(parsed.get(), CURLUPART_HOST);
  if (host.empty()) throw std::runtime_error(key + " has no host name");
  return {part(parsed.get(), CURLUPART_SCHEME), host, is_loopback(host)};
}

}  // namespace corvane::alert
