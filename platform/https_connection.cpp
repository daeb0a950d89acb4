#include "platform/https_connection.h"

#include <sys/socket.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <new>
#include <utility>

#include "platform/sigpipe_blocked.h"
#include "platform/standard_descriptors.h"

namespace corvane {

namespace {

constexpr long kOn = 1;
constexpr long kOff = 0;
constexpr long kMostConnectSeconds = 30;
constexpr long kMostSeconds = INT_MAX / 1000;  // libcurl counts in milliseconds

std::string bracketed(const std::string& host) {
  return host.find(':') == std::string::npos || host.starts_with('[') ? host : "[" + host + "]";
}

// The tools that this process starts do not inherit the socket.
curl_socket_t open_socket(void* /*data*/, curlsocktype /*purpose*/, curl_sockaddr* address) {
  return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

}  // namespace

void HttpsConnection::CloseHandle::operator()(CURL* handle) const noexcept {
  const SigpipeBlocked sigpipe_blocked;
  curl_easy_cleanup(handle);
}

HttpsConnection::HttpsConnection(HttpsEndpoint endpoint, const CredentialsStamp& stamp)
    : endpoint_(std::move(endpoint)), stamp_(stamp), handle_(curl_easy_init()) {
  if (!handle_) {
    code_ = CURLE_FAILED_INIT;
    return;
  }
  json_headers_.reset(curl_slist_append(nullptr, "Content-Type: application/json"));
  // Otherwise libcurl asks for permission before it sends a larger body, and waits for it.
  if (!json_headers_ || curl_slist_append(json_headers_.get(), "Expect:") == nullptr) {
    code_ = CURLE_OUT_OF_MEMORY;
    return;
  }
  set_callbacks();
  set_peer();
}

HttpsConnection::~HttpsConnection() {
  // In a child the socket is still the parent's; closing it properly would end the parent's
  // connection.
  if (!is_of_this_process()) static_cast<void>(handle_.release());
}

void HttpsConnection::set_callbacks() {
  set(CURLOPT_NOSIGNAL, kOn);
  set(CURLOPT_ERRORBUFFER, failure_.data());
  set(CURLOPT_OPENSOCKETFUNCTION, &open_socket);
  set(CURLOPT_WRITEFUNCTION, &HttpsConnection::on_data);
  set(CURLOPT_WRITEDATA, static_cast<void*>(this));
}

void HttpsConnection::set_peer() {
  set(CURLOPT_PROTOCOLS_STR, "https");
  set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  set(CURLOPT_FOLLOWLOCATION, kOff);
  set(CURLOPT_PATH_AS_IS, kOn);
  set(CURLOPT_PROXY, "");  // none, whatever the environment says
  set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  set(CURLOPT_SSL_VERIFYPEER, kOn);
  set(CURLOPT_SSL_VERIFYHOST, 2L);
  set(CURLOPT_CAINFO, endpoint_.credentials.authorities.c_str());
  // libcurl's default is the system's directory of authorities, which are not the product's.
  set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  set(CURLOPT_SSLCERT, endpoint_.credentials.certificate.c_str());
  set(CURLOPT_SSLKEY, endpoint_.credentials.key.c_str());
  set(CURLOPT_KEYPASSWD,
      "");  // a key with a password fails; without this, libcurl would ask on the terminal
  if (code_ != CURLE_OK || endpoint_.connect_to.empty()) return;
  const std::string connect_to = "::" + bracketed(endpoint_.connect_to) + ":";
  connect_to_.reset(curl_slist_append(nullptr, connect_to.c_str()));
  if (!connect_to_) code_ = CURLE_OUT_OF_MEMORY;
  set(CURLOPT_CONNECT_TO, connect_to_.get());
}

void HttpsConnection::set_request(const HttpsRequest& request) {
  const std::string url = "https://" + bracketed(endpoint_.server) + ":" +
                          std::to_string(endpoint_.port) + "/" + request.path;
  set(CURLOPT_URL, url.c_str());
  // From the address alone libcurl would remove "#..." and encode bytes that are not ASCII.
  set(CURLOPT_REQUEST_TARGET, ("/" + request.path).c_str());
  if (request.body != nullptr) {
    set(CURLOPT_POST, kOn);
    set(CURLOPT_POSTFIELDS, request.body->c_str());
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body->size()));
    set(CURLOPT_HTTPHEADER, json_headers_.get());
  } else {
    set(CURLOPT_HTTPGET, kOn);
    set(CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
  }
  set(CURLOPT_CUSTOMREQUEST, request.method);
  const long seconds = std::min(request.timeout_seconds, kMostSeconds);
  set(CURLOPT_TIMEOUT, seconds);
  set(CURLOPT_CONNECTTIMEOUT, std::min(seconds, kMostConnectSeconds));
  set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(request.answer_limit));
  answer_limit_ = request.answer_limit;
}

std::size_t HttpsConnection::on_data(char* data, std::size_t size, std::size_t count,
                                     void* connection) {
  auto& self = *static_cast<HttpsConnection*>(connection);
  const std::size_t bytes = size * count;
  self.over_limit_ = bytes > self.answer_limit_ - self.received_.size();
  if (self.over_limit_) return 0;
  try {
    self.received_.append(data, bytes);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  return bytes;
}

bool HttpsConnection::serves(const HttpsEndpoint& endpoint, const CredentialsStamp& stamp) const {
  return is_of_this_process() && leads_to(endpoint) && stamp_ == stamp;
}

CURLcode HttpsConnection::perform(const HttpsRequest& request, HttpsAnswer& answer) {
  failure_[0] = '\0';
  received_.clear();
  over_limit_ = false;
  set_request(request);
  CURLcode result = code_;
  if (result == CURLE_OK) {
    const StandardDescriptorsFilled descriptors_filled;
    const SigpipeBlocked sigpipe_blocked;
    result = curl_easy_perform(handle_.get());
  }
  if (over_limit_) result = CURLE_FILESIZE_EXCEEDED;
  if (result == CURLE_FILESIZE_EXCEEDED) {
    std::snprintf(failure_.data(), failure_.size(), "The answer is larger than %zu bytes",
                  answer_limit_);
  }
  if (result == CURLE_OK) {
    result = curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &answer.status);
    answer.body = std::move(received_);
  }
  received_ = {};  // may be as large as the limit, and an idle connection may live long
  return result;
}

}  // namespace corvane
