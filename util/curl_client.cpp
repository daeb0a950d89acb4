#include "util/curl_client.h"

#include <memory>

#include "platform/debug_log.h"

using corvane::kLogError;
using corvane::kLogEvent;

namespace {

constexpr std::int32_t kWebServicePort = 1556;
constexpr std::int32_t kTimeoutSeconds = 300;

bool is_success(long http_status) { return http_status >= 200 && http_status <= 206; }

}  // namespace

CurlClient::CurlClient(const std::string& host, const std::string& path,
                       RESTCommandType command_type, const std::string& body)
    : command_type_(command_type),
      host_(host),
      path_(path),
      body_(body),
      port_(kWebServicePort),
      timeout_(kTimeoutSeconds) {}

int CurlClient::execute() {
  std::unique_ptr<CVClientCURL> client(get_lib_curl(CERT_TYPE_OF_CLIENT));
  int result = process_curl_response(client.get(), send_curl_request(client.get()));
  if (getCertType() == CERT_TYPE_HOST && result == 401) {
    client.reset();  // before the next one is made: at most one exists at a time
    client.reset(get_lib_curl(CERT_TYPE_SERVICE));
    result = send_curl_request(client.get());
    if (result != 0) {
      logmsgf(kLogError, "CurlClient::execute",
              "\nError occurred while performing curl operation. Return code = %d ", result);
    } else if (!is_success(client->http_status())) {
      logmsgf(kLogError, "CurlClient::execute", "\nAPI execution failed. Response Code = %ld",
              client->http_status());
    }
  }
  if (client) response_ = client->response_body();
  return result;
}

std::string CurlClient::get_response() const { return response_; }

cert_type CurlClient::getCertType() const { return cert_type_; }

CVClientCURL* CurlClient::get_lib_curl(cert_type certificate) const {
  bool token_expired = false;
  auto client = std::make_unique<CVClientCURL>(
      host_, port_, certificate == CERT_TYPE_OF_CLIENT ? cert_type_ : certificate,
      CURL_SESSION_CERTIFICATE, nullptr, "", true, false, false, "", "", "", "", "", "", false,
      token_expired, "", 0);
  client->setupCurlOperationTimeout(timeout_);
  return client.release();
}

int CurlClient::send_curl_request(CVClientCURL* client) {
  if (client == nullptr) return -1;
  switch (command_type_) {
    case REST_GET:
      return client->get(path_);
    case REST_POST:
      return client->post(path_, body_, this);
    case REST_PATCH:
      return client->patch(path_, body_, this);
    case REST_DELETE:
      return client->remove(path_);
  }
  logmsgf(kLogError, "CurlClient::send_curl_request", "Invalid Command type received");
  return -1;
}

int CurlClient::process_curl_response(CVClientCURL* client, int result) const {
  if (result != 0) {
    logmsgf(kLogError, "CurlClient::process_curl_response",
            "\nError occurred while performing curl operation. Return code = %d", result);
    return result;
  }
  const long http_status = client->http_status();
  if (is_success(http_status)) {
    logmsgf(kLogEvent, "CurlClient::process_curl_response", "\nAPI execution succeeded \n");
    return 0;
  }
  logmsgf(kLogError, "CurlClient::process_curl_response",
          "\nAPI execution failed. Response Code = %ld", http_status);
  return static_cast<int>(http_status);
}
