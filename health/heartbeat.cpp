#include "health/heartbeat.h"

#include <algorithm>
#include <stdexcept>

#include "companions/alert/channel/curl_transfer.h"
#include "companions/common/error_text.h"
#include "config/settings.h"

namespace corvane::health {

namespace {

constexpr long kSeconds = 10;
constexpr long kNoLongerOk = 300;

void call(const Configured& configured, const std::string& url) {
  const alert::UrlParts parts = alert::parts_of_url(setting::kHeartbeatUrl, url);
  if (parts.scheme != "https" && !(parts.scheme == "http" && parts.is_loopback)) {
    throw std::runtime_error(std::string(setting::kHeartbeatUrl.key) +
                             " must begin with https:// unless the server is on this machine");
  }
  alert::CurlTransfer transfer(url, parts.is_loopback ? "http,https" : "https", configured.ca_file);
  const alert::StopFlag never;
  if (const CURLcode code = transfer.perform(kSeconds, never); code != CURLE_OK) {
    throw std::runtime_error(parts.host + ": " + transfer.failure(code));
  }
  if (transfer.status() >= kNoLongerOk) {
    throw std::runtime_error(parts.host + " answered " + std::to_string(transfer.status()));
  }
}

}  // namespace

std::string failure_url(const std::string& url) {
  std::size_t end = std::min(url.find_first_of("?#"), url.size());
  const std::string rest = url.substr(end);
  while (end > 0 && url[end - 1] == '/') --end;
  return url.substr(0, end) + "/fail" + rest;
}

std::string call_heartbeat(const Configured& configured, bool is_healthy) {
  const std::string& url = configured.heartbeat_url;
  if (url.empty()) return {};
  try {
    call(configured, is_healthy ? url : failure_url(url));
    return {};
  } catch (const std::exception& error) {
    return reason_of(error);
  }
}

}  // namespace corvane::health
