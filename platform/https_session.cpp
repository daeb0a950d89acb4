#include "platform/https_session.h"

#include <string_view>
#include <utility>

#include "platform/debug_log.h"
#include "platform/master_config.h"

namespace corvane {

namespace {

constexpr const char* kTag = "CVClientCURL";

bool is_server_name(std::string_view server) {
  if (server.starts_with('[') && server.ends_with(']')) {
    server = server.substr(1, server.size() - 2);
  }
  return is_host_name(server);
}

}  // namespace

HttpsSession::HttpsSession(HttpsEndpoint endpoint, std::size_t answer_limit)
    : endpoint_(std::move(endpoint)), answer_limit_(answer_limit) {}

HttpsSession::~HttpsSession() {
  if (connection_) keep_connection(std::move(connection_));
}

void HttpsSession::set_timeout(long seconds) {
  timeout_seconds_ = seconds > 0 ? seconds : kDefaultTimeoutSeconds;
}

int HttpsSession::request(const char* method, const std::string& path, const std::string* body) {
  answer_ = {};
  // Any other character in the name would change where the parts of the address begin.
  if (!is_server_name(endpoint_.server)) {
    return fail(CURLE_URL_MALFORMAT, path, "the server's name is no host name");
  }
  if (const std::string refusal = key_refusal(endpoint_.credentials.key); !refusal.empty()) {
    return fail(CURLE_SSL_CERTPROBLEM, path, refusal);
  }
  const CredentialsStamp stamp = stamp_of(endpoint_.credentials);
  if (connection_ && !connection_->serves(endpoint_, stamp)) {
    keep_connection(std::exchange(connection_, nullptr));
  }
  if (!connection_) connection_ = take_connection(endpoint_, stamp);
  const HttpsRequest request{method, path, body, timeout_seconds_, answer_limit_};
  const CURLcode result = connection_->perform(request, answer_);
  if (result == CURLE_OK) return 0;
  const std::string why = connection_->failure();
  connection_.reset();
  answer_ = {};
  return fail(result, path, why);
}

int HttpsSession::fail(CURLcode code, const std::string& path, const std::string& why) const {
  if (!why.empty()) {
    const std::string url = "https://" + endpoint_.server + ":" + std::to_string(endpoint_.port) +
                            "/" + path.substr(0, path.find('?'));
    logmsgf(kLogError, kTag, "%s: %s", url.c_str(), why.c_str());
  }
  return code;
}

}  // namespace corvane
