#include "platform/cv_client_curl.h"

#include <array>
#include <climits>

#include "platform/answer_filter.h"
#include "platform/host_product.h"
#include "platform/https_session.h"
#include "platform/master_config.h"

namespace {

corvane::HttpsEndpoint installed_endpoint(const std::string& server, int port,
                                          cert_type certificate) {
  std::array<char, PATH_MAX> root{};
  getCVInstallDir(root.data(), root.size());
  const std::string directory = std::string(root.data()) + "var/credentials";
  const char* name = certificate == CERT_TYPE_SERVICE ? "service" : "host";
  const auto settings = corvane::read_master_settings(corvane::master_config_path());
  return {server, port, corvane::credentials_in(directory, name),
          settings ? settings->connect_to : ""};
}

std::function<std::string(std::string_view)>& answer_filter() {
  static std::function<std::string(std::string_view)> filter;
  return filter;
}

}  // namespace

void corvane::set_answer_filter(std::function<std::string(std::string_view)> filter) {
  answer_filter() = std::move(filter);
}

struct CVClientCURL::Impl {
  corvane::HttpsSession session;
  std::string filtered;

  int request(const char* method, const std::string& path, const std::string* body = nullptr) {
    const int result = session.request(method, path, body);
    if (answer_filter()) filtered = answer_filter()(session.answer().body);
    return result;
  }
  const std::string& body() const { return answer_filter() ? filtered : session.answer().body; }
};

CVClientCURL::CVClientCURL(const std::string& server, int port, cert_type certificate,
                           CVCurlSessionType /*session*/, CVTokenManager* /*token_manager*/,
                           const std::string& /*token*/, bool /*verify_peer*/, bool /*use_proxy*/,
                           bool /*follow_redirects*/, const std::string& /*proxy_host*/,
                           const std::string& /*proxy_user*/, const std::string& /*proxy_password*/,
                           const std::string& /*user_agent*/, const std::string& /*accept*/,
                           const std::string& /*content_type*/, bool /*compressed*/,
                           bool& /*token_expired*/, const std::string& /*audit_id*/,
                           int /*retries*/)
    : impl_(new Impl{corvane::HttpsSession(installed_endpoint(server, port, certificate)), {}}) {}

CVClientCURL::~CVClientCURL() = default;

void CVClientCURL::setupCurlOperationTimeout(long seconds) { impl_->session.set_timeout(seconds); }

int CVClientCURL::get(const std::string& path) { return impl_->request("GET", path); }

int CVClientCURL::post(const std::string& path, const std::string& body, CurlClient* /*caller*/) {
  return impl_->request("POST", path, &body);
}

int CVClientCURL::patch(const std::string& path, const std::string& body, CurlClient* /*caller*/) {
  return impl_->request("PATCH", path, &body);
}

int CVClientCURL::remove(const std::string& path) { return impl_->request("DELETE", path); }

long CVClientCURL::http_status() const { return impl_->session.answer().status; }

const std::string& CVClientCURL::response_body() const { return impl_->body(); }
